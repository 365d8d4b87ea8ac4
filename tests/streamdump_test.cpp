// The dump in words, against a checked-in text and against the examples' own figures.
#include <gtest/gtest.h> // before X's macros

#include "client/describe.h"
#include "client/encoder.h"
#include "client/process.h"
#include "client/streamFile.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>

namespace {

using Bytes = std::vector<unsigned char>;

Ending streamdump(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), STREAMDUMP);
    return runProcess({.argv = arguments, .environment = {}, .output = Output::capture},
                      std::chrono::seconds(60));
}

std::string readText(const std::string& name)
{
    std::ifstream file(name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

// The GLX records and the others whose blocks have fields of their own.
Bytes readByHand()
{
    Bytes b;
    constexpr std::uint32_t dpy = 0xa0000001, ctx = 0xc0000002, window = 0x400007;
    constexpr std::uint32_t visual = 0x21, parent = 0x50d;
    constexpr int attributes[] = {4, 5, 0};
    encode<Op::glXChooseVisual>(b, dpy, visual, 1, 3, std::span<const int>(attributes));
    encode<Op::glXCreateContext>(b, dpy, visual, 0, ctx, 1);
    encode<Op::glXMakeCurrent>(b, dpy, visual, window, ctx, 640, 480, 24, -3, 7, parent);
    encode<Op::glViewport>(b, 1, -2, 300, 200, 640, 480);
    using namespace std::string_view_literals;
    encode<Op::glXUseXFont>(b, 6, "fixed\0"sv, 32, 96, 1000);
    encode<Op::glSeparableFilter2D>(b, GL_SEPARABLE_2D, GL_RGB, 1, 1, GL_RGB, GL_FLOAT, 4, 4, 0, 1,
                                    "row!"sv);
    encode<Op::glXAllocateMemoryNV>(b, 64, 0.5F, 0.0F, 1.0F, 0xb8000000U);
    encode<Op::glXMakeContextCurrent>(b, dpy, 0, 0, window, window, ctx, 1, 2, 3, 4, 5, 6);
    encode<Op::glSelectBuffer>(b);
    return b;
}

// At least one record of every layout.
Bytes byLayout()
{
    Bytes b;
    encode<Op::glEnd>(b);
    encode<Op::glColor3b>(b, GLbyte{-128}, GLbyte{127}, GLbyte{0});
    encode<Op::glLineStipple>(b, 2, GLushort{0xaaaa});
    encode<Op::glEnable>(b, GLenum{GL_LIGHTING});
    encode<Op::glXSwapBuffers>(b, appHandle<Display*>(0xa0000001), GLXDrawable{0x400007});
    constexpr GLdouble plane[] = {0.5, 1e300, -1, 0.1};
    encode<Op::glClipPlane>(b, GLenum{GL_CLIP_PLANE0}, plane);
    constexpr GLubyte stipple[1024] = {1, 2};
    encode<Op::glPolygonStipple>(b, stipple);
    constexpr GLuint names[] = {1, 2, 300};
    constexpr GLboolean resident[] = {0, 1, 0};
    encode<Op::glAreTexturesResident>(b, 3, names, resident);
    encode<Op::glDeleteTextures>(b, 0, names);
    constexpr GLfloat position[] = {1, 2, 3, 0};
    encode<Op::glLightfv>(b, GLenum{GL_LIGHT0}, GLenum{GL_POSITION}, position);
    encode<Op::glLightfv>(b, GLenum{GL_LIGHT0}, GLenum{0x120a}, position);
    encode<Op::glTexImage2D>(b, GLenum{GL_TEXTURE_2D}, 0, 4, 2, 2, 0, GLenum{GL_RGBA},
                             GLenum{GL_UNSIGNED_BYTE}, Block{stipple, 16});
    encode<Op::glTexImage2D>(b, GLenum{GL_TEXTURE_2D}, 0, 4, 2, 2, 0, GLenum{GL_RGBA},
                             GLenum{GL_UNSIGNED_BYTE}, Block{nullptr, 0});
    encode<Op::glBitmap>(b, 0, 0, 0.F, 0.F, 10.F, 0.F, Block{nullptr, 0});
    encode<Op::glCallLists>(b, 2, GLenum{GL_UNSIGNED_BYTE}, Block{stipple, 2});
    encode<Op::glCallLists>(b, 2, GLenum{GL_UNSIGNED_BYTE}, Block{nullptr, 0});
    encode<Op::glVertexPointer>(b, 3, GLenum{GL_FLOAT}, 4, stipple);
    encode<Op::glEdgeFlagPointer>(b, 5, stipple);
    encode<Op::glDrawElements>(b, GLenum{GL_TRIANGLES}, 3, GLenum{GL_UNSIGNED_SHORT},
                               Block{stipple, 3});
    encode<Op::glMultiTexCoord2fvARB>(b, GLenum{GL_TEXTURE1}, position);
    encode<Op::glMatrixIndexubvARB>(b, 3, stipple);
    encode<Op::glGetIntegerv>(b);
    encode<Op::glGetString>(b);
    return b;
}

const std::vector<OutgoingBuffer> stream{
    {readByHand(), 0},
    {byLayout(), 1},
    {{}, 0},
    // An opcode beyond the last, half of one, a vector that nothing measures, and records that
    // reach past the end by their scalars, by a count, and by a count that no buffer could hold.
    {{75, 0, 0xd6, 0x04, 1, 2, 3}, 0},
    {{75, 0, 7}, 0},
    {{0x21, 0x04, 1, 0, 0, 0, 0}, 0},
    {{81, 0, 0, 0, 0x80}, 0},
    {{0x23, 0x01, 2, 0, 0, 0, 9, 0, 0, 0}, 0},
    {{0x23, 0x01, 0xff, 0xff, 0xff, 0xff}, 0},
    {{40, 0}, 1},
};

TEST(Streamdump, ShowsEveryLayoutAndGoesOnBehindFaults)
{
    writeStreamFile("streamdump.mws", stream);
    const Ending all = streamdump({"streamdump.mws"});
    EXPECT_EQ(all.out, readText(EXPECTED));
    EXPECT_EQ(all.err, "streamdump: 6 faulty records\n");
    EXPECT_EQ(all.status, 1);
}

TEST(Streamdump, ShowsOneFrameAndRefusesDamage)
{
    const std::vector<OutgoingBuffer> three{
        {{74, 0, 7, 0, 0, 0}, 1}, {{40, 0}, 0}, {{41, 0}, 1}, {{75, 0}, 1}};
    writeStreamFile("frames.mws", three);
    EXPECT_EQ(streamdump({"--frame", "2", "frames.mws"}).out,
              "frames.mws: version 0, address mode 0, byte order 0\n"
              "buffer 2, frame 2: 2 bytes at byte 34 of the file, sync 0\n"
              "         0  glFinish()\n"
              "buffer 3, frame 2: 2 bytes at byte 44 of the file, sync 1\n"
              "         0  glFlush()\n");
    const Ending none = streamdump({"--frame", "4", "frames.mws"});
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.err.find("frames.mws has no frame 4"), std::string::npos);

    std::filesystem::resize_file("frames.mws", 35);
    const Ending damaged = streamdump({"frames.mws"});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_NE(damaged.err.find("streamdump: frames.mws: at byte 34"), std::string::npos)
        << damaged.err;
}

// Each block has exactly the size of what is read of it, for the sanitizers.
TEST(Streamdump, DescribesAnyBytesWithoutReadingPastThem)
{
    std::mt19937 random(1);
    long described = 0;
    for (int i = 0; i < 100'000; ++i) {
        std::vector<char> bytes(2 + random() % (i % 10 ? 80 : 1200));
        // Mostly small numbers, so that counts and flags often make sense.
        for (char& byte : bytes)
            byte = static_cast<char>(random() % 4 ? 0 : random() % (i % 3 ? 8 : 256));
        store(bytes.data(), static_cast<std::uint16_t>(random() % (operationCount + 1)));
        const Record record = measureRecord(bytes.data(), std::ssize(bytes));
        ASSERT_LE(record.bytes, std::ssize(bytes));
        if (!record.fault.empty())
            continue;
        bytes.resize(static_cast<std::size_t>(record.bytes));
        bytes.shrink_to_fit();
        std::string words;
        describeRecord(words, record, bytes.data());
        ASSERT_TRUE(words.starts_with(operationName(record.opcode)) && words.ends_with(')'));
        ++described;
    }
    EXPECT_GT(described, 50'000);
}

// The worked bytes of the wire format: in the blocks marked `records`, hexadecimal bytes over one
// or more lines, and behind the last of them what the record says.
TEST(Streamdump, SaysWhatTheWireFormatSays)
{
    std::istringstream text(readText(WIRE_FORMAT));
    Bytes bytes;
    std::string expected;
    int records = 0;
    bool inBlock = false;
    std::ptrdiff_t start = 0;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("```")) {
            inBlock = line == "```records";
            continue;
        }
        std::istringstream words(inBlock ? line : "");
        for (std::string word; words >> word;) {
            if (word.size() == 2) {
                bytes.push_back(static_cast<unsigned char>(std::stoi(word, nullptr, 16)));
                continue;
            }
            std::string rest;
            std::getline(words, rest);
            const std::string offset = std::to_string(start);
            expected += std::string(10 - offset.size(), ' ') + offset + "  " + word + rest + "\n";
            start = std::ssize(bytes);
            ++records;
        }
    }
    const std::vector<OutgoingBuffer> one{{bytes, 1}};
    writeStreamFile("wireFormat.mws", one);
    const std::string out = streamdump({"wireFormat.mws"}).out;
    EXPECT_EQ(out.substr(out.find("sync 1\n") + 7), expected);
    EXPECT_GE(records, 20);
}

// The examples' table was written when they were recorded.
TEST(Streamdump, CountsWhatTheExamplesSay)
{
    const std::filesystem::path examples = EXAMPLES;
    const std::string table = readText(examples / "README.md");
    const std::regex row(R"(\| (\w+) \| \d+x\d+ \| (\d+) \| (\d+) \| (\d+) \|)");
    int rows = 0;
    for (std::sregex_iterator at(table.begin(), table.end(), row), end; at != end; ++at, ++rows) {
        std::filesystem::path file = examples / (at->str(1) + ".mws");
        if (!exists(file))
            file += ".gz";
        const Ending stats = streamdump({"--stats", file.string()});
        EXPECT_EQ(stats.status, 0) << stats.err;
        EXPECT_TRUE(std::regex_search(stats.out, std::regex("\nall +" + at->str(3) + " +\\d+\n")))
            << file << stats.out;
        const long bytes = std::stol(at->str(4));
        const long frames = std::stol(at->str(2));
        const std::regex totals("(\\d+) buffers of (\\d+) bytes, " + at->str(2) + " frames\n$");
        std::smatch found;
        ASSERT_TRUE(std::regex_search(stats.out, found, totals)) << file << stats.out;
        EXPECT_EQ(std::stol(found[1]), frames);
        EXPECT_EQ(std::stol(found[2]), bytes - 12 - 8 * (frames + 1)) << file;
    }
    EXPECT_GE(rows, 13);
}

} // namespace

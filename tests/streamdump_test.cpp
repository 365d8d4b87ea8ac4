// The dump in words, also against the documented records.
#include <gtest/gtest.h>

#include "client/streamFile.h"
#include "tests/support/bytes.h"
#include "tools/describe.h"
#include "tools/process.h"
#include "wire/operations.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <regex>

namespace {

Ending streamdump(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), STREAMDUMP);
    return runProcess({.argv = arguments, .environment = {}, .output = Output::capture},
                      std::chrono::seconds(60));
}

// What a dump says of the records, a line each.
std::string recordsOf(const std::string& dump)
{
    std::istringstream lines(dump);
    std::string words;
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(' ')) // and an offset
            words += line.substr(12) + "\n";
    return words;
}

TEST(Streamdump, ShowsWhatIsUnusualAndGoesOnBehindFaults)
{
    // A buffer each; the documented records are below.
    const std::pair<const char*, const char*> records[] = {
        {"glSelectBuffer", "glSelectBuffer()"},
        {"glGetIntegerv", "glGetIntegerv(must not be sent)"},
        {"glGetString", "glGetString(ignored)"},
        {"glClipPlane i:0x3000 d:0.5 d:1e300 d:-1 d:0.1",
         "glClipPlane(GL_CLIP_PLANE0, [0.5, 1e+300, -1, 0.1])"},
        {"glPolygonStipple 0102 z:1022",
         "glPolygonStipple([1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "
         "... 1024 in all])"},
        {"glDeleteTextures i:0", "glDeleteTextures(0, [])"},
        {"glLightfv i:0x4000 i:0x120a", "glLightfv(GL_LIGHT0, 0x120a, [], unknown enum)"},
        {"glTexImage2D i:1 i:0 i:4 i:2 i:2 i:0 i:7 i:8 i:0 i:1",
         "glTexImage2D(0x1, 0, 4, 2, 2, 0, 0x7, 0x8, null)"},
        {"glSeparableFilter2D i:1 i:0x1907 i:1 i:1 i:3 i:4 i:4 i:4 i:0 i:1 'row!",
         "glSeparableFilter2D(target=0x1, internalFormat=GL_RGB, width=1, height=1, format=0x3, "
         "type=0x4, rowBytes=4, columnBytes=4, rowNull=0, columnNull=1, row=4 bytes, column=0 "
         "bytes)"},
        {"glXAllocateMemoryNV i:64 f:0.5 f:0 f:1 i:0xb8000000",
         "glXAllocateMemoryNV(size=64, readFrequency=0.5, writeFrequency=0, priority=1, "
         "pointer=0xb8000000)"},
        {"glXMakeContextCurrent i:9 i:0 i:0 i:7 i:8 i:6 i:1 i:2 i:3 i:4 i:5 i:6",
         "glXMakeContextCurrent(dpy=0x9, unused1=0, unused2=0, draw=0x7, read=0x8, ctx=0x6, "
         "unused3=1, unused4=2, unused5=3, unused6=4, unused7=5, unused8=6)"},
        {"glDrawElements i:4 i:0 i:0x1405",
         "glDrawElements(GL_TRIANGLES, 0, GL_UNSIGNED_INT, 0 bytes)"},
        {"glBlendFunc i:0x302 i:1", "glBlendFunc(GL_SRC_ALPHA, GL_ONE)"},
        {"glDrawBuffer i:0", "glDrawBuffer(GL_NONE)"},
        {"glClear i:0x44000", "glClear(GL_COLOR_BUFFER_BIT|0x40000)"},
        {"glPushAttrib i:0x42000", "glPushAttrib(GL_TEXTURE_BIT|GL_ENABLE_BIT)"},
        {"glTexParameterf i:0xde1 i:0x2801 f:9729",
         "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR)"},
        {"glPixelStorei i:0xcf2 i:512", "glPixelStorei(GL_UNPACK_ROW_LENGTH, 512)"},
        {"glBindTexture i:0x806f i:512", "glBindTexture(GL_TEXTURE_3D, 512)"},
        {"glEnableTraceMESA i:512", "glEnableTraceMESA(512)"}, // the headers lack it
        {"glXChooseFBConfig i:9 i:7 i:0 i:7 i:0x8011 i:1 i:5 i:1 i:0x22 i:-1 i:0",
         "glXChooseFBConfig(dpy=0x9, config=0x7, screen=0, attributes=[GLX_RENDER_TYPE "
         "GLX_RGBA_BIT, GLX_DOUBLEBUFFER 1, GLX_X_VISUAL_TYPE GLX_DONT_CARE, None])"},
        {"#1238 010203", "FAULT: bad opcode 1238"},
        {"07", "FAULT: half an opcode"},
        {"glVariantbvEXT i:1 b:0", "FAULT: glVariantbvEXT: nothing tells its vector's length"},
        {"glVertex3f z:3", "FAULT: glVertex3f takes at least 12 bytes of arguments, 3 are left"},
        {"glDeleteTextures i:2 i:9",
         "FAULT: glDeleteTextures takes 12 bytes of arguments, 8 are left"},
        {"glDeleteTextures i:-1", "FAULT: glDeleteTextures has an impossible count"},
        {"glFinish", "glFinish()"},
    };
    std::vector<OutgoingBuffer> buffers;
    std::string expected;
    for (const auto& [wire, words] : records) {
        buffers.push_back({bytes(wire), 0});
        expected += std::string(words) + "\n";
    }
    writeStreamFile("records.mws", buffers);
    const Ending ending = streamdump({"records.mws"});
    EXPECT_EQ(recordsOf(ending.out), expected);
    EXPECT_EQ(ending.err, "streamdump: 6 faulty records\n");
    EXPECT_EQ(ending.status, 1);
}

TEST(Streamdump, ShowsOneFrameAndRefusesDamage)
{
    writeStreamFile("frames.mws", {{{bytes("glBegin i:7"), 1},
                                    {bytes("glFinish"), 0},
                                    {bytes("glFlush"), 1},
                                    {bytes("glEnd"), 1}}});
    EXPECT_EQ(streamdump({"--frame", "2", "frames.mws"}).out,
              "frames.mws: version 0, address mode 0, byte order 0\n"
              "buffer 2, frame 2: 2 bytes at byte 34 of the file, sync 0\n"
              "         0  glFinish()\n"
              "buffer 3, frame 2: 2 bytes at byte 44 of the file, sync 1\n"
              "         0  glFlush()\n");
    const auto fails = [](const std::vector<std::string>& arguments, const std::string& message) {
        const Ending ending = streamdump(arguments);
        EXPECT_EQ(ending.status, 1);
        EXPECT_PRED_FORMAT2(testing::IsSubstring, message, ending.err);
    };
    fails({"--frame", "4", "frames.mws"}, "frames.mws has no frame 4");
    std::ofstream("frames.mws", std::ios::app) << "rest";
    fails({"frames.mws"}, "4 bytes follow the end of the stream");
    std::filesystem::resize_file("frames.mws", 35);
    fails({"frames.mws"}, "streamdump: frames.mws: at byte 34");
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

// The wire format lists the fields of every block that is read by hand, in their order.
template <Op op>
void expectFields(const std::string& text, const std::string& name)
{
    if constexpr (requires { typename BlockOf<op>; }) {
        BlockOf<op> block;
        std::string row;
        eachField(block, [&row](const char* field, auto&) {
            row += (row.empty() ? "" : ", ") + std::string(field);
        });
        row = "| " + name + " | " + (row.empty() ? "none" : row) + " |\n";
        EXPECT_NE(text.find(row), std::string::npos) << row;
    }
}

// The worked bytes of the wire format: in the blocks marked `records`, hexadecimal bytes over one
// or more lines, and behind the last of them what the record says.
TEST(Streamdump, SaysWhatTheWireFormatSays)
{
    std::ifstream file(WIRE_FORMAT);
    const std::string format((std::istreambuf_iterator<char>(file)), {});
#define OPERATION(number, name, ...)
#define BY_HAND(number, name, ...)                                                                 \
    if (Op::name != Op::glXGetProcAddress)                                                         \
        expectFields<Op::name>(format, #name);
#define UNPERFORMED(number, name, ...)
#include "wire/operations.def"
    std::istringstream text(format);
    Bytes all;
    std::string expected;
    int records = 0;
    bool inBlock = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("```")) {
            inBlock = line == "```records";
            continue;
        }
        std::istringstream words(inBlock ? line : "");
        for (std::string word; words >> word;) {
            if (word.size() == 2) {
                appendToken(all, word);
                continue;
            }
            std::string rest;
            std::getline(words, rest);
            expected += word + rest + "\n";
            ++records;
        }
    }
    writeStreamFile("wireFormat.mws", {{{all, 1}}});
    EXPECT_EQ(recordsOf(streamdump({"wireFormat.mws"}).out), expected);
    EXPECT_GE(records, 20);
}

TEST(Streamdump, CountsOperationsBytesAndFrames)
{
    const std::string out = streamdump({"--stats", EXAMPLES "/glhanoi.mws.gz"}).out;
    const std::regex totals("\nall +16843 +489410\n100 buffers of 489410 bytes, 100 frames\n$");
    EXPECT_TRUE(std::regex_search(out, totals)) << out;
}

} // namespace

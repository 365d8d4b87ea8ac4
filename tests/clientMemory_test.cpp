// Records that bring the application's memory along: arrays, index lists, images, maps, lists.
#include "support/serverState.h"

#include "coding/buffer.h"
#include "coding/clientMemory.h"
#include "coding/fromWire.h"
#include "wire/imageMemory.h"

#include <algorithm>
#include <numeric>
#include <regex>
#include <set>
#include <sys/resource.h>

namespace {

using ClientMemory = StartedBy<startWithoutOverloads>;

TEST_F(ClientMemory, ArraysAreKeptInABufferOfTheirKind)
{
    const struct {
        std::string wire, call; // the elements as shown in place
        char* const& memory;
    } arrays[] = {
        {"glVertexPointer i:3 i:0x1406 i:4 f:1 z:44", "glVertexPointer 3 0x1406 0 [0 0 128 63]",
         vBuf},
        {"glNormalPointer i:0x1402 i:10 s:258 z:58", "glNormalPointer 0x1402 0 [2 1 0 0]", nBuf},
        {"glColorPointer i:4 i:0x1401 i:2 01020304 z:4", "glColorPointer 4 0x1401 0 [1 2 3 4]",
         cBuf},
        {"glIndexPointer i:0x140a i:2 07 z:15", "glIndexPointer 0x140a 0 [7 0 0 0]", iBuf},
        {"glTexCoordPointer i:2 i:0x1402 i:1 01020304", "glTexCoordPointer 2 0x1402 0 [1 2 3 4]",
         tBuf},
        {"glEdgeFlagPointer i:5 0100010000", "glEdgeFlagPointer 0 [1 0 1 0]", eBuf},
        {"glFogCoordPointer i:0x1406 i:1 05060708", "glFogCoordPointer 0x1406 0 [5 6 7 8]", fBuf},
        {"glSecondaryColorPointer i:3 i:0x1400 i:2 010203040506",
         "glSecondaryColorPointer 3 0x1400 0 [1 2 3 4]", scBuf},
        {"glWeightPointerARB i:1 i:0x1404 i:1 09080706", "glWeightPointerARB 1 0x1404 0 [9 8 7 6]",
         wBuf},
        {"glMatrixIndexPointerARB i:4 i:0x1401 i:1 04030201",
         "glMatrixIndexPointerARB 4 0x1401 0 [4 3 2 1]", mIbuf},
        {"glVertexAttribPointerARB i:7 i:2 i:0x1403 b:1 i:1 0b0c0d0e",
         "glVertexAttribPointerARB 7 2 0x1403 1 0 [11 12 13 14]", vAbuf},
    };
    recorder.shownElements = 4;
    std::set<const char*> addresses;
    for (const auto& [wire, call, memory] : arrays) {
        EXPECT_EQ(run(wire + " glEnd"), performed(call + "\nglEnd\n"));
        EXPECT_TRUE(addresses.insert(memory).second) << "kinds share a buffer";
    }
    EXPECT_FALSE(addresses.contains(nullptr));
}

TEST_F(ClientMemory, AnArrayOutlivesItsCommandBufferAndStaysWhereItIs)
{
    run("glVertexPointer i:2 i:0x1401 i:4 0102030405060708");
    const char* const kept = vBuf;
    EXPECT_EQ(std::string(kept, 8), "\1\2\3\4\5\6\7\10");
    const int size = vBufSz;
    run("glVertexPointer i:2 i:0x1401 i:1 090a");
    EXPECT_EQ(std::string(kept, 3), "\11\12\3");
    EXPECT_EQ(vBufSz, size);
    run("glVertexPointer i:3 i:0x1406 i:100000 z:1200000 glVertexPointer i:1 i:0x1401 i:1 07");
    EXPECT_EQ(vBuf, kept);
    EXPECT_EQ(vBufSz, 1200000);
    EXPECT_EQ(kept[0], 7);
    EXPECT_EQ(kept[(std::int64_t{1} << 24) * 32], 0) << "zeros as far as a draw may reach";
}

TEST_F(ClientMemory, AnUnknownTypeCountsFourBytesWithOneMessage)
{
    const std::string message = "Attention MOSA: typeSize using default statement: type = 5127  "
                                "We are returning 4 bytes \n";
    EXPECT_EQ(run("glVertexPointer i:1 i:0x1407 i:2 z:8"),
              (Outcome{1, "glVertexPointer 1 0x1407 0 ptr\n", message}));
    EXPECT_EQ(run("glDrawElements i:1 i:2 i:0x1407 z:8"),
              (Outcome{1, "glDrawElements 1 2 0x1407 ptr\n", message}));
}

// The data of these stand behind a count, a null flag or both, whose places differ.
TEST_F(ClientMemory, ImagesAndMapsGetTheirDataOrNull)
{
    // Distinct scalars before the count: one that is lost or moved shows.
    const auto check = [](Op op, int scalars, const std::string& block, const std::string& shown) {
        std::string wire = opNames[indexOf(op)];
        std::string call = wire;
        for (int i = 1; i <= scalars; ++i) {
            wire += " i:" + std::to_string(i);
            call += " " + std::to_string(i);
        }
        EXPECT_EQ(run(wire + " " + block + " glEnd"), performed(call + " " + shown + "\nglEnd\n"));
    };
    recorder.shownElements = 2;
    const std::pair<Op, int> images[] = {
        {Op::glTexImage1D, 7},     {Op::glTexImage2D, 8},          {Op::glTexImage3D, 9},
        {Op::glTexImage3DEXT, 9},  {Op::glTexSubImage1D, 6},       {Op::glTexSubImage2D, 8},
        {Op::glTexSubImage3D, 10}, {Op::glColorTable, 5},          {Op::glColorTableEXT, 5},
        {Op::glColorSubTable, 5},  {Op::glConvolutionFilter1D, 5}, {Op::glConvolutionFilter2D, 6}};
    for (const auto& [opcode, scalars] : images) {
        check(opcode, scalars, "i:3 i:0 0a0b0c", "[10 11]");
        check(opcode, scalars, "i:3 i:9", "null");
    }
    // The count is a parameter.
    for (const auto& [opcode, scalars] : {std::pair{Op::glCompressedTexImage1D, 5},
                                          {Op::glCompressedTexImage2D, 6},
                                          {Op::glCompressedTexImage3D, 7},
                                          {Op::glCompressedTexSubImage1D, 5},
                                          {Op::glCompressedTexSubImage2D, 7},
                                          {Op::glCompressedTexSubImage3D, 9}}) {
        check(opcode, scalars, "i:3 i:0 0a0b0c", "3 [10 11]");
        check(opcode, scalars, "i:3 i:9", "3 null");
    }
    for (const auto& [opcode, two] : {std::pair{Op::glPixelMapfv, "f:5 f:6"},
                                      {Op::glPixelMapuiv, "i:5 i:6"},
                                      {Op::glPixelMapusv, "s:5 s:6"}}) {
        check(opcode, 1, std::string("i:2 i:0 ") + two, "2 [5 6]");
        check(opcode, 1, "i:2 i:1", "2 null");
    }
    // No flag: the count 0 stands for null.
    check(Op::glProgramStringARB, 2, "i:3 0a0b0c", "3 [10 11]");
    check(Op::glDrawPixels, 4, "i:3 0a0b0c", "[10 11]");
    check(Op::glDrawPixels, 4, "i:0", "null");
    check(Op::glDrawElements, 2, "i:0x1403 s:7 s:9", "0x1403 [7 0]");
    check(Op::glDrawElements, 2, "i:0x1405 i:7 i:9", "0x1405 [7 0]");
    check(Op::glDrawRangeElements, 3, "i:2 i:0x1401 07 09", "2 0x1401 [7 9]");
    EXPECT_EQ(run("glBitmap i:8 i:1 f:1 f:2 f:3 f:4 i:2 a0ff glEnd"),
              performed("glBitmap 8 1 1 2 3 4 [160 255]\nglEnd\n"));
    EXPECT_EQ(run("glBitmap i:8 i:1 f:0 f:0 f:3 f:0 i:0"),
              performed("glBitmap 8 1 0 0 3 0 null\n"));
    recorder.shownElements = 4;
    EXPECT_EQ(run("glBitmap i:9 i:2 f:0 f:0 f:3 f:0 i:3 010203 glEnd"),
              performed("glBitmap 9 2 0 0 3 0 [1 2 3 0]\nglEnd\n"));
    recorder.shownElements = 2;
    // Each of two filters has its own flag.
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:0 i:0 0a0b 0c0d0e", "[10 11] [12 13]");
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:1 i:0 0c0d0e", "null [12 13]");
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:0 i:1 0a0b", "[10 11] null");
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:1 i:1", "null null");
}

// A call without data reads those that arrived last, and zeros where they are fewer than it needs.
TEST_F(ClientMemory, ListsAndControlPointsAreKeptForCallsThatBringNone)
{
    const struct {
        std::string scalars, one; // of N lists or points, and the numbers of one
        int numbers;
        std::string both, half; // as shown in memory: of two that arrived, of one
        Memory memory;
    } kinds[] = {
        {"glCallLists i:N i:0x1401", " 07", 1, "[7 7", "[7 0", Memory::listNames},
        {"glMap1d i:0xd93 d:2 d:3 i:1 i:N", " d:7", 1, "[7 7", "[7 0", Memory::map1d},
        {"glMap1f i:0xd93 f:2 f:3 i:1 i:N", " f:7", 1, "[7 7", "[7 0", Memory::map1f},
        {"glMap2d i:0xdb7 d:2 d:3 i:4 i:1 d:5 d:6 i:3 i:N", " d:7 d:8 d:9", 3, "[7 8 9 7 8 9",
         "[7 8 9 0 0 0", Memory::map2d},
        {"glMap2f i:0xdb3 f:2 f:3 i:4 i:1 f:5 f:6 i:1 i:N", " f:7", 1, "[7 7", "[7 0",
         Memory::map2f},
    };
    for (const auto& kind : kinds) {
        recorder.shownElements = static_cast<int>(std::ranges::count(kind.both, ' ')) + 1;
        const auto scalars = [&kind](int n) {
            return std::regex_replace(kind.scalars, std::regex("N"), std::to_string(n));
        };
        const auto with = [&](int n) {
            std::string data;
            for (int i = 0; i < n; ++i)
                data += kind.one;
            return scalars(n) + " i:" + std::to_string(n * kind.numbers) + " i:0" + data + " glEnd";
        };
        const std::string without = scalars(2) + " i:2 i:1 glEnd";
        const std::string call = std::regex_replace(scalars(2), std::regex("[idf]:"), "");
        const auto shows = [&call](const std::string& memory) {
            return performed(call + " " + memory + "]\nglEnd\n");
        };
        scratchOf(kind.memory).arrived = 0;
        EXPECT_EQ(run(without), shows(std::regex_replace(kind.half, std::regex("[1-9]"), "0")))
            << "none has arrived";
        EXPECT_EQ(run(with(2)), shows(kind.both));
        EXPECT_EQ(run(without), shows(kind.both)) << "the record that brought them is gone";
        EXPECT_EQ(run(with(1)).messages, "");
        EXPECT_EQ(run(without), shows(kind.half)) << "the last are fewer";
    }
    EXPECT_EQ(run("glCallLists i:0x50000000 i:0x1405 i:4 i:0 z:4 glEnd"),
              (Outcome{1, "glEnd\n",
                       "Attention MOSA: glCallLists: 5368709120 bytes are needed, 4 arrived: too "
                       "many to add\n"}));
}

// ---- Draws -------------------------------------------------------------------------------------

class Draws : public ClientMemory {
protected:
    void SetUp() override
    {
        startServer();
        clientMemory::use(reinterpret_cast<GLXContext>(1));
    }
    const std::string vertices = "glVertexPointer i:2 i:0x1406 i:4 z:32 ";
    const std::string enable = "glEnableClientState i:0x8074 ";
    const std::string drawn = "glDrawArrays 4 0 9\n";

    /// The names of what a draw of nine elements calls, behind other records.
    static std::string drawing(const std::string& before)
    {
        run(before);
        return namesOf(run("glDrawArrays i:4 i:0 i:9").calls);
    }
};

// Nothing that the stream did before may cost a draw, whether the library accepted it or not.
TEST_F(Draws, AreNeverWithheldForWhatCameBefore)
{
    std::string pushes;
    for (int i = 0; i < 17; ++i)
        pushes += "glPushClientAttrib i:-1 ";
    for (const std::string& before :
         {vertices + enable,
          std::string("glNewList i:1 i:0x1300 glBegin i:4 glEndList glCallList i:1"),
          vertices + "glNewList i:0 i:0x1300 glBegin i:4 glEnd glEnd glEndList glCallList i:1",
          pushes + vertices, std::string("glBegin i:77 ") + vertices, std::string("glEnd"),
          std::string("glVertexPointer i:4 i:0x140b i:1 z:16"), // half floats
          std::string("glSecondaryColorPointer i:4 i:0x1406 i:1 z:16"),
          std::string("glVertexAttribPointerARB i:20 i:4 i:0x1406 b:0 i:1 z:16 "
                      "glEnableVertexAttribArrayARB i:20"),
          std::string("glEnable i:0x8075"), std::string("glEnableClientState i:0x8075")}) {
        startServer();
        clientMemory::reset();
        clientMemory::use(reinterpret_cast<GLXContext>(1));
        EXPECT_TRUE(drawing(before).ends_with("glDrawArrays\n")) << before;
    }
}

TEST_F(Draws, TheLibraryIsAskedOnlyForArraysThatMayLackAnAddress)
{
    EXPECT_EQ(drawing(vertices + enable), "glDrawArrays\n");
    EXPECT_EQ(drawing("glDisableClientState i:0x8075 glPopClientAttrib"), "glDrawArrays\n");
    // Enabled without a pointer, and as the library says: it gets one.
    recorder.results[Op::glIsEnabled] = 1;
    run("glEnableClientState i:0x8075");
    EXPECT_EQ(run("glDrawArrays i:4 i:0 i:9").calls,
              "glIsEnabled 0x8075\nglGetPointerv 0x808f ptr\nglGetIntegerv 0x807e ptr\n"
              "glNormalPointer 0x1406 0 ptr\n" +
                  drawn);
    EXPECT_EQ(drawing(""), "glDrawArrays\n") << "once";
    // A pop may bring a null pointer back, but only where arrays were pushed.
    EXPECT_EQ(drawing("glPushClientAttrib i:1 glPopClientAttrib"), "glDrawArrays\n");
    EXPECT_EQ(drawing("glPushClientAttrib i:2 glPopClientAttrib " + vertices),
              "glIsEnabled\nglGetPointerv\nglGetIntegerv\nglNormalPointer\nglDrawArrays\n");
    // Not enabled after all.
    recorder.results[Op::glIsEnabled] = 0;
    EXPECT_EQ(drawing("glEnable i:0x8076"), "glIsEnabled\nglDrawArrays\n");
    EXPECT_EQ(drawing("glCallList i:1"), "glIsEnabled\nglDrawArrays\n") << "it may be in a list";
    // Another unit, another context; a pointer that may have been refused.
    EXPECT_EQ(drawing("glClientActiveTexture i:0x84c1 glEnableClientState i:0x8078 "
                      "glClientActiveTexture i:0x84c0 glTexCoordPointer i:2 i:0x1406 i:4 z:32"),
              "glGetIntegerv\nglClientActiveTexture\nglIsEnabled\nglClientActiveTexture\n"
              "glDrawArrays\n");
    EXPECT_EQ(drawing("glBegin i:4 glColorPointer i:4 i:0x1401 i:1 z:4 glEnd "
                      "glEnableClientState i:0x8076"),
              "glIsEnabled\nglDrawArrays\n");
    EXPECT_EQ(drawing("glBegin i:4 glClientActiveTexture i:0x84c1 glEnd "
                      "glEnableClientState i:0x8078"),
              "glDrawArrays\n")
        << "of the unit before, which has an address";
    auto* const other = reinterpret_cast<GLXContext>(2);
    clientMemory::use(other);
    EXPECT_EQ(drawing(""), "glDrawArrays\n");
    EXPECT_EQ(drawing(enable), "glIsEnabled\nglDrawArrays\n");
    run(vertices);
    clientMemory::create(other); // at the same address
    EXPECT_EQ(drawing(enable), "glIsEnabled\nglDrawArrays\n");
    std::uintptr_t context = 100;
    for (const std::string array : {"0x8074", "0x8075", "0x8076", "0x8077", "0x8078", "0x8079",
                                    "0x8457", "0x845e", "0x86ad", "0x8844"}) {
        clientMemory::use(reinterpret_cast<GLXContext>(++context));
        EXPECT_TRUE(
            drawing("glEnableClientState i:" + array).ends_with("glIsEnabled\nglDrawArrays\n"))
            << array;
    }
    clientMemory::use(other);
    // Before glBegin: behind it nothing is answered.
    recorder.results[Op::glIsEnabled] = 1;
    run(enable);
    EXPECT_TRUE(namesOf(run("glBegin i:4 glArrayElement i:0").calls)
                    .ends_with("glVertexPointer\nglBegin\nglArrayElement\n"));
}

TEST_F(Draws, AbsurdOnesAreLeftOut)
{
    const auto refused = [](const std::string& operation, const std::string& element) {
        return Outcome{1, "",
                       "Attention MOSA: " + operation + ": element " + element +
                           " lies too far behind those that arrived\n"};
    };
    EXPECT_EQ(run("glArrayElement i:-1 glDrawArrays i:4 i:0x7f000000 i:9").calls,
              "glArrayElement -1\nglDrawArrays 4 2130706432 9\n")
        << "nothing is enabled";
    run(vertices + enable);
    const std::int64_t far = elementsInReach();
    const auto record = [](const std::string& operation, std::int64_t number) {
        return operation + " i:" + std::to_string(number);
    };
    EXPECT_EQ(run(record("glArrayElement", far - 1)).messages, "");
    EXPECT_EQ(run(record("glArrayElement", far)), refused("glArrayElement", std::to_string(far)));
    EXPECT_EQ(run("glArrayElement i:-1"), refused("glArrayElement", "4294967295"));
    EXPECT_EQ(run(record("glDrawArrays i:4", far - 2) + " i:2").messages, "");
    EXPECT_EQ(run(record("glDrawArrays i:4", far - 2) + " i:3"),
              refused("glDrawArrays", std::to_string(far)));
    EXPECT_EQ(run(record("glLockArraysEXT i:1", far)),
              refused("glLockArraysEXT", std::to_string(far)));
    EXPECT_EQ(run("glDrawElements i:4 i:3 i:0x1403 ffff ffff 0000").messages, "");
    EXPECT_EQ(run(record("glDrawElements i:4 i:2 i:0x1405 i:0", far)),
              refused("glDrawElements", std::to_string(far)));
    // A range is passed on as it came, but for an end as far away.
    const auto range = [](const std::string& ends) {
        return run("glDrawRangeElements i:4 " + ends + " i:3 i:0x1401 030102").calls;
    };
    EXPECT_EQ(range("i:9 i:99"), "glDrawRangeElements 4 9 99 3 0x1401 ptr\n");
    EXPECT_EQ(range("i:1 i:-1"), "glDrawRangeElements 4 1 3 3 0x1401 ptr\n");
}

#ifndef __SANITIZE_ADDRESS__ // its shadow memory needs more than any limit leaves
// With few addresses memory may have to move. Contexts that hold the old ones draw all the same.
TEST_F(Draws, NoContextPaysForAnothersGrowth)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // in a process that has none yet
    const auto grow = [this] {
        const rlimit limit{1U << 30, 1U << 30};
        setrlimit(RLIMIT_AS, &limit);
        run(vertices + enable + "glPushClientAttrib i:2");
        const char* const small = vBuf;
        clientMemory::use(reinterpret_cast<GLXContext>(2));
        const Outcome large = run(enable + "glVertexPointer i:2 i:0x1406 i:5000000 z:40000000 "
                                           "glDrawArrays i:4 i:0 i:5000000");
        recorder.results[Op::glIsEnabled] = 1;
        clientMemory::use(reinterpret_cast<GLXContext>(1));
        std::string calls = large.messages + (vBuf == small ? "stayed " : "moved ") +
                            namesOf(large.calls) + drawing("");
        calls += drawing("glPopClientAttrib glPopClientAttrib");
        std::fputs(std::regex_replace(calls, std::regex("\n"), " ").c_str(), stderr);
        std::_Exit(0);
    };
    const std::string asked = "glIsEnabled glGetPointerv glGetIntegerv glGetIntegerv "
                              "glVertexPointer glDrawArrays ";
    EXPECT_EXIT(grow(), testing::ExitedWithCode(0),
                "^moved glEnableClientState glVertexPointer glDrawArrays " + asked + asked + "$");
}
#endif

// ---- Images ------------------------------------------------------------------------------------

// The library gets what arrived, and zeros up to what the unpack state makes it read.
TEST_F(Draws, ImagesWithTooFewBytesGoOnWithZeros)
{
    static std::int64_t wanted;
    static std::string seen;
    static const auto look = [](const GLvoid* pixels) {
        const auto* bytes = static_cast<const unsigned char*>(pixels);
        seen =
            std::to_string(std::accumulate(bytes, bytes + wanted, 0)); // the sanitizer looks, too
    };
    const auto image = [](std::int64_t bytes, const std::string& state, const std::string& record) {
        run(state);
        seen = "not performed";
        wanted = bytes;
        const std::string messages = run(record).messages;
        return seen + messages;
    };
    glOpTable[indexOf(Op::glTexImage2D)] =
        reinterpret_cast<glOp>(+[](GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum,
                                   const GLvoid* pixels) { look(pixels); });
    glOpTable[indexOf(Op::glTexImage3D)] =
        reinterpret_cast<glOp>(+[](GLenum, GLint, GLint, GLsizei, GLsizei, GLsizei, GLint, GLenum,
                                   GLenum, const GLvoid* pixels) { look(pixels); });
    glOpTable[indexOf(Op::glPolygonStipple)] =
        reinterpret_cast<glOp>(+[](const GLubyte* mask) { look(mask); });
    glOpTable[indexOf(Op::glCompressedTexImage2D)] =
        reinterpret_cast<glOp>(+[](GLenum, GLint, GLenum, GLsizei, GLsizei, GLint, GLsizei,
                                   const GLvoid* data) { look(data); });
    const std::string flat = "glTexImage2D i:0x0de1 i:0 i:3 i:3 i:2 i:0 i:0x1907 i:0x1401 ";
    const std::string few = flat + "i:2 i:0 0102";
    EXPECT_EQ(image(21, "", few), "3") << "rows of 9 bytes at multiples of 4";
    EXPECT_EQ(image(0, "", flat + "i:0 i:0"), "0");
    EXPECT_EQ(image(18, "", flat + "i:18 i:0 01 z:16 02"), "3");
    const std::string stipple = "glPolygonStipple 0102 z:1022";
    EXPECT_EQ(image(1024, "", stipple), "3");
    const std::string blocks =
        "glCompressedTexImage2D i:0x0de1 i:0 i:0x83f0 i:8 i:4 i:0 i:1 i:0 07";
    EXPECT_EQ(image(16, "", blocks), "7");
    EXPECT_EQ(
        image(0, "",
              "glTexImage2D i:0x8064 i:0 i:3 i:0xffff i:0xffff i:0 i:0x1907 i:0x1401 i:0 i:0"),
        "0")
        << "a proxy reads nothing";
    EXPECT_EQ(image(0, "",
                    "glTexImage2D i:0x0de1 i:0 i:3 i:20000 i:20000 i:0 i:0x1907 i:0x1401 "
                    "i:3 i:0 z:3"),
              "not performedAttention MOSA: glTexImage2D: 1200000000 bytes are needed, 3 arrived: "
              "too many to add\n");
    // What the library answers counts as soon as the stream has touched it.
    recorder.values[GL_UNPACK_ROW_LENGTH] = {5};
    recorder.values[GL_UNPACK_ALIGNMENT] = {2};
    EXPECT_EQ(image(21, "", few), "3") << "not asked";
    EXPECT_EQ(image(16 + 9, "glPixelStoref i:0x0cf2 f:4.6", few), "3");
    recorder.values[GL_UNPACK_SKIP_ROWS] = {3};
    recorder.values[GL_UNPACK_SKIP_PIXELS] = {1};
    EXPECT_EQ(image(4 * 16 + 12, "", few), "3");
    recorder.values[GL_UNPACK_IMAGE_HEIGHT] = {4};
    recorder.values[GL_UNPACK_SKIP_IMAGES] = {1};
    EXPECT_EQ(image(2 * 64 + 4 * 16 + 12, "",
                    "glTexImage3D i:0x806f i:0 i:3 i:3 i:2 i:2 i:0 i:0x1907 i:0x1401 i:2 i:0 0102"),
              "3");
    recorder.values[GL_UNPACK_ROW_LENGTH] = {8192};
    EXPECT_EQ(image(34 * 1024 + 5, "", stipple), "3");
    recorder.values[GL_UNPACK_COMPRESSED_BLOCK_SIZE] = {8};
    recorder.values[GL_UNPACK_COMPRESSED_BLOCK_WIDTH] = {4};
    recorder.values[GL_UNPACK_COMPRESSED_BLOCK_HEIGHT] = {4};
    recorder.values[GL_UNPACK_SKIP_ROWS] = {4};
    EXPECT_EQ(image(2048 * 8 + 16, "", blocks), "7");
    // Without a sanitizer nobody sees a byte that is read beyond.
    EXPECT_EQ(placesOf({3, 2, 1, GL_RGB, GL_UNSIGNED_BYTE}, {2, 5, 3, 1}).end, 4 * 16 + 12);
    EXPECT_EQ(listNameBytes(5, GL_3_BYTES), 15);
}

TEST_F(ClientMemory, AParameterOfUnknownNameGetsWhatStandsInTheBuffer)
{
    recorder.shownElements = 16;
    EXPECT_EQ(run("glTexGeniv i:1 i:2 glEnd glEnd"),
              (Outcome{1, "glTexGeniv 1 2 [4915275 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0]\nglEnd\nglEnd\n",
                       "Attention MOSA: unknown enum in glTexGeniv\n"}));
    EXPECT_EQ(run("glVariantubvEXT i:7 0102030405").calls,
              "glVariantubvEXT 7 [1 2 3 4 5 0 0 0 0 0 0 0 0 0 0 0]\n");
}

// OpenGL writes to it until it has accepted another, which it does not tell.
TEST_F(ClientMemory, FeedbackSpaceStaysWhereALaterOneIsLarger)
{
    static std::vector<float*> spaces;
    glOpTable[indexOf(Op::glFeedbackBuffer)] =
        reinterpret_cast<glOp>(+[](GLsizei, GLenum, GLfloat* buffer) { spaces.push_back(buffer); });
    EXPECT_EQ(
        run("glFeedbackBuffer i:2 i:0x600 i:0 z:8 glFeedbackBuffer i:5 i:0x600 i:0 z:20 glEnd"),
        performed("glEnd\n"));
    EXPECT_EQ(run("glFeedbackBuffer i:2 i:0x600 i:1 glEnd"), performed("glEnd\n"));
    ASSERT_EQ(spaces.size(), 3U);
    std::fill_n(spaces[0], 2, 1.0F); // as at a later glRenderMode; the sanitizer sees it freed
    std::fill_n(spaces[1], 5, 1.0F);
    EXPECT_NE(spaces[0], spaces[1]);
    EXPECT_EQ(spaces[2], nullptr);
}

#ifndef __SANITIZE_ADDRESS__
TEST_F(ClientMemory, AnArrayTooLargeForMemoryEndsTheServerByName)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto allocateTooMuch = [] {
        const std::vector<char> data(1 << 28);
        const rlimit limit{1U << 28, 1U << 28};
        setrlimit(RLIMIT_AS, &limit);
        keepArray(Memory::normal, data.data(), 1 << 28, 1, "glNormalPointer");
    };
    EXPECT_DEATH(allocateTooMuch(), "assertion failed: nBuf, file coding/glNormalPointer_decode, "
                                    "line [0-9]+, function _glNormalPointer");
}
#endif

} // namespace

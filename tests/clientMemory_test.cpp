// Records that bring the application's memory along: arrays, index lists, images, maps, lists.
#include "support/serverState.h"

#include "coding/buffer.h"
#include "coding/clientMemory.h"
#include "coding/fromWire.h"

#include <regex>
#include <set>
#include <sys/resource.h>

namespace {

using ClientMemory = StartedBy<startWithoutOverloads>;

// A buffer as at start-up, whichever tests ran before.
void forget(ScratchBuffer& buffer)
{
    if (buffer.room == 0) // memory of client arrays stays
        std::free(buffer.data);
    buffer = {.name = buffer.name};
}

TEST_F(ClientMemory, ArraysAreKeptInABufferOfTheirKind)
{
    const struct {
        std::string wire, call; // the elements as shown in place
        Memory memory;
    } arrays[] = {
        {"glVertexPointer i:3 i:0x1406 i:4 f:1 z:44", "glVertexPointer 3 0x1406 0 [0 0 128 63]",
         Memory::vertex},
        {"glNormalPointer i:0x1402 i:10 s:258 z:58", "glNormalPointer 0x1402 0 [2 1 0 0]",
         Memory::normal},
        {"glColorPointer i:4 i:0x1401 i:2 01020304 z:4", "glColorPointer 4 0x1401 0 [1 2 3 4]",
         Memory::color},
        {"glIndexPointer i:0x140a i:2 07 z:15", "glIndexPointer 0x140a 0 [7 0 0 0]", Memory::index},
        {"glTexCoordPointer i:2 i:0x1402 i:1 01020304", "glTexCoordPointer 2 0x1402 0 [1 2 3 4]",
         Memory::texCoord},
        {"glEdgeFlagPointer i:5 0100010000", "glEdgeFlagPointer 0 [1 0 1 0]", Memory::edgeFlag},
        {"glFogCoordPointer i:0x1406 i:1 05060708", "glFogCoordPointer 0x1406 0 [5 6 7 8]",
         Memory::fogCoord},
        {"glSecondaryColorPointer i:3 i:0x1400 i:2 010203040506",
         "glSecondaryColorPointer 3 0x1400 0 [1 2 3 4]", Memory::secondaryColor},
        {"glWeightPointerARB i:1 i:0x1404 i:1 09080706", "glWeightPointerARB 1 0x1404 0 [9 8 7 6]",
         Memory::weight},
        {"glMatrixIndexPointerARB i:4 i:0x1401 i:1 04030201",
         "glMatrixIndexPointerARB 4 0x1401 0 [4 3 2 1]", Memory::matrixIndex},
        {"glVertexAttribPointerARB i:7 i:2 i:0x1403 b:1 i:1 0b0c0d0e",
         "glVertexAttribPointerARB 7 2 0x1403 1 0 [11 12 13 14]", Memory::vertexAttrib},
    };
    recorder.shownElements = 4;
    std::set<const char*> addresses;
    for (const auto& [wire, call, memory] : arrays) {
        EXPECT_EQ(run(wire + " glEnd"), performed(call + "\nglEnd\n"));
        EXPECT_TRUE(addresses.insert(scratchOf(memory).data).second) << "kinds share a buffer";
    }
    EXPECT_FALSE(addresses.contains(nullptr));
}

TEST_F(ClientMemory, AnArrayOutlivesItsCommandBufferAndGrowsToTheLargest)
{
    forget(scratchOf(Memory::vertex));
    forget(scratchOf(Memory::color));
    run("glVertexPointer i:2 i:0x1401 i:4 0102030405060708");
    const char* const kept = scratchOf(Memory::vertex).data;
    EXPECT_EQ(std::string(scratchOf(Memory::vertex).data, 8), "\1\2\3\4\5\6\7\10");
    run("glVertexPointer i:2 i:0x1401 i:1 090a");
    EXPECT_EQ(scratchOf(Memory::vertex).data, kept);
    EXPECT_EQ(std::string(scratchOf(Memory::vertex).data, 3), "\11\12\3");
    run("glVertexPointer i:3 i:0x1401 i:3 z:9");
    EXPECT_EQ(scratchOf(Memory::vertex).size, 9);
    // An array without elements needs no memory.
    recorder.shownElements = 0;
    EXPECT_EQ(run("glColorPointer i:4 i:0x1406 i:0"),
              performed("glColorPointer 4 0x1406 0 null\n"));
    EXPECT_EQ(run("glVertexPointer i:4 i:0x1406 i:0"),
              performed("glVertexPointer 4 0x1406 0 ptr\n"));
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
    EXPECT_EQ(run("glBitmap i:9 i:2 f:0 f:0 f:3 f:0 i:3 z:3 glEnd"),
              (Outcome{1, "glBitmap 9 2 0 0 3 0 null\nglEnd\n",
                       "Attention MOSA: glBitmap: 9 x 2 pixels need 4 bytes, 3 arrived\n"}));
    // Each of two filters has its own flag.
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:0 i:0 0a0b 0c0d0e", "[10 11] [12 13]");
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:1 i:0 0c0d0e", "null [12 13]");
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:0 i:1 0a0b", "[10 11] null");
    check(Op::glSeparableFilter2D, 6, "i:2 i:3 i:1 i:1", "null null");
}

// What a call without data reads must lie within the data that arrived last.
TEST_F(ClientMemory, ListsAndControlPointsAreKeptForCallsThatBringNone)
{
    const struct {
        std::string scalars, one; // of N lists or points, and the numbers of one
        int numbers, bytes;
        const char* two; // as shown in memory
        Memory memory;
    } kinds[] = {
        {"glCallLists i:N i:0x1401", " 07", 1, 1, "[7 7]", Memory::listNames},
        {"glMap1d i:0xd93 d:2 d:3 i:1 i:N", " d:7", 1, 8, "[7 7]", Memory::map1d},
        {"glMap1f i:0xd93 f:2 f:3 i:1 i:N", " f:7", 1, 4, "[7 7]", Memory::map1f},
        {"glMap2d i:0xdb7 d:2 d:3 i:4 i:1 d:5 d:6 i:3 i:N", " d:7 d:8 d:9", 3, 24, "[7 8]",
         Memory::map2d},
        {"glMap2f i:0xdb3 f:2 f:3 i:4 i:1 f:5 f:6 i:1 i:N", " f:7", 1, 4, "[7 7]", Memory::map2f},
    };
    recorder.shownElements = 2;
    for (const auto& kind : kinds) {
        forget(scratchOf(kind.memory));
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
        const auto refused = [&](int arrived) {
            return Outcome{1, "glEnd\n",
                           "Attention MOSA: " + call.substr(0, call.find(' ')) + ": " +
                               std::to_string(2 * kind.bytes) + " bytes are needed, " +
                               std::to_string(arrived) + " arrived\n"};
        };
        EXPECT_EQ(run(without), refused(0)) << "none has arrived";
        EXPECT_EQ(run(with(2)), performed(call + " " + kind.two + "\nglEnd\n"));
        // The record that brought them is gone from memory.
        EXPECT_EQ(run(without), performed(call + " " + kind.two + "\nglEnd\n"));
        EXPECT_EQ(run(with(1)).messages, "");
        EXPECT_EQ(run(without), refused(kind.bytes)) << "the last are fewer";
    }
}

// OpenGL writes to it until it has accepted another, which it does not tell.
// What OpenGL would read beyond what has arrived is not performed; one line says so.
TEST_F(ClientMemory, NothingIsReadThatHasNotArrived)
{
    const auto context = [](std::uintptr_t number) { return reinterpret_cast<GLXContext>(number); };
    clientMemory::reset();
    clientMemory::use(context(1));
    // Whether the last record is performed, behind the others.
    const auto performs = [&](const std::string& before, const std::string& record) {
        if (!before.empty())
            run(before);
        const Outcome outcome = run(record);
        EXPECT_EQ(outcome.calls.empty(), !outcome.messages.empty()) << record << outcome.messages;
        return !outcome.calls.empty();
    };
    const std::string vertices = "glVertexPointer i:2 i:0x1406 i:4 z:32 ";
    const std::string enable = "glEnableClientState i:0x8074 ";
    EXPECT_TRUE(performs("", "glDrawArrays i:4 i:0 i:9")) << "no array is enabled";
    EXPECT_FALSE(performs(enable, "glDrawArrays i:4 i:0 i:1")) << "none has arrived";
    EXPECT_TRUE(performs(vertices, "glDrawArrays i:4 i:1 i:3"));
    EXPECT_FALSE(performs("", "glDrawArrays i:4 i:2 i:3"));
    EXPECT_FALSE(performs("", "glDrawArrays i:4 i:-1 i:3"));
    EXPECT_TRUE(performs("", "glArrayElement i:3"));
    EXPECT_FALSE(performs("", "glArrayElement i:4"));
    EXPECT_TRUE(performs("", "glDrawElements i:4 i:3 i:0x1401 030102"));
    EXPECT_FALSE(performs("", "glDrawElements i:4 i:3 i:0x1401 030402"));
    EXPECT_EQ(run("glDrawRangeElements i:4 i:0 i:99 i:3 i:0x1401 030102").calls,
              "glDrawRangeElements 4 0 3 3 0x1401 ptr\n");
    EXPECT_FALSE(performs("glPushClientAttrib i:2 glVertexPointer i:2 i:0x1406 i:9 z:72 "
                          "glPopClientAttrib",
                          "glArrayElement i:8"));
    EXPECT_FALSE(
        performs("glBegin i:4 glVertexPointer i:2 i:0x1406 i:9 z:72 glEnd", "glArrayElement i:8"))
        << "it may have been refused";
    EXPECT_TRUE(performs("glDisableClientState i:0x8074", "glArrayElement i:8"));
    EXPECT_FALSE(performs("glClientActiveTexture i:0x84c1 glEnableClientState i:0x8078 "
                          "glClientActiveTexture i:0x84c0 glTexCoordPointer i:2 i:0x1406 i:4 z:32",
                          "glArrayElement i:0"))
        << "another unit";
    clientMemory::use(context(2));
    EXPECT_FALSE(performs(enable, "glArrayElement i:0")) << "another context";

    const std::string image = "glTexImage2D i:0x0de1 i:0 i:3 i:3 i:2 i:0 i:0x1907 i:0x1401 ";
    EXPECT_TRUE(performs("", image + "i:21 i:0 z:21")) << "rows of 9 bytes at multiples of 4";
    EXPECT_FALSE(performs("", image + "i:20 i:0 z:20"));
    EXPECT_TRUE(performs("", image + "i:0 i:1"));
    EXPECT_TRUE(performs("glPixelStorei i:0x0cf5 i:1", image + "i:18 i:0 z:18"));
    EXPECT_FALSE(performs("glPixelStorei i:0x0cf2 i:5", image + "i:18 i:0 z:18"));
    EXPECT_TRUE(performs("glPixelStoref i:0x0cf2 f:0", image + "i:18 i:0 z:18"));
    EXPECT_FALSE(
        performs("glPushClientAttrib i:1 glPixelStorei i:0x0cf4 i:1", image + "i:18 i:0 z:18"));
    EXPECT_TRUE(performs("glPopClientAttrib", image + "i:18 i:0 z:18"));
    EXPECT_FALSE(performs("glBegin i:0 glPixelStorei i:0x0cf3 i:1 glEnd", image + "i:18 i:0 z:18"));
    EXPECT_FALSE(performs("glPixelStorei i:0x0cf3 i:0 glPixelStorei i:0x0cf2 i:0x7fffffff",
                          "glPolygonStipple z:1024"));
    EXPECT_TRUE(performs("glPixelStorei i:0x0cf2 i:0", "glPolygonStipple z:1024"));
    EXPECT_FALSE(
        performs("", "glCompressedTexImage2D i:0x0de1 i:0 i:0x83f0 i:8 i:4 i:0 i:15 i:0 z:15"));
    EXPECT_TRUE(
        performs("", "glCompressedTexImage2D i:0x0de1 i:0 i:0x83f0 i:8 i:4 i:0 i:16 i:0 z:16"));
    EXPECT_FALSE(performs("", "glMap1f i:0x0d97 f:0 f:1 i:3 i:4 i:11 i:0 z:44")) << "four points";
    clientMemory::reset();
}

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

#ifndef __SANITIZE_ADDRESS__ // its shadow memory needs more than any limit leaves
TEST_F(ClientMemory, AnArrayTooLargeForMemoryEndsTheServerByName)
{
    const auto allocateTooMuch = [] {
        scratchOf(Memory::normal) = {.name = scratchOf(Memory::normal).name};
        const rlimit limit{1U << 28, 1U << 28};
        setrlimit(RLIMIT_AS, &limit);
        reserve(Memory::normal, 1 << 30, "glNormalPointer");
    };
    EXPECT_DEATH(allocateTooMuch(), "assertion failed: nBuf, file coding/glNormalPointer_decode, "
                                    "line [0-9]+, function _glNormalPointer");
}
#endif

} // namespace

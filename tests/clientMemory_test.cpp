// Records that bring the application's memory along: arrays, index lists, images, maps, lists.
#include "support/serverState.h"

#include "coding/fromWire.h"

#include <set>
#include <sys/resource.h>

namespace {

using ClientMemory = StartedBy<startWithoutOverloads>;

// A buffer as at start-up, whichever tests ran before.
void forget(ScratchBuffer& buffer)
{
    std::free(buffer.data);
    buffer = {.name = buffer.name};
}

TEST_F(ClientMemory, ArraysAreKeptInABufferOfTheirKind)
{
    const struct {
        std::string wire, call; // the elements as shown in place
        ScratchBuffer& buffer;
        int size;
    } arrays[] = {
        {"#216 i:3 i:0x1406 i:4 f:1 z:44", "glVertexPointer 3 0x1406 0 [0 0 128 63]", vBuf, 48},
        {"#217 i:0x1402 i:10 s:258 z:58", "glNormalPointer 0x1402 0 [2 1 0 0]", nBuf, 60},
        {"#218 i:4 i:0x1401 i:2 01020304 z:4", "glColorPointer 4 0x1401 0 [1 2 3 4]", cBuf, 8},
        {"#219 i:0x140a i:2 07 z:15", "glIndexPointer 0x140a 0 [7 0 0 0]", iBuf, 16},
        {"#220 i:2 i:0x1402 i:1 01020304", "glTexCoordPointer 2 0x1402 0 [1 2 3 4]", tBuf, 4},
        {"#221 i:5 0100010000", "glEdgeFlagPointer 0 [1 0 1 0]", eBuf, 5},
        {"#459 i:0x1406 i:1 05060708", "glFogCoordPointer 0x1406 0 [5 6 7 8]", fBuf, 4},
        {"#482 i:3 i:0x1400 i:2 010203040506", "glSecondaryColorPointer 3 0x1400 0 [1 2 3 4]",
         scBuf, 6},
        {"#521 i:1 i:0x1404 i:1 09080706", "glWeightPointerARB 1 0x1404 0 [9 8 7 6]", wBuf, 4},
        {"#527 i:4 i:0x1401 i:1 04030201", "glMatrixIndexPointerARB 4 0x1401 0 [4 3 2 1]", mIbuf,
         4},
        {"#580 i:7 i:2 i:0x1403 b:1 i:1 0b0c0d0e",
         "glVertexAttribPointerARB 7 2 0x1403 1 0 [11 12 13 14]", vAbuf, 4},
    };
    recorder.shownElements = 4;
    std::set<const char*> addresses;
    for (const auto& array : arrays) {
        EXPECT_EQ(run(array.wire + " #75"), performed(array.call + "\nglEnd\n"));
        EXPECT_GE(array.buffer.size, array.size) << array.call;
        EXPECT_TRUE(addresses.insert(array.buffer.data).second) << "kinds share a buffer";
    }
}

TEST_F(ClientMemory, AnArrayOutlivesItsCommandBufferAndGrowsToTheLargest)
{
    forget(vBuf);
    forget(cBuf);
    run("#216 i:2 i:0x1401 i:4 0102030405060708");
    const char* const kept = vBuf.data;
    EXPECT_EQ(std::string(vBuf.data, 8), "\1\2\3\4\5\6\7\10");
    run("#216 i:2 i:0x1401 i:1 090a");
    EXPECT_EQ(vBuf.data, kept);
    EXPECT_EQ(std::string(vBuf.data, 3), "\11\12\3");
    run("#216 i:3 i:0x1401 i:3 z:9");
    EXPECT_EQ(vBuf.size, 9);
    // An array without elements needs no memory.
    recorder.shownElements = 0;
    EXPECT_EQ(run("#218 i:4 i:0x1406 i:0"), performed("glColorPointer 4 0x1406 0 null\n"));
    EXPECT_EQ(run("#216 i:4 i:0x1406 i:0"), performed("glVertexPointer 4 0x1406 0 ptr\n"));
}

TEST_F(ClientMemory, AnUnknownTypeCountsFourBytesWithOneMessage)
{
    const std::string message = "Attention MOSA: typeSize using default statement: type = 5127  "
                                "We are returning 4 bytes \n";
    EXPECT_EQ(run("#216 i:1 i:0x1407 i:2 z:8"),
              (Outcome{1, "glVertexPointer 1 0x1407 0 ptr\n", message}));
    EXPECT_EQ(run("#225 i:1 i:2 i:0x1407 z:8"),
              (Outcome{1, "glDrawElements 1 2 0x1407 ptr\n", message}));
}

TEST_F(ClientMemory, CountsThatDoNotFitAreNotPerformed)
{
    const char* records[] = {"#216 i:3 i:0x1406 i:-1 z:48",
                             "#216 i:-3 i:0x1406 i:-1 z:48",
                             "#216 i:3 i:0x1406 i:0x40000000 z:48",
                             "#217 i:0x1406 i:-1 z:12",
                             "#221 i:-1 z:4",
                             "#580 i:0 i:4 i:0x1406 b:0 i:2 z:31",
                             "#225 i:1 i:-4 i:0x1401 z:4",
                             "#225 i:1 i:4 i:0x1403 z:7",
                             "#336 i:1 i:0 i:9 i:0x7fffffff i:0x1405 z:8",
                             "#288 z:32 i:-4 i:0",
                             "#288 z:32 i:4 i:0 z:3",
                             "#256 z:24 i:-1 z:9",
                             "#258 z:16 i:8 z:7",
                             "#376 z:20 i:-1 i:0",
                             "#250 i:1 i:-1 i:0 z:4",
                             "#250 i:1 i:2 i:0 z:7",
                             "#252 i:1 i:2 i:0 z:3",
                             "#329 i:2 i:1 i:0 z:7",
                             "#302 z:28 i:2 i:0 z:15",
                             "#72 i:1 i:0x1401 i:-1 i:0 z:4",
                             "#583 i:1 i:2 i:-1",
                             "#583 i:1 i:2 i:5 z:4"};
    for (const char* record : records)
        EXPECT_EQ(run(record), (Outcome{0, "", pastEnd})) << record;
}

// The data of these stand behind a count, a null flag or both, whose places differ.
TEST_F(ClientMemory, ImagesAndMapsGetTheirDataOrNull)
{
    // Distinct scalars before the count: one that is lost or moved shows.
    const auto check = [](int opcode, int scalars, const std::string& block,
                          const std::string& shown) {
        std::string wire = opcodeToken(opcode);
        std::string call = opNames[opcode];
        for (int i = 1; i <= scalars; ++i) {
            wire += " i:" + std::to_string(i);
            call += " " + std::to_string(i);
        }
        EXPECT_EQ(run(wire + " " + block + " #75"), performed(call + " " + shown + "\nglEnd\n"));
    };
    recorder.shownElements = 2;
    const std::pair<int, int> images[] = {{287, 7}, {288, 8}, {337, 9},  {608, 9},
                                          {296, 6}, {297, 8}, {338, 10}, {340, 5},
                                          {713, 5}, {341, 5}, {361, 5},  {362, 6}};
    for (const auto& [opcode, scalars] : images) {
        check(opcode, scalars, "i:3 i:0 0a0b0c", "[10 11]");
        check(opcode, scalars, "i:3 i:9", "null");
    }
    // The count is a parameter.
    for (const auto& [opcode, scalars] :
         {std::pair{376, 5}, {377, 6}, {378, 7}, {379, 5}, {380, 7}, {381, 9}}) {
        check(opcode, scalars, "i:3 i:0 0a0b0c", "3 [10 11]");
        check(opcode, scalars, "i:3 i:9", "3 null");
    }
    for (const auto& [opcode, two] :
         {std::pair{250, "f:5 f:6"}, {251, "i:5 i:6"}, {252, "s:5 s:6"}}) {
        check(opcode, 1, std::string("i:2 i:0 ") + two, "2 [5 6]");
        check(opcode, 1, "i:2 i:1", "2 null");
    }
    // No flag: the count 0 stands for null.
    check(583, 2, "i:3 0a0b0c", "3 [10 11]");
    check(258, 4, "i:3 0a0b0c", "[10 11]");
    check(258, 4, "i:0", "null");
    check(225, 2, "i:0x1403 s:7 s:9", "0x1403 [7 0]");
    check(225, 2, "i:0x1405 i:7 i:9", "0x1405 [7 0]");
    check(336, 3, "i:2 i:0x1401 07 09", "2 0x1401 [7 9]");
    EXPECT_EQ(run("#256 i:8 i:1 f:1 f:2 f:3 f:4 i:2 a0ff #75"),
              performed("glBitmap 8 1 1 2 3 4 [160 255]\nglEnd\n"));
    EXPECT_EQ(run("#256 i:8 i:1 f:0 f:0 f:3 f:0 i:0"), performed("glBitmap 8 1 0 0 3 0 null\n"));
    EXPECT_EQ(run("#256 i:9 i:2 f:0 f:0 f:3 f:0 i:3 z:3 #75"),
              (Outcome{1, "glBitmap 9 2 0 0 3 0 null\nglEnd\n",
                       "Attention MOSA: glBitmap: 9 x 2 pixels need 4 bytes, 3 arrived\n"}));
    // Each of two filters has its own flag.
    check(372, 6, "i:2 i:3 i:0 i:0 0a0b 0c0d0e", "[10 11] [12 13]");
    check(372, 6, "i:2 i:3 i:1 i:0 0c0d0e", "null [12 13]");
    check(372, 6, "i:2 i:3 i:0 i:1 0a0b", "[10 11] null");
    check(372, 6, "i:2 i:3 i:1 i:1", "null null");
}

TEST_F(ClientMemory, ListsAndControlPointsAreKeptForCallsThatBringNone)
{
    const struct {
        std::string scalars, data, call;
        ScratchBuffer& buffer;
    } kinds[] = {
        {"#72 i:2 i:0x1401", "07 09", "glCallLists 2 0x1401", listsBuf},
        {"#302 i:1 d:2 d:3 i:4 i:5", "d:7 d:9", "glMap1d 1 2 3 4 5", map1dBuf},
        {"#303 i:1 f:2 f:3 i:4 i:5", "f:7 f:9", "glMap1f 1 2 3 4 5", map1fBuf},
        {"#304 i:1 d:2 d:3 i:4 i:5 d:6 d:7 i:8 i:9", "d:7 d:9", "glMap2d 1 2 3 4 5 6 7 8 9",
         map2dBuf},
        {"#305 i:1 f:2 f:3 i:4 i:5 f:6 f:7 i:8 i:9", "f:7 f:9", "glMap2f 1 2 3 4 5 6 7 8 9",
         map2fBuf},
    };
    recorder.shownElements = 2;
    for (const auto& [scalars, data, call, buffer] : kinds) {
        forget(buffer);
        const auto with = [&call](const char* shown) {
            return performed(call + " " + shown + "\nglEnd\n");
        };
        EXPECT_EQ(run(scalars + " i:2 i:1 #75"), with("null")) << "none has arrived";
        EXPECT_EQ(run(scalars + " i:2 i:0 " + data + " #75"), with("[7 9]"));
        // The record that brought them is gone from memory.
        EXPECT_EQ(run(scalars + " i:2 i:1 #75"), with("[7 9]"));
    }
}

TEST_F(ClientMemory, FeedbackSpaceOutlivesItsCommandBuffer)
{
    static float* space;
    glOpTable[indexOf(Op::glFeedbackBuffer)] =
        reinterpret_cast<glOp>(+[](GLsizei, GLenum, GLfloat* buffer) { space = buffer; });
    EXPECT_EQ(run("#329 i:2 i:0x600 i:0 z:8 #75"), performed("glEnd\n"));
    space[0] = space[1] = 1.0F; // as the library does at a later glRenderMode
    EXPECT_EQ(run("#329 i:2 i:0x600 i:1 #75"), performed("glEnd\n"));
    EXPECT_EQ(space, nullptr);
}

#ifndef __SANITIZE_ADDRESS__ // its shadow memory needs more than any limit leaves
TEST_F(ClientMemory, AnArrayTooLargeForMemoryEndsTheServerByName)
{
    const auto allocateTooMuch = [] {
        const rlimit limit{1U << 28, 1U << 28};
        setrlimit(RLIMIT_AS, &limit);
        reserve(nBuf, 1 << 30, "glNormalPointer");
    };
    EXPECT_DEATH(allocateTooMuch(), "assertion failed: nBuf, file coding/glNormalPointer_decode, "
                                    "line [0-9]+, function _glNormalPointer");
}
#endif

} // namespace

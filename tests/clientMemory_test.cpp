// Records that bring the application's memory along: arrays, index lists, images, maps, lists.
#include "support/serverState.h"

#include "coding/fromWire.h"

#include <algorithm>
#include <sys/resource.h>

namespace {

constexpr ScratchBuffer* scratchBuffers[] = {
    &vBuf, &nBuf,  &cBuf,  &iBuf,     &tBuf,     &eBuf,     &fBuf,     &scBuf,
    &wBuf, &mIbuf, &vAbuf, &listsBuf, &map1dBuf, &map1fBuf, &map2dBuf, &map2fBuf};

class ClientMemory : public testing::Test {
protected:
    void SetUp() override
    {
        startWithoutOverloads();
        for (ScratchBuffer* scratch : scratchBuffers) {
            std::free(scratch->data);
            *scratch = {.name = scratch->name};
        }
    }
};

TEST_F(ClientMemory, ArraysAreKeptInABufferOfTheirKind)
{
    struct Array {
        const char* wire;
        const char* call; // the elements as shown in place
        ScratchBuffer& buffer;
        int size;
    };
    const Array arrays[] = {
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
    for (const Array& array : arrays) {
        EXPECT_EQ(run(std::string(array.wire) + " #75"),
                  performed(std::string(array.call) + "\nglEnd\n"));
        EXPECT_EQ(array.buffer.size, array.size) << array.call;
    }
    std::vector<const char*> addresses;
    for (const Array& array : arrays)
        addresses.push_back(array.buffer.data);
    std::ranges::sort(addresses);
    EXPECT_EQ(std::ranges::adjacent_find(addresses), addresses.end()) << "kinds share a buffer";
}

TEST_F(ClientMemory, AnArrayOutlivesItsCommandBufferAndGrowsToTheLargest)
{
    run("#216 i:2 i:0x1401 i:4 0102030405060708");
    const char* const kept = vBuf.data;
    EXPECT_EQ(std::string(vBuf.data, 8), "\1\2\3\4\5\6\7\10");
    run("#216 i:2 i:0x1401 i:1 090a");
    EXPECT_EQ(vBuf.data, kept);
    EXPECT_EQ(vBuf.size, 8);
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
    for (const char* record : {"#216 i:3 i:0x1406 i:-1 z:48",
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
                               "#583 i:1 i:2 i:5 z:4"})
        EXPECT_EQ(run(record), (Outcome{0, "", pastEnd})) << record;
    EXPECT_EQ(vBuf.data, nullptr);
}

// The data of these stand behind a count, a null flag or both, whose places differ.
TEST_F(ClientMemory, ImagesAndMapsGetTheirDataOrNull)
{
    struct Image {
        int opcode;
        int scalars;         // of 4 bytes each, before the count
        const char* counted; // count, flag 0, data
        const char* absent;  // count, flag 1; null when the operation has no flag
        const char* arrays;  // as shown
    };
    constexpr char bytes3[] = "i:3 i:0 0a0b0c";
    constexpr char flagged3[] = "i:3 i:9";
    const Image images[] = {
        {287, 7, bytes3, flagged3, "[10 11]"},
        {288, 8, bytes3, flagged3, "[10 11]"},
        {337, 9, bytes3, flagged3, "[10 11]"},
        {608, 9, bytes3, flagged3, "[10 11]"},
        {296, 6, bytes3, flagged3, "[10 11]"},
        {297, 8, bytes3, flagged3, "[10 11]"},
        {338, 10, bytes3, flagged3, "[10 11]"},
        {340, 5, bytes3, flagged3, "[10 11]"},
        {713, 5, bytes3, flagged3, "[10 11]"},
        {341, 5, bytes3, flagged3, "[10 11]"},
        {361, 5, bytes3, flagged3, "[10 11]"},
        {362, 6, bytes3, flagged3, "[10 11]"},
        // The last scalar is the count.
        {376, 5, bytes3, flagged3, "[10 11]"},
        {377, 6, bytes3, flagged3, "[10 11]"},
        {378, 7, bytes3, flagged3, "[10 11]"},
        {379, 5, bytes3, flagged3, "[10 11]"},
        {380, 7, bytes3, flagged3, "[10 11]"},
        {381, 9, bytes3, flagged3, "[10 11]"},
        {250, 1, "i:2 i:0 f:1 f:2", "i:2 i:1", "[1 2]"},
        {251, 1, "i:2 i:0 i:5 i:6", "i:2 i:1", "[5 6]"},
        {252, 1, "i:2 i:0 s:5 s:6", "i:2 i:1", "[5 6]"},
        // No flag: the count 0 stands for null.
        {258, 4, "i:3 0a0b0c", nullptr, "[10 11]"},
        {583, 2, "i:3 0a0b0c", nullptr, "[10 11]"},
    };
    recorder.shownElements = 2;
    for (const Image& image : images) {
        // Distinct scalars: one that is lost or moved shows.
        std::string head = opcodeToken(image.opcode);
        std::string call = opNames[image.opcode];
        for (int i = 1; i <= image.scalars; ++i) {
            head += " i:" + std::to_string(i);
            call += " " + std::to_string(i);
        }
        const bool countIsScalar = (image.opcode >= 376 && image.opcode <= 381) ||
                                   image.opcode < 256 || image.opcode == 583;
        if (countIsScalar)
            call += std::string(" ") + image.counted[2];
        EXPECT_EQ(run(head + " " + image.counted + " #75"),
                  performed(call + " " + image.arrays + "\nglEnd\n"));
        if (image.absent) {
            EXPECT_EQ(run(head + " " + image.absent + " #75"), performed(call + " null\nglEnd\n"));
        }
    }
    EXPECT_EQ(run("#258 i:1 i:2 i:3 i:4 i:0 #75"), performed("glDrawPixels 1 2 3 4 null\nglEnd\n"));
    EXPECT_EQ(run("#256 i:8 i:1 f:1 f:2 f:3 f:4 i:2 a0ff #75"),
              performed("glBitmap 8 1 1 2 3 4 [160 255]\nglEnd\n"));
    EXPECT_EQ(run("#256 i:8 i:1 f:0 f:0 f:3 f:0 i:0"), performed("glBitmap 8 1 0 0 3 0 null\n"));
    EXPECT_EQ(run("#256 i:9 i:2 f:0 f:0 f:3 f:0 i:3 z:3 #75"),
              (Outcome{1, "glBitmap 9 2 0 0 3 0 null\nglEnd\n",
                       "Attention MOSA: glBitmap: 9 x 2 pixels need 4 bytes, 3 arrived\n"}));
    EXPECT_EQ(run("#225 i:4 i:2 i:0x1403 s:7 s:9 #75"),
              performed("glDrawElements 4 2 0x1403 [7 0]\nglEnd\n"));
    EXPECT_EQ(run("#336 i:4 i:0 i:9 i:2 i:0x1401 07 09 #75"),
              performed("glDrawRangeElements 4 0 9 2 0x1401 [7 9]\nglEnd\n"));
}

TEST_F(ClientMemory, EachFilterOfASeparableFilterHasItsOwnNullFlag)
{
    recorder.shownElements = 1;
    const auto filter = [](const char* rest) {
        return run(std::string("#372 i:1 i:2 i:3 i:4 i:5 i:6 ") + rest + " #75");
    };
    const auto with = [](const char* arrays) {
        return performed(std::string("glSeparableFilter2D 1 2 3 4 5 6 ") + arrays + "\nglEnd\n");
    };
    EXPECT_EQ(filter("i:2 i:3 i:0 i:0 0a0b 0c0d0e"), with("[10] [12]"));
    EXPECT_EQ(filter("i:2 i:3 i:1 i:0 0c0d0e"), with("null [12]"));
    EXPECT_EQ(filter("i:2 i:3 i:0 i:1 0a0b"), with("[10] null"));
    EXPECT_EQ(filter("i:2 i:3 i:1 i:1"), with("null null"));
}

TEST_F(ClientMemory, ListsAndControlPointsAreKeptForCallsThatBringNone)
{
    struct Kept {
        const char* scalars;
        const char* data;
        const char* call;
        int count;
    };
    const Kept kinds[] = {
        {"#72 i:2 i:0x1401", "07 09", "glCallLists 2 0x1401", 2},
        {"#302 i:1 d:2 d:3 i:4 i:5", "d:7 d:9", "glMap1d 1 2 3 4 5", 2},
        {"#303 i:1 f:2 f:3 i:4 i:5", "f:7 f:9", "glMap1f 1 2 3 4 5", 2},
        {"#304 i:1 d:2 d:3 i:4 i:5 d:6 d:7 i:8 i:9", "d:7 d:9", "glMap2d 1 2 3 4 5 6 7 8 9", 2},
        {"#305 i:1 f:2 f:3 i:4 i:5 f:6 f:7 i:8 i:9", "f:7 f:9", "glMap2f 1 2 3 4 5 6 7 8 9", 2},
    };
    recorder.shownElements = 2;
    for (const Kept& kind : kinds) {
        const std::string scalars = kind.scalars;
        const auto with = [&kind](const char* data) {
            return performed(std::string(kind.call) + " " + data + "\nglEnd\n");
        };
        EXPECT_EQ(run(scalars + " i:2 i:1 #75"), with("null")) << "none has arrived";
        EXPECT_EQ(run(scalars + " i:2 i:0 " + kind.data + " #75"), with("[7 9]"));
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

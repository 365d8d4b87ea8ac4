// The walk through a buffer.
#include "support/serverState.h"

#include "coding/decoder.h"

namespace {

using Walk = StartedBy<startWithoutOverloads>;

TEST_F(Walk, EndsWhereTheBufferEnds)
{
    EXPECT_EQ(run(""), performed(""));
    EXPECT_EQ(run("4b00 4b00"), performed("glEnd\nglEnd\n"));
    testing::internal::CaptureStderr();
    printRecentOperations();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "between buffers";
}

TEST_F(Walk, KeepsCountAndTheLatestOperations)
{
    const int before = bucketID;
    walk("");
    walk("glEnd");
    walk("glEnd glVertex3f z:8");
    walk("#1238");
    EXPECT_EQ(bucketID, before + 2) << "buffers walked to their end";
    std::string many = "glBegin i:4";
    for (int i = 0; i < 249; ++i)
        many += " glEnd";
    walk(many + " glFlush");
    EXPECT_EQ(knt, 250);
    EXPECT_EQ(lastOps[50], indexOf(Op::glFlush));
    EXPECT_EQ(lastOps[49], indexOf(Op::glEnd));
}

TEST_F(Walk, StopsBeforeARecordThatDoesNotFit)
{
    // Every operation's own length is tested elsewhere; these are lengths that the record tells.
    const char* broken[] = {
        "4b",                                           // half an opcode
        "glXChooseVisual z:12 i:2 i:4",                 // attributes
        "glXChooseVisual z:12 i:-1",                    //
        "glXChooseVisual z:12 i:0x40000001 z:4",        // as bytes the count would be 4
        "glXUseXFont i:9 'abcdefgh",                    // font name
        "glXUseXFont i:-20 z:16",                       //
        "glXUseXFont i:3 z:14",                         // behind the name
        "glSeparableFilter2D z:24 i:8 i:8 i:0 i:1 z:7", // filters
        "glSeparableFilter2D z:24 i:-8 i:8 i:0 i:0 z:8",
        "glSeparableFilter2D z:24 i:0x7fffffff i:0x7fffffff i:0 i:0 z:8",
        "glVertexPointer i:3 i:0x1406 i:-1 z:48",
        "glVertexPointer i:-3 i:0x1406 i:-1 z:48",
        "glVertexPointer i:3 i:0x1406 i:0x40000000 z:48",
        "glNormalPointer i:0x1406 i:-1 z:12",
        "glEdgeFlagPointer i:-1 z:4",
        "glVertexAttribPointerARB i:0 i:4 i:0x1406 b:0 i:2 z:31",
        "glDrawElements i:1 i:-4 i:0x1401 z:4",
        "glDrawElements i:1 i:4 i:0x1403 z:7",
        "glDrawRangeElements i:1 i:0 i:9 i:0x7fffffff i:0x1405 z:8",
        "glTexImage2D z:32 i:-4 i:0",
        "glTexImage2D z:32 i:4 i:0 z:3",
        "glBitmap z:24 i:-1 z:9",
        "glDrawPixels z:16 i:8 z:7",
        "glCompressedTexImage1D z:20 i:-1 i:0",
        "glPixelMapfv i:1 i:-1 i:0 z:4",
        "glPixelMapfv i:1 i:2 i:0 z:7",
        "glPixelMapusv i:1 i:2 i:0 z:3",
        "glFeedbackBuffer i:2 i:1 i:0 z:7",
        "glMap1d z:28 i:2 i:0 z:15",
        "glCallLists i:1 i:0x1401 i:-1 i:0 z:4",
        "glProgramStringARB i:1 i:2 i:-1",
        "glProgramStringARB i:1 i:2 i:5 z:4"};
    for (const char* record : broken) {
        EXPECT_EQ(run(std::string("glEnd ") + record), (Outcome{0, "glEnd\n", pastEnd})) << record;
        EXPECT_EQ(run("glEnd"), performed("glEnd\n")) << "the next buffer";
    }
}

TEST_F(Walk, AbandonsABufferAtABadOpcodeOnly)
{
    EXPECT_EQ(run("glEnd d604 glEnd"), (Outcome{0, "glEnd\n", "BAD OPCODE (1238)!!\n"}));
    EXPECT_EQ(run("ffff"), (Outcome{0, "", "BAD OPCODE (65535)!!\n"}));
    const std::pair<const char*, const char*> skipped[] = {
        {"2000", "Attention MOSA: local op glGetIntegerv should not be found on wire\n"},
        {"glXQueryVersion glXJoinSwapGroupNV", ""},
        {"glXGetProcAddress", "SHOULD NEVER GET HERE!!! coding/glXGetProcAddress_decode:27\n"}};
    for (const auto& [record, message] : skipped)
        EXPECT_EQ(run(std::string(record) + " glEnd"), (Outcome{1, "glEnd\n", message}));
}

TEST_F(Walk, TracesNamesWhileSwitchedOn)
{
    xx = 1;
    EXPECT_EQ(run("glBegin i:4 glVertex3f z:12 glEnd #1238").messages,
              "glBegin\nglVertex3f\nglEnd\nBAD OPCODE (1238)!!\nBAD OPCODE!!\n");
}

} // namespace

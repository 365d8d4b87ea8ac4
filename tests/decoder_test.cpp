// The walk through a buffer.
#include "support/serverState.h"

#include "coding/decoder.h"
#include "coding/invariant.h"

extern unsigned char *bs, *be;
extern int knt, lastOps[100];

namespace {

using Walk = StartedBy<startWithoutOverloads>;

constexpr char bigVertex[] = "#81 f:1 f:2 f:3 ";

TEST_F(Walk, EndsWhereTheBufferEnds)
{
    EXPECT_EQ(run(""), performed(""));
    EXPECT_EQ(knt, -1);
    EXPECT_EQ(run("4b00 4b00"), performed("glEnd\nglEnd\n"));
    EXPECT_EQ(knt, 1);
    EXPECT_EQ(be - bs, 4);
}

TEST_F(Walk, StopsBeforeARecordThatDoesNotFit)
{
    // Every operation's own length is tested elsewhere; these are lengths that the record tells.
    const char* broken[] = {
        "4b",                            // half an opcode
        "#1153 z:12 i:2 i:4",            // attributes
        "#1153 z:12 i:-1",               //
        "#1153 z:12 i:0x40000001 z:4",   // as bytes the count would be 4
        "#1167 i:9 'abcdefgh",           // font name
        "#1167 i:-20 z:16",              //
        "#1167 i:3 z:14",                // behind the name
        "#372 z:24 i:8 i:8 i:0 i:1 z:7", // filters
        "#372 z:24 i:-8 i:8 i:0 i:0 z:8",
        "#372 z:24 i:0x7fffffff i:0x7fffffff i:0 i:0 z:8",
    };
    for (const char* record : broken) {
        EXPECT_EQ(run(std::string("#75 ") + record), (Outcome{0, "glEnd\n", pastEnd})) << record;
        EXPECT_EQ(run("#75"), performed("glEnd\n")) << "the next buffer";
    }
}

TEST_F(Walk, AbandonsABufferAtABadOpcode)
{
    EXPECT_EQ(run("#75 d604 #75"), (Outcome{0, "glEnd\n", "BAD OPCODE (1238)!!\n"}));
    EXPECT_EQ(run("ffff"), (Outcome{0, "", "BAD OPCODE (65535)!!\n"}));
}

TEST_F(Walk, GoesOnBehindWhatItRefusesOrIgnores)
{
    EXPECT_EQ(run("2000 4b00"),
              (Outcome{1, "glEnd\n",
                       "Attention MOSA: local op glGetIntegerv should not be found on wire\n"}));
    EXPECT_EQ(run("#1165 #75 #1231 #75"), performed("glEnd\nglEnd\n"));
    EXPECT_EQ(
        run("#1191 #75"),
        (Outcome{1, "glEnd\n", "SHOULD NEVER GET HERE!!! coding/glXGetProcAddress_decode:27\n"}));
}

TEST_F(Walk, TracesNamesWhileSwitchedOn)
{
    xx = 1;
    EXPECT_EQ(run(std::string("#74 i:4 ") + bigVertex + "#75 #1238").messages,
              "glBegin\nglVertex3f\nglEnd\nBAD OPCODE (1238)!!\nBAD OPCODE!!\n");
}

TEST_F(Walk, KeepsTheLatestHundredOpcodes)
{
    std::string many;
    for (int i = 0; i < 249; ++i)
        many += "#40 ";
    EXPECT_EQ(run(many + "#41").result, 1);
    EXPECT_EQ(knt, 249);
    EXPECT_EQ(lastOps[49], 41);
    EXPECT_EQ(lastOps[48], 40);
    EXPECT_EQ(run("#75").result, 1);
    EXPECT_EQ(lastOps[0], 75);
    EXPECT_EQ(lastOps[49], 41) << "a short buffer leaves the older entries";
}

// What an operator sees of a stream that ends the server.
TEST_F(Walk, AFatalEndTellsWhereInTheBufferItHappened)
{
    glOpTable[indexOf(Op::glFlush)] = [] { require(false, "false"); };
    EXPECT_DEATH(walk(std::string("#75 ") + bigVertex + "#41"),
                 "assertion failed: false, file tests/decoder_test.cpp, line [0-9]+, function "
                 ".*\nMOSA: in operation 2 of the buffer, at byte 16 of 18; the latest: glEnd "
                 "glVertex3f glFlush\n");
    testing::internal::CaptureStderr();
    printRecentOperations();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "between buffers";
}

} // namespace

// How arguments travel: widths, signs, handles, arrays, and records without a known length.
#include "support/serverState.h"

namespace {

using Arguments = StartedBy<startWithoutOverloads>;

TEST_F(Arguments, ScalarsAreReadInTheWidthAndSignOfTheirTypes)
{
    const std::pair<const char*, const char*> cases[] = {
        {"51 00 0000803f 00000040 00004040", "glVertex3f 1 2 3\n"},
        {"78 00 80 7f 00", "glColor3b -128 127 0\n"},
        {"7d 00 80 7f 00", "glColor3ub 128 127 0\n"},
        {"#124 ff 7f 00 80 ff ff", "glColor3s 32767 -32768 -1\n"},
        {"#127 ff 7f 00 80 01 00", "glColor3us 0x7fff 0x8000 1\n"},
        {"0c00 03000000 ffff", "glLineStipple 3 0xffff\n"},
        {"#4 00 01 ff 01", "glColorMask 0 1 255 1\n"},
        {"#1 0000003f 0000803f 00000000 000080be", "glClearColor 0.5 1 0 -0.25\n"},
        {"3200 000000000000f0bf 000000000000f03f 0000000000000040 0000000000000840"
         " 0000000000001040 0000000000001440",
         "glOrtho -1 1 2 3 4 5\n"},
        {"#82 ffffffff 00000080 01000000", "glVertex3i -1 -2147483648 1\n"},
        {"#211 s:-1 s:2 s:-3 s:4", "glRects -1 2 -3 4\n"},
        {"#26 c10b0000", "glIsEnabled 0xbc1\n"}, // performed, the result dropped
        // Handles are 32 bits of the application, never sign-extended, whatever their width here.
        {"#1166 f0ffff9f 020040ff", "glXSwapBuffers 0x9ffffff0 0xff400002\n"},
        {"#1154 01020304 ffffffff 00000080 ffffffff",
         "glXCopyContext 0x4030201 0xffffffff 0x80000000 0xffffffff\n"},
        {"#1200 ffffffff", "glXGetContextIDEXT 0xffffffff\n"},
        {"#1189 01020304 05060708 00000008", "glXSelectEvent 0x4030201 0x8070605 0x8000000\n"},
        {"#1237 fdffffff", "MWRaiseWindow 0xfffffffd\n"},
        {"#331", "glSelectBuffer 0 null\n"},
    };
    for (const auto& [wire, call] : cases)
        EXPECT_EQ(run(wire), performed(call)) << wire;
}

TEST_F(Arguments, ArraysOfFixedLengthArePassedInPlace)
{
    recorder.shownElements = 3;
    EXPECT_EQ(run("5d00 0000803f 00000040 00004040 #75"),
              performed("glVertex3fv [1 2 3]\nglEnd\n"));
    recorder.shownElements = 2;
    EXPECT_EQ(run("#213 f:1 f:2 f:3 f:4"), performed("glRectfv [1 2] [3 4]\n"));
}

TEST_F(Arguments, CountedArraysFollowOneAnother)
{
    recorder.shownElements = 1;
    EXPECT_EQ(run("#290 i:2 i:300 i:301 #75"), performed("glGenTextures 2 [0x12c]\nglEnd\n"));
    EXPECT_EQ(run("#293 i:2 i:7 i:8 f:0.5 f:1 #75"),
              performed("glPrioritizeTextures 2 [7] [0.5]\nglEnd\n"));
    EXPECT_EQ(run("#294 i:3 i:5 i:6 i:7 b:9 b:8 b:7 #75"),
              performed("glAreTexturesResident 3 [5] [9]\nglEnd\n"));
    recorder.shownElements = 0;
    EXPECT_EQ(run("2301 00000000 #291 i:0 4b00"),
              performed("glDeleteTextures 0 ptr\nglDeleteTextures 0 ptr\nglEnd\n"));

    const std::pair<int, int> elements[] = {{290, 4}, {291, 4}, {513, 1}, {514, 2}, {515, 4},
                                            {516, 4}, {517, 8}, {518, 1}, {519, 2}, {520, 4},
                                            {585, 4}, {586, 4}, {293, 8}, {294, 5}};
    for (const auto& [opcode, size] : elements) {
        const std::string head = opcodeToken(opcode) + " i:3 z:";
        const Outcome whole = run(head + std::to_string(3 * size) + " #75");
        EXPECT_TRUE(whole.calls.ends_with("\nglEnd\n")) << whole;
        const Outcome refused{0, "", pastEnd};
        EXPECT_EQ(run(head + std::to_string(3 * size - 1)), refused) << opNames[opcode];
        for (const char* count : {"-1", "0x7fffffff", "-2147483648"})
            EXPECT_EQ(run(opcodeToken(opcode) + " i:" + count + " z:40"), refused);
    }
}

TEST_F(Arguments, VectorsWithoutALengthAreAsLongAsTheirNameOrCountSays)
{
    struct Vector {
        int opcode;
        const char* first;
        int bytes;
    };
    std::vector<Vector> vectors = {
        {512, "i:0x8126", 4},  {512, "i:0x8129", 12},                   // glPointParameterfvARB
        {524, "i:3", 3},       {525, "i:3", 6},       {526, "i:3", 12}, // glMatrixIndex...
        {568, "i:1", 8},                                                // glVertexAttrib4Nusv
        {727, "i:0x81ab", 32}, {728, "i:0x81ab", 16},                   // glCullParameter...
    };
    for (int n = 1; n <= 4; ++n) { // glMultiTexCoord: doubles, floats, integers, shorts
        const int first = 423 + 8 * (n - 1);
        for (const auto& [opcode, size] : {std::pair{first, 8}, std::pair{first + 2, 4},
                                           std::pair{first + 4, 4}, std::pair{first + 6, 2}})
            vectors.push_back({opcode, "i:0x84c1", n * size});
    }
    for (const auto& [opcode, first, size] : vectors) {
        const std::string name = opNames[opcode];
        const std::string record = opcodeToken(opcode) + " " + first + " z:" + std::to_string(size);
        const std::string message = "Attention MOSA: " + name + ": unknown param value\n";
        const Outcome outcome = run(record + " #75 " + record);
        EXPECT_EQ(outcome.messages, message + message) << name;
        EXPECT_TRUE(outcome.calls.starts_with(name + " ") && outcome.calls.ends_with(" ptr\n"))
            << outcome;
    }
    EXPECT_EQ(run("#524 i:-1 z:8"), (Outcome{0, "", pastEnd}));

    // Nothing says how long a variant's vector is: what follows is lost.
    for (int opcode = 1057; opcode <= 1064; ++opcode)
        EXPECT_EQ(run("#75 #" + std::to_string(opcode) + " i:1 z:64 #75"),
                  (Outcome{0, "glEnd\n",
                           std::string("Attention MOSA: ") + opNames[opcode] +
                               ": unknown param value\n"}));
}

} // namespace

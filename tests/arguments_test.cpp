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
        {"glColor3s ff 7f 00 80 ff ff", "glColor3s 32767 -32768 -1\n"},
        {"glColor3us ff 7f 00 80 01 00", "glColor3us 0x7fff 0x8000 1\n"},
        {"0c00 03000000 ffff", "glLineStipple 3 0xffff\n"},
        {"glColorMask 00 01 ff 01", "glColorMask 0 1 255 1\n"},
        {"glClearColor 0000003f 0000803f 00000000 000080be", "glClearColor 0.5 1 0 -0.25\n"},
        {"3200 000000000000f0bf 000000000000f03f 0000000000000040 0000000000000840"
         " 0000000000001040 0000000000001440",
         "glOrtho -1 1 2 3 4 5\n"},
        {"glVertex3i ffffffff 00000080 01000000", "glVertex3i -1 -2147483648 1\n"},
        {"glRects s:-1 s:2 s:-3 s:4", "glRects -1 2 -3 4\n"},
        {"glIsEnabled c10b0000", "glIsEnabled 0xbc1\n"}, // performed, the result dropped
        // Handles are 32 bits of the application, never sign-extended, whatever their width here.
        {"glXSwapBuffers f0ffff9f 020040ff", "glXSwapBuffers 0x9ffffff0 0xff400002\n"},
        {"glXCopyContext 01020304 ffffffff 00000080 ffffffff",
         "glXCopyContext 0x4030201 0xffffffff 0x80000000 0xffffffff\n"},
        {"glXGetContextIDEXT ffffffff", "glXGetContextIDEXT 0xffffffff\n"},
        {"glXSelectEvent 01020304 05060708 00000008",
         "glXSelectEvent 0x4030201 0x8070605 0x8000000\n"},
        {"MWRaiseWindow fdffffff", "MWRaiseWindow 0xfffffffd\n"},
        {"glSelectBuffer", "glSelectBuffer 0 null\n"},
    };
    for (const auto& [wire, call] : cases)
        EXPECT_EQ(run(wire), performed(call)) << wire;
}

TEST_F(Arguments, ArraysArePassedInPlaceOneBehindTheOther)
{
    recorder.shownElements = 3;
    EXPECT_EQ(run("5d00 0000803f 00000040 00004040 glEnd"),
              performed("glVertex3fv [1 2 3]\nglEnd\n"));
    recorder.shownElements = 2;
    EXPECT_EQ(run("glRectfv f:1 f:2 f:3 f:4"), performed("glRectfv [1 2] [3 4]\n"));
    recorder.shownElements = 1;
    EXPECT_EQ(run("glGenTextures i:2 i:300 i:301 glEnd"),
              performed("glGenTextures 2 [0x12c]\nglEnd\n"));
    EXPECT_EQ(run("glPrioritizeTextures i:2 i:7 i:8 f:0.5 f:1 glEnd"),
              performed("glPrioritizeTextures 2 [7] [0.5]\nglEnd\n"));
    EXPECT_EQ(run("glAreTexturesResident i:3 i:5 i:6 i:7 b:9 b:8 b:7 glEnd"),
              performed("glAreTexturesResident 3 [5] [9]\nglEnd\n"));
    recorder.shownElements = 0;
    EXPECT_EQ(run("2301 00000000 glDeleteTextures i:0 4b00"),
              performed("glDeleteTextures 0 ptr\nglDeleteTextures 0 ptr\nglEnd\n"));

    const std::pair<Op, int> elements[] = {
        {Op::glGenTextures, 4},        {Op::glDeleteTextures, 4},     {Op::glWeightbvARB, 1},
        {Op::glWeightsvARB, 2},        {Op::glWeightivARB, 4},        {Op::glWeightfvARB, 4},
        {Op::glWeightdvARB, 8},        {Op::glWeightubvARB, 1},       {Op::glWeightusvARB, 2},
        {Op::glWeightuivARB, 4},       {Op::glDeleteProgramsARB, 4},  {Op::glGenProgramsARB, 4},
        {Op::glPrioritizeTextures, 8}, {Op::glAreTexturesResident, 5}};
    for (const auto& [op, size] : elements) {
        const std::string name = opNames[indexOf(op)];
        const std::string head = name + " i:3 z:";
        const Outcome whole = run(head + std::to_string(3 * size) + " glEnd");
        EXPECT_TRUE(whole.calls.ends_with("\nglEnd\n")) << whole;
        const Outcome refused{0, "", pastEnd};
        EXPECT_EQ(run(head + std::to_string(3 * size - 1)), refused) << name;
        for (const char* count : {"-1", "0x7fffffff", "-2147483648"})
            EXPECT_EQ(run(name + " i:" + count + " z:40"), refused);
    }
}

TEST_F(Arguments, VectorsWithoutALengthAreAsLongAsTheirNameOrCountSays)
{
    struct Vector {
        Op op;
        const char* first;
        int bytes;
    };
    std::vector<Vector> vectors = {
        {Op::glPointParameterfvARB, "i:0x8126", 4}, {Op::glPointParameterfvARB, "i:0x8129", 12},
        {Op::glMatrixIndexubvARB, "i:3", 3},        {Op::glMatrixIndexusvARB, "i:3", 6},
        {Op::glMatrixIndexuivARB, "i:3", 12},       {Op::glVertexAttrib4NusvARB, "i:1", 8},
        {Op::glCullParameterdvEXT, "i:0x81ab", 32}, {Op::glCullParameterfvEXT, "i:0x81ab", 16},
    };
    for (int n = 1; n <= 4; ++n) { // doubles, floats, integers, shorts
        const int first = indexOf(Op::glMultiTexCoord1dvARB) + 8 * (n - 1);
        for (const auto& [opcode, size] : {std::pair{first, 8}, std::pair{first + 2, 4},
                                           std::pair{first + 4, 4}, std::pair{first + 6, 2}})
            vectors.push_back({Op(opcode), "i:0x84c1", n * size});
    }
    for (const auto& [op, first, size] : vectors) {
        const std::string name = opNames[indexOf(op)];
        const std::string record = name + " " + first + " z:" + std::to_string(size);
        const std::string message = "Attention MOSA: " + name + ": unknown param value\n";
        const Outcome outcome = run(record + " glEnd " + record);
        EXPECT_EQ(outcome.messages, message + message) << name;
        EXPECT_TRUE(outcome.calls.starts_with(name + " ") && outcome.calls.ends_with(" ptr\n"))
            << outcome;
    }
    EXPECT_EQ(run("glMatrixIndexubvARB i:-1 z:8"), (Outcome{0, "", pastEnd}));

    // Nothing says how long a variant's vector is: it is performed with what follows, filled up
    // with zeros to the four elements that it has at most, and the rest of the buffer is lost.
    recorder.shownElements = 4;
    const auto unknown = [](const std::string& name) {
        return "Attention MOSA: " + name + ": unknown param value\n";
    };
    EXPECT_EQ(run("glEnd glVariantubvEXT i:9 010203040506 glEnd"),
              (Outcome{0, "glEnd\nglVariantubvEXT 9 [1 2 3 4]\n", unknown("glVariantubvEXT")}));
    EXPECT_EQ(run("glVariantdvEXT i:9 d:1.5 d:2 00"),
              (Outcome{0, "glVariantdvEXT 9 [1.5 2 0 0]\n", unknown("glVariantdvEXT")}));
    EXPECT_EQ(run("glVariantsvEXT i:9"),
              (Outcome{0, "glVariantsvEXT 9 [0 0 0 0]\n", unknown("glVariantsvEXT")}));
    EXPECT_EQ(run("glVariantsvEXT s:9"), (Outcome{0, "", pastEnd}));
}

} // namespace

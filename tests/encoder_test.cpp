// The client's records against bytes worked out by hand, of those layouts that no captured
// program writes.
#include "support/serverState.h"

#include "client/encoder.h"

namespace {

template <Op op, class... A>
Bytes record(A... a)
{
    CommandBuffer out;
    encode<op>(out, a...);
    return out;
}

TEST(Encoder, WritesTheBytesOfALayout)
{
    const float floats[] = {1, 2, 3, 4};
    const GLubyte octets[] = {10, 11, 12};
    EXPECT_EQ(record<Op::glLineStipple>(3, 0xffff), bytes("0c00 i:3 ffff"));
    EXPECT_EQ(record<Op::glRectfv>(floats, floats + 2), bytes("glRectfv f:1 f:2 f:3 f:4"));
    EXPECT_EQ(record<Op::glTexImage1D>(1, 2, 3, 4, 5, 6, 7, Block{nullptr, 0}),
              bytes("glTexImage1D i:1 i:2 i:3 i:4 i:5 i:6 i:7 i:0 i:1"));
    EXPECT_EQ(record<Op::glMatrixIndexubvARB>(3, octets), bytes("glMatrixIndexubvARB i:3 0a0b0c"));
    EXPECT_EQ(record<Op::glXSwapBuffers>(appHandle<Display*>(0xfffffff0U), 3),
              bytes("glXSwapBuffers f0ffffff 03000000"));
    EXPECT_EQ(record<Op::glCallLists>(3, GL_UNSIGNED_BYTE, Block{octets, 3}),
              bytes("glCallLists i:3 i:0x1401 i:3 i:0 0a0b0c"));
    const UseXFontBlock font{{"fixed", 6}, 32, 96, 1000};
    EXPECT_EQ(record<Op::glXUseXFont>(font), bytes("glXUseXFont i:6 'fixed 00 i:32 i:96 i:1000"));
    SeparableFilterBlock filter{1, 2, 3, 4, 5, 6, 2, 3, 0, 0, {"ab", 2}, {"cde", 3}};
    EXPECT_EQ(record<Op::glSeparableFilter2D>(filter),
              bytes("glSeparableFilter2D i:1 i:2 i:3 i:4 i:5 i:6 i:2 i:3 i:0 i:0 'abcde"));
    filter.rowNull = 1;
    EXPECT_EQ(record<Op::glSeparableFilter2D>(filter),
              bytes("glSeparableFilter2D i:1 i:2 i:3 i:4 i:5 i:6 i:2 i:3 i:1 i:0 'cde"));
}

} // namespace

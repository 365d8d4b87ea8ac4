// The client's records against bytes worked out by hand, one of each layout.
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

TEST(Encoder, WritesTheBytesOfEachLayout)
{
    const float floats[] = {1, 2, 3, 4};
    const GLubyte octets[] = {10, 11, 12, 13, 14, 15};
    const GLuint names[] = {7, 8};
    const Block none{nullptr, 0};
    EXPECT_EQ(record<Op::glLineStipple>(3, 0xffff), bytes("0c00 i:3 ffff"));
    EXPECT_EQ(record<Op::glRectfv>(floats, floats + 2), bytes("#213 f:1 f:2 f:3 f:4"));
    EXPECT_EQ(record<Op::glDeleteTextures>(2, names), bytes("#291 i:2 i:7 i:8"));
    EXPECT_EQ(record<Op::glLightfv>(GL_LIGHT0, GL_SPOT_DIRECTION, floats),
              bytes("#230 i:0x4000 i:0x1204 f:1 f:2 f:3"));
    EXPECT_EQ(record<Op::glVertexPointer>(2, GL_UNSIGNED_BYTE, 3, octets),
              bytes("#216 i:2 i:0x1401 i:3 0a0b0c0d0e0f"));
    EXPECT_EQ(record<Op::glTexImage1D>(1, 2, 3, 4, 5, 6, 7, Block{octets, 2}),
              bytes("#287 i:1 i:2 i:3 i:4 i:5 i:6 i:7 i:2 i:0 0a0b"));
    EXPECT_EQ(record<Op::glTexImage1D>(1, 2, 3, 4, 5, 6, 7, none),
              bytes("#287 i:1 i:2 i:3 i:4 i:5 i:6 i:7 i:0 i:1"));
    EXPECT_EQ(record<Op::glBitmap>(8, 1, 1.0F, 2.0F, 3.0F, 4.0F, Block{octets, 1}),
              bytes("#256 i:8 i:1 f:1 f:2 f:3 f:4 i:1 0a"));
    EXPECT_EQ(record<Op::glDrawElements>(4, 2, GL_UNSIGNED_SHORT, Block{octets, 2}),
              bytes("#225 i:4 i:2 i:0x1403 0a0b0c0d"));
    EXPECT_EQ(record<Op::glMap1f>(1, 2.0F, 3.0F, 4, 5, Block{floats, 2}),
              bytes("#303 i:1 f:2 f:3 i:4 i:5 i:2 i:0 f:1 f:2"));
    EXPECT_EQ(record<Op::glMatrixIndexubvARB>(3, octets), bytes("#524 i:3 0a0b0c"));
    EXPECT_EQ(record<Op::glXSwapBuffers>(appHandle<Display*>(0xfffffff0U), 3),
              bytes("#1166 f0ffffff 03000000"));
    EXPECT_EQ(record<Op::glXUseXFont>(6, std::string_view("fixed\0", 6), 32, 96, 1000),
              bytes("#1167 i:6 'fixed 00 i:32 i:96 i:1000"));
    EXPECT_THROW(record<Op::glViewport>(1, 2, 3), std::invalid_argument);
    EXPECT_THROW(record<Op::glXUseXFont>(7, std::string_view("fixed\0", 6), 32, 96, 1000),
                 std::invalid_argument);
}

} // namespace

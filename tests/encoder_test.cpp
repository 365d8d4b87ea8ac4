// The client's records against bytes worked out by hand, of those layouts that no scene of the
// pixel tests writes.
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

TEST(Encoder, WritesTheBytesOfALayoutAndRefusesWrongLengths)
{
    const float floats[] = {1, 2, 3, 4};
    const GLubyte octets[] = {10, 11, 12};
    EXPECT_EQ(record<Op::glLineStipple>(3, 0xffff), bytes("0c00 i:3 ffff"));
    EXPECT_EQ(record<Op::glRectfv>(floats, floats + 2), bytes("#213 f:1 f:2 f:3 f:4"));
    EXPECT_EQ(record<Op::glTexImage1D>(1, 2, 3, 4, 5, 6, 7, Block{nullptr, 0}),
              bytes("#287 i:1 i:2 i:3 i:4 i:5 i:6 i:7 i:0 i:1"));
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

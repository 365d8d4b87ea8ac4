// The pool of command buffers.
#include <gtest/gtest.h>

#include "shuffle/buf.h"
#include "shuffle/threads.h"

std::atomic<int> done; // the server's own stands beside its main

namespace {

TEST(Buffers, OfTheStandardSizeComeFromThePoolTheLatestFreedFirst)
{
    _buf* const first = getFreeBuf(1);
    _buf* const second = getFreeBuf(1999999);
    EXPECT_EQ(second->type, standard);
    EXPECT_EQ(second->allocsize, 2000000);
    _buf* const large = getFreeBuf(2000000);
    EXPECT_EQ(large->type, big);
    EXPECT_EQ(large->allocsize, 2000000);
    freeBuf(large);
    freeBuf(first);
    freeBuf(second);
    EXPECT_EQ(getFreeBuf(1), second);
    EXPECT_EQ(getFreeBuf(1), first);
}

TEST(Buffers, AreQueuedInOrder)
{
    _buf* const buffers[] = {getFreeBuf(1), getFreeBuf(1), getFreeBuf(1)};
    for (_buf* const one : buffers)
        addBufToQueue(one);
    EXPECT_EQ(buffersWaiting(), 3);
    for (_buf* const one : buffers)
        EXPECT_EQ(getBufFromQueue(), one);
    EXPECT_EQ(buffersWaiting(), 0);
}

} // namespace

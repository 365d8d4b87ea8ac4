// The pool of command buffers, and who gets which piece of one.
#include <gtest/gtest.h>

#include "shuffle/buf.h"
#include "shuffle/threads.h"
#include "wire/framing.h"

#include <set>

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

TEST(Framing, EveryByteHasOneTaskAndEveryTaskOneParent)
{
    for (const int nNodes : {2, 3, 4, 8, 9}) {
        for (const int size : {1, 7, 1000}) {
            int at = 0;
            for (int task = 1; task < nNodes; ++task) {
                const Slice slice = sliceOf(task, nNodes, size);
                EXPECT_EQ(slice.offset, at);
                at += slice.count;
            }
            EXPECT_EQ(at, size) << nNodes;
        }
        std::set<int> reached;
        for (int task = 0; task < nNodes; ++task)
            for (const int kid : headerTree(task, nNodes).kids)
                EXPECT_TRUE(kid == 0 ||
                            (reached.insert(kid).second && headerTree(kid, nNodes).parent == task));
        EXPECT_EQ(std::ssize(reached), nNodes - 1);
    }
}

} // namespace

// An overload library in which glFinish lasts until the stream has ended. As it begins, it counts
// an acknowledgement, so that the client knows. glFlush reports itself.
#include "coding/wire.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include <pthread.h>

extern "C" {
extern volatile int done;
extern int ackKnt;
extern pthread_mutex_t ackLock;
}

namespace {

void blockUntilEnd()
{
    pthread_mutex_lock(&ackLock);
    ++ackKnt;
    pthread_mutex_unlock(&ackLock);
    using Clock = std::chrono::steady_clock;
    const Clock::time_point limit = Clock::now() + std::chrono::seconds(60);
    while (!done && Clock::now() < limit)
        std::this_thread::yield();
    std::fputs(done ? "blocked until the end\n" : "the end never came\n", stderr);
}

void reportFlush() { std::fputs("a queued buffer was decoded\n", stderr); }

} // namespace

extern "C" void Overload(glOp* table)
{
    table[indexOf(Op::glFinish)] = blockUntilEnd;
    table[indexOf(Op::glFlush)] = reportFlush;
}

// The pool of command buffers and the decode queue. The pool's bound is the stream's flow control:
// when all of its buffers are filled, the receive loop waits here and MPI holds the client back.
#include "coding/invariant.h"
#include "shuffle/mw.h"

#include <cstdlib>
#include <limits>
#include <malloc.h>
#include <new>

namespace {

pthread_mutex_t free_lock = PTHREAD_MUTEX_INITIALIZER; // guards freelist and nalloc
pthread_cond_t free_wait = PTHREAD_COND_INITIALIZER;
_buf* freelist;
int nalloc;

pthread_mutex_t queue_lock = PTHREAD_MUTEX_INITIALIZER; // guards head, tail, nqueued
pthread_cond_t queue_wait = PTHREAD_COND_INITIALIZER;
_buf* head;
_buf* tail;
int nqueued;

_buf* makeBuf(mosa_type type, int bytes)
{
    auto* b = new (std::nothrow) _buf{};
    require(b, "b");
    b->data = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(bytes)));
    require(b->data, "b->data");
    b->type = type;
    b->allocsize = bytes;
    pthread_mutex_init(&b->lock, nullptr);
    pthread_cond_init(&b->wait, nullptr);
    return b;
}

} // namespace

void keepFreedMemory()
{
    mallopt(M_MMAP_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_TRIM_THRESHOLD, mostStandard * standardBytes);
}

_buf* getFreeBuf(int size)
{
    if (size > largestStandard)
        return makeBuf(big, size);

    pthread_mutex_lock(&free_lock);
    if (!freelist && nalloc < mostStandard) {
        freelist = makeBuf(standard, standardBytes);
        ++nalloc;
    }
    while (!freelist && !done)
        pthread_cond_wait(&free_wait, &free_lock);
    _buf* b = nullptr;
    if (!done) {
        b = freelist;
        freelist = b->next;
    }
    pthread_mutex_unlock(&free_lock);
    return b;
}

void freeBuf(_buf* b)
{
    if (b->type == big) {
        std::free(b->data);
        pthread_mutex_destroy(&b->lock);
        pthread_cond_destroy(&b->wait);
        delete b;
        return;
    }
    pthread_mutex_lock(&free_lock);
    b->next = freelist;
    freelist = b;
    pthread_cond_broadcast(&free_wait);
    pthread_mutex_unlock(&free_lock);
}

void addBufToQueue(_buf* b)
{
    b->next = nullptr;
    pthread_mutex_lock(&queue_lock);
    (tail ? tail->next : head) = b;
    tail = b;
    ++nqueued;
    pthread_mutex_unlock(&queue_lock);
}

_buf* getBufFromQueue()
{
    pthread_mutex_lock(&queue_lock);
    while (!head && !done)
        pthread_cond_wait(&queue_wait, &queue_lock);
    _buf* b = nullptr;
    if (!done) {
        b = head;
        head = b->next;
        if (tail == b)
            tail = nullptr;
        --nqueued;
    }
    pthread_mutex_unlock(&queue_lock);
    return b;
}

int buffersWaiting()
{
    pthread_mutex_lock(&queue_lock);
    const int waiting = nqueued;
    pthread_mutex_unlock(&queue_lock);
    return waiting;
}

void bufTick()
{
    pthread_cond_broadcast(&free_wait);
    pthread_cond_broadcast(&queue_wait);
}

void wakeForShutDown()
{
    // Under the locks: a waiter that found `done` still 0 is certainly asleep by then.
    pthread_mutex_lock(&free_lock);
    pthread_cond_broadcast(&free_wait);
    pthread_mutex_unlock(&free_lock);
    pthread_mutex_lock(&queue_lock);
    pthread_cond_broadcast(&queue_wait);
    pthread_mutex_unlock(&queue_lock);
}

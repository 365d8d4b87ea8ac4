// The pool of command buffers and the decode queue. The pool's bound is the stream's flow control:
// when all of its buffers are filled, the receive loop waits here and MPI holds the client back.
#include "shuffle/buf.h"
#include "coding/invariant.h"
#include "shuffle/threads.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <malloc.h>
#include <new>
#include <utility>

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

// Memory of released large buffers, kept for the next ones, at most as much as the pool's: the page
// faults of new memory would take longer than the bytes' way over MPI.
constexpr std::size_t spares = 4;
constexpr std::size_t largestSpare = std::size_t{mostStandard} * standardBytes / spares;

pthread_mutex_t spare_lock = PTHREAD_MUTEX_INITIALIZER; // guards the two below
unsigned char* spare[spares];                           // null: none
std::size_t nextReplaced;                               // when all are there

// A spare block for `bytes`, not more than twice as large; null when there is none.
unsigned char* takeSpare(std::size_t bytes)
{
    unsigned char* found = nullptr;
    pthread_mutex_lock(&spare_lock);
    for (unsigned char*& block : spare) {
        const std::size_t there = block ? malloc_usable_size(block) : 0;
        if (!found && there >= bytes && there / 2 <= bytes)
            std::swap(found, block);
    }
    pthread_mutex_unlock(&spare_lock);
    return found;
}

void keepSpare(unsigned char* block)
{
    if (malloc_usable_size(block) <= largestSpare) {
        pthread_mutex_lock(&spare_lock);
        unsigned char** place = std::find(std::begin(spare), std::end(spare), nullptr);
        if (place == std::end(spare)) {
            place = &spare[nextReplaced];
            nextReplaced = (nextReplaced + 1) % spares;
        }
        std::swap(block, *place);
        pthread_mutex_unlock(&spare_lock);
    }
    std::free(block);
}

_buf* makeBuf(mosa_type type, int bytes)
{
    const auto size = static_cast<std::size_t>(bytes);
    auto* b = new (std::nothrow) _buf{};
    require(b, "b");
    b->data = type == big ? takeSpare(size) : nullptr;
    if (!b->data)
        b->data = static_cast<unsigned char*>(std::malloc(size));
    require(b->data, "b->data");
    b->type = type;
    b->allocsize = bytes;
    pthread_mutex_init(&b->lock, nullptr);
    pthread_cond_init(&b->wait, nullptr);
    return b;
}

} // namespace

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
        keepSpare(b->data);
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

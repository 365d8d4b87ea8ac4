// The server process: wire records shared with the client, the buffer pool with its decode queue,
// and the process's globals.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

// ---- Wire records, as plain bytes in the byte order that the handshake settles -----------------

/// Broadcast once by the client.
struct _handshake {
    std::int32_t version;  // of the command stream
    std::int32_t addrmode; // width of the host's addresses
    std::int32_t endian;   // byte order of the host
};
static_assert(sizeof(_handshake) == 12);

/// What this server speaks: version 0, 32-bit addresses, little-endian.
inline constexpr _handshake ownHandshake{0, 0, 0};

/// Before every command buffer.
struct _hdr {
    std::int32_t size; // bytes that follow; 0: none, nothing is queued; negative: end of the stream
    std::int32_t sync; // not 0: acknowledge once the buffer is decoded
};
static_assert(sizeof(_hdr) == 8);

/// Message tags on MPI_COMM_WORLD.
enum Tag { headerTag = 1, clientSliceTag = 2, peerSliceTag = 3, acknowledgementTag = 4 };

/// The slice of a buffer that server task i (from 1) gets from the client: every slice has the same
/// size but the last, which carries the remainder.
struct Slice {
    int offset, count;
};

constexpr Slice sliceOf(int task, int nNodes, int size)
{
    const int servers = nNodes - 1;
    const int each = size / servers;
    const int offset = (task - 1) * each;
    return {offset, task == servers ? size - offset : each};
}

// ---- Buffers (buf.cpp) -------------------------------------------------------------------------

/// A standard buffer holds 2,000,000 bytes, and at most 64 of them are ever made. A request of more
/// than largestStandard bytes gets a buffer of its own, which is released after use.
inline constexpr int standardBytes = 2'000'000;
inline constexpr int largestStandard = standardBytes - 1;
inline constexpr int mostStandard = 64;

enum mosa_type { standard = 0, big = 1 };

/// One command buffer.
struct _buf {
    _buf* next;     // in the free list or the decode queue
    mosa_type type; // of the pool, or made for one large request
    unsigned char* data;
    std::int32_t size;      // bytes in use
    std::int32_t allocsize; // bytes allocated
    std::int32_t sync;      // the header's
    pthread_mutex_t lock;   // nobody waits on these two
    pthread_cond_t wait;
};

/// A buffer for at least `size` bytes, or null once `done` is set (large requests are still
/// served). Blocks while all standard buffers are in use. Main thread.
_buf* getFreeBuf(int size);

/// Gives a buffer back. Decode thread.
void freeBuf(_buf* b);

/// Appends a filled buffer to the decode queue; the decode thread sees it at the next tick.
void addBufToQueue(_buf* b);

/// The oldest queued buffer, or null once `done` is set. Blocks. Decode thread.
_buf* getBufFromQueue();

/// How many buffers wait in the decode queue.
int buffersWaiting();

/// Wakes every waiter of the pool and the queue.
void bufTick();

/// Wakes them once more after `done` has been set, so that none can miss it.
void wakeForShutDown();

// ---- Threads and globals (server.cpp, decode.cpp) ----------------------------------------------

// C linkage: overload libraries refer to these by name.
extern "C" {
void* decodeThread(void* s);
void* tickthd(void* d);
void intr_handler(int i);
}

extern int nClients, nServers, serverID, vtl_mpi_task_number;
extern int syncOnSwap;    // for overload libraries only
extern int swapOnRetrace; // not 0: join the swap group at the first make-current

/// 1 once the stream has ended; written by the main thread, polled by the others.
extern std::atomic<int> done;
static_assert(sizeof done == sizeof(int), "overload libraries see a plain int");

extern pthread_mutex_t ackLock;
extern int ackKnt; // acknowledgements owed to the client, under ackLock

// The records of the server process: what passes between the tasks, and the command buffer.
#pragma once

#include "wire/framing.h"

#include <pthread.h>

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

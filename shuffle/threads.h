// The server's threads, and what they tell each other.
#pragma once

#include <atomic>
#include <pthread.h>

// C linkage: overload libraries refer to these by name.
extern "C" {
void* decodeThread(void* s);
void* tickthd(void* d);
void intr_handler(int i);
}

/// 1 once the stream has ended; written by the main thread, polled by the others.
extern std::atomic<int> done;
static_assert(sizeof done == sizeof(int), "overload libraries see a plain int");

extern pthread_mutex_t ackLock;
extern int ackKnt; // acknowledgements owed to the client, under ackLock

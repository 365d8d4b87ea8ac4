// The pool of command buffers and the decode queue. Each call takes the locks that it needs.
#pragma once

#include "shuffle/mw.h"

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

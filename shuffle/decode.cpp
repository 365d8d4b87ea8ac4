#include "coding/decoder.h"
#include "shuffle/buf.h"
#include "shuffle/stats.h"
#include "shuffle/threads.h"

void* decodeThread(void* /*s*/)
{
    while (_buf* b = getBufFromQueue()) {
        const StatsClock::time_point began = StatsClock::now();
        decoder(b->data, b->size);
        countBuffer(*b, knt + 1, StatsClock::now() - began);
        if (b->sync) {
            pthread_mutex_lock(&ackLock);
            ++ackKnt;
            pthread_mutex_unlock(&ackLock);
        }
        freeBuf(b);
    }
    pthread_exit(nullptr);
}

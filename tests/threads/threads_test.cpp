// The server's threads, pool, queue and shut-down as they are, with MPI and the decoder replaced,
// under the thread sanitizer: threads_test RUNS. Each run is a whole server in a process of its
// own, which must end with status 0 within its time: the sanitizer gives every race another one.
#include "coding/decoder.h"
#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "shuffle/buf.h"
#include "shuffle/threads.h"

#include <mpi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

int serverMain(int argc, char** argv); // shuffle/server.cpp's main

namespace {

// What the client sends in one run. Buffer n consists of bytes of value n.
std::minstd_rand scriptRandom;
std::vector<_hdr> buffers;
int syncs;                     // acknowledgements that are due when all are decoded
unsigned long longestWait;     // polls until a message arrives, at most
unsigned long longestDecoding; // how often the decoder gives up the processor in a buffer

// What the main thread has seen of it.
int headersSent;
int acknowledged;
pthread_t mainThread;

/// What a request waits for: until it is completed it has so many polls to go.
struct Pending {
    void* buffer;
    int count, tag, polls;
};
std::vector<Pending> pending;
constexpr int noRequest = -1;

void check(bool holds)
{
    if (!holds)
        std::abort();
}

void onMainThread() { check(pthread_equal(mainThread, pthread_self())); }

int post(void* buffer, int count, int tag, MPI_Request* request)
{
    onMainThread();
    *request = static_cast<MPI_Request>(pending.size());
    pending.push_back({buffer, count, tag, static_cast<int>(scriptRandom() % (longestWait + 1))});
    return 0;
}

void complete(const Pending& request)
{
    if (request.tag == headerTag) {
        const bool over = headersSent == static_cast<int>(buffers.size());
        const _hdr hdr = over ? _hdr{-1, 0} : buffers[static_cast<std::size_t>(headersSent++)];
        std::memcpy(request.buffer, &hdr, sizeof hdr);
    } else if (request.buffer)
        std::memset(request.buffer, headersSent - 1, static_cast<std::size_t>(request.count));
}

} // namespace

// ---- MPI: the client and the other servers -----------------------------------------------------

int MPI_Init(int*, char***)
{
    mainThread = pthread_self();
    return 0;
}

int MPI_Finalize()
{
    onMainThread();
    return 0;
}

int MPI_Irecv(void* buffer, int count, MPI_Datatype, int, int tag, MPI_Comm, MPI_Request* request)
{
    return post(buffer, count, tag, request);
}

int MPI_Isend(const void*, int count, MPI_Datatype, int, int, MPI_Comm, MPI_Request* request)
{
    return post(nullptr, count, peerSliceTag, request);
}

int MPI_Send(const void* buffer, int count, MPI_Datatype, int dest, int tag, MPI_Comm)
{
    onMainThread();
    std::int32_t value = 0;
    check(count == sizeof value && dest == 0 && tag == acknowledgementTag);
    std::memcpy(&value, buffer, sizeof value);
    check(value == 1 && ++acknowledged <= syncs);
    return 0;
}

int MPI_Testany(int count, MPI_Request* requests, int* index, int* flag, MPI_Status*)
{
    onMainThread();
    *flag = 0;
    for (*index = 0; *index < count; ++*index) {
        MPI_Request& request = requests[*index];
        if (request == noRequest || --pending[static_cast<std::size_t>(request)].polls >= 0)
            continue;
        complete(pending[static_cast<std::size_t>(request)]);
        request = noRequest;
        *flag = 1;
        break;
    }
    return 0;
}

int MPI_Waitall(int count, MPI_Request* requests, MPI_Status*)
{
    onMainThread();
    std::fill_n(requests, count, noRequest);
    return 0;
}

// ---- What else the server's process needs ------------------------------------------------------

char banner1[39];
char banner2[32];
int xx;
int knt;
void LoadOps() {}
[[noreturn]] void invariantFailed(const char*, const char*, int, const char*) { std::abort(); }

// Checks the order and every byte of what arrives.
int decoder(unsigned char* bufStart, int length)
{
    static unsigned next;
    static std::minstd_rand random;
    while (buffers[next].size == 0)
        ++next;
    check(length == buffers[next].size);
    for (int i = 0; i < length; ++i)
        check(bufStart[i] == static_cast<unsigned char>(next));
    ++next;
    for (unsigned long i = random() % (longestDecoding + 1); i > 0; --i)
        sched_yield();
    return 1;
}

// A waiter may be held up between its look at `done` and its wait. With nothing to decode this one
// is held up, the queue's lock in its hands, until the stream has ended and the last tick is over.
extern "C" int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    if (buffers.empty()) {
        while (!done)
            sched_yield();
        constexpr useconds_t threeTicks = 30'000;
        usleep(threeTicks);
    }
    return __real_pthread_cond_wait(condition, mutex);
}

// ---- The runs ----------------------------------------------------------------------------------

namespace {

// Streams of no buffer and of many, for a decoder that is faster or slower than the client.
void writeScript(unsigned run)
{
    scriptRandom.seed(run + 1);
    constexpr unsigned lengths[] = {0, 1, 2, 10, 200};
    constexpr int sizes[] = {1, 2, 3, 7, 100, 4096, 0, largestStandard + 1};
    const bool large = run % 16 == 0;
    for (unsigned i = 0; i < lengths[run % std::size(lengths)]; ++i) {
        const int size = sizes[scriptRandom() % (std::size(sizes) - (large && i < 20 ? 0 : 1))];
        const int sync = scriptRandom() % 2 ? static_cast<int>(scriptRandom() % 3) : 0;
        buffers.push_back({size, sync});
        syncs += size > 0 && sync != 0;
    }
    longestWait = run % 3 == 0 ? 0 : 50;
    longestDecoding = run % 4 == 0 ? 500 : 0;
}

// The wait status of a whole server.
int runServer(unsigned run)
{
    constexpr unsigned mostSeconds = 60;
    const pid_t child = fork();
    if (child == 0) {
        alarm(mostSeconds); // ends a server whose threads are never joined
        writeScript(run);
        char name[] = "server";
        char* argv[] = {name, nullptr};
        std::exit(serverMain(1, argv));
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::atoi(argv[1]) : 1;
    for (int run = 0; run < runs; ++run)
        if (const int status = runServer(static_cast<unsigned>(run)); status != 0) {
            std::fprintf(stderr, "run %d ended with wait status %d\n", run, status);
            return 1;
        }
}

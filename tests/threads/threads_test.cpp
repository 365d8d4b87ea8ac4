// The server's threads, pool, queue and shut-down as they are, with MPI and the decoder replaced,
// under the thread sanitizer: threads_test RUNS. Each run is a whole server in a process of its
// own, which must end with status 0 within its time: the sanitizer gives every race another one.
#include "tests/threads/script.h"

#include "coding/decoder.h"
#include "coding/displayConfig.h"
#include "coding/invariant.h"

#include <cstdio>
#include <cstdlib>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

int serverMain(int argc, char** argv); // shuffle/server.cpp's main

// What else the server's process needs.
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
    while (script.buffers[next].size == 0)
        ++next;
    if (length != script.buffers[next].size)
        std::abort();
    for (int i = 0; i < length; ++i)
        if (bufStart[i] != static_cast<unsigned char>(next))
            std::abort();
    ++next;
    for (unsigned long i = random() % (script.longestDecoding + 1); i > 0; --i)
        sched_yield();
    return 1;
}

// A waiter may be held up between its look at `done` and its wait. With nothing to decode this one
// is held up, the queue's lock in its hands, until the stream has ended and the last tick is over.
extern "C" int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    if (script.buffers.empty()) {
        while (!done)
            sched_yield();
        constexpr useconds_t threeTicks = 30'000;
        usleep(threeTicks);
    }
    return __real_pthread_cond_wait(condition, mutex);
}

namespace {

// Streams of no buffer and of many, for a decoder that is faster or slower than the client.
void writeScript(unsigned run)
{
    script.random.seed(run + 1);
    constexpr unsigned lengths[] = {0, 1, 2, 10, 200};
    constexpr int sizes[] = {1, 2, 3, 7, 100, 4096, 0, largestStandard + 1};
    const bool large = run % 16 == 0;
    for (unsigned i = 0; i < lengths[run % std::size(lengths)]; ++i) {
        const int size = sizes[script.random() % (std::size(sizes) - (large && i < 20 ? 0 : 1))];
        const int sync = script.random() % 2 ? static_cast<int>(script.random() % 3) : 0;
        script.buffers.push_back({size, sync});
        script.syncs += size > 0 && sync != 0;
    }
    script.longestWait = run % 3 == 0 ? 0 : 50;
    script.longestDecoding = run % 4 == 0 ? 500 : 0;
}

bool runServer(unsigned run)
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
    if (status != 0)
        std::fprintf(stderr, "run %u ended with wait status 0x%x\n", run,
                     static_cast<unsigned>(status));
    return status == 0;
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned runs = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 1;
    for (unsigned run = 0; run < runs; ++run)
        if (!runServer(run))
            return 1;
    std::printf("%u runs\n", runs);
    return runs == 0;
}

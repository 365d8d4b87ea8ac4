#include "shuffle/endTask.h"

#include <mpi.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

// Tells mpiexec that this task has finalized, as MPI_Finalize does at its end (PMI 1: a line each
// way over the connection whose descriptor mpiexec leaves in PMI_FD, which it closes then). A task
// whose connection closes without has failed, unless mpiexec happens to hear of its good end later
// than of that.
void tellFinalized()
{
    constexpr std::string_view farewell = "cmd=finalize\n";
    constexpr int longest = 1000; // milliseconds, for each piece of the answer
    const char* descriptor = std::getenv("PMI_FD");
    if (!descriptor)
        return;
    const int fd = std::atoi(descriptor);
    std::signal(SIGPIPE, SIG_IGN); // when the connection has ended already
    if (write(fd, farewell.data(), farewell.size()) < 0)
        return;
    std::array<char, 256> answer;
    pollfd readable{fd, POLLIN, 0};
    while (poll(&readable, 1, longest) > 0 && read(fd, answer.data(), answer.size()) > 0) {
    }
}

} // namespace

// Between machines it may never return: in MPICH on UCX over TCP each task asks every other
// whether all has arrived, and answers no more once its own questions are answered; one that asks
// later waits for ever, and with it all the others. By then everything has been said and done, so
// after a while the task ends as it is. Not one by one: the end of one would wake others, which
// would go on to wait for it elsewhere, and mpiexec fails where it is to wake one that is gone.
// First all stand still, also those that came here a while later.
void endTask(int status)
{
    static constexpr std::chrono::milliseconds longest{1000}, untilAllStandStill{1500};
    int tasks = 0;
    std::fflush(nullptr); // here: the thread below may stop the caller with a stream's lock held
    MPI_Comm_size(MPI_COMM_WORLD, &tasks);
    const char* here = std::getenv("MPI_LOCALNRANKS"); // set by mpiexec: tasks on this machine
    if (here && std::atoi(here) < tasks)
        std::thread([status, caller = pthread_self()] {
            std::this_thread::sleep_for(longest);
            std::signal(SIGUSR2, [](int) {
                for (;;)
                    pause();
            });
            pthread_kill(caller, SIGUSR2);
            std::this_thread::sleep_for(untilAllStandStill);
            tellFinalized();
            _exit(status);
        }).detach();
    MPI_Finalize();
}

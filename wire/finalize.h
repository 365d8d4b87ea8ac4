// The end of a task of the job.
#pragma once

#include <mpi.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <unistd.h>

/// MPI_Finalize for a task that is about to end with `status`; the last thing that it does.
///
/// Between machines it may never return: in MPICH on UCX over TCP each task asks every other
/// whether all has arrived, and answers no more once its own questions are answered; one that asks
/// later waits for ever, and with it all the others. By then everything has been said and done, so
/// after a while the task ends as it is, which mpiexec takes for a good end. Not one by one: the
/// end of one would wake others, which would go on to wait for it elsewhere, or to fail. First all
/// stand still, also those that came here a while later.
inline void finalizeTask(int status)
{
    static constexpr std::chrono::milliseconds longest{1000}, untilAllStandStill{2500};
    int tasks = 0;
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
            std::fflush(stdout);
            _exit(status);
        }).detach();
    MPI_Finalize();
}

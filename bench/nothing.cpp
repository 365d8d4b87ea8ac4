// An overload library whose entries do nothing: what then remains of a job is its communication.
// With MOSA_BENCH_SLOW a glFinish takes so many microseconds, as drawing would.
#include "bench/calls.h"

#include <cstdlib>
#include <unistd.h>

namespace {

useconds_t finishTime;

void slowFinish() { usleep(finishTime); }

} // namespace

extern "C" void Overload(glOp* table)
{
    installNothing(table);
    if (const char* microseconds = std::getenv("MOSA_BENCH_SLOW")) {
        finishTime = static_cast<useconds_t>(std::atoi(microseconds));
        table[indexOf(Op::glFinish)] = slowFinish;
    }
}

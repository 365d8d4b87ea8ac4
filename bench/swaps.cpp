// An overload library that notes when each frame is shown: a line of seconds for every swap,
// written to the file MOSA_BENCH_SWAPS.N of server N as the server ends.
#include "bench/calls.h"
#include "coding/serverProcess.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

Prototype<Op::glXSwapBuffers>* swapBuffers;

struct Swaps {
    std::vector<double> times;

    ~Swaps()
    {
        const char* base = std::getenv("MOSA_BENCH_SWAPS");
        if (!base)
            return;
        const std::string name = std::string(base) + '.' + std::to_string(serverID);
        std::FILE* file = std::fopen(name.c_str(), "w");
        if (!file)
            return;
        for (const double time : times)
            std::fprintf(file, "%.6f\n", time);
        std::fclose(file);
    }
} swaps;

void notedSwap(Display* dpy, GLXDrawable drawable)
{
    swapBuffers(dpy, drawable);
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    swaps.times.push_back(std::chrono::duration<double>(now).count());
}

} // namespace

extern "C" void Overload(glOp* table)
{
    glOp& entry = table[indexOf(Op::glXSwapBuffers)];
    swapBuffers = reinterpret_cast<Prototype<Op::glXSwapBuffers>*>(entry);
    entry = reinterpret_cast<glOp>(notedSwap);
}

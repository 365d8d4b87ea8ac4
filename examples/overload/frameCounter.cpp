// An overload library: prints how many frames its server shows each second.
//
//     g++ -shared -fPIC -o frameCounter.so frameCounter.cpp
//     echo $PWD/frameCounter.so > overloads
//     export MOSA_OVERLOAD_FILE=$PWD/overloads
//
// The server hands its live table of entry points to Overload. What stands in the table when an
// operation is decoded is what runs, so a replaced entry calls the one that it found there.
#include <GL/glx.h>

#include <cstdio>
#include <ctime>

extern "C" {
extern int serverID;          // the server's own names need no header
extern const char* opNames[]; // the operations in the order of their opcodes
void Overload(void (**table)());
}

namespace {

constexpr int swapBuffers = 1166; // opcode of glXSwapBuffers

void (*showFrame)(Display*, GLXDrawable);

void countFrame(Display* appDisplay, GLXDrawable drawable)
{
    static long frames;
    static std::time_t second = std::time(nullptr);
    showFrame(appDisplay, drawable);
    ++frames;
    if (const std::time_t now = std::time(nullptr); now != second) {
        std::fprintf(stderr, "server %d: %s: %ld frames in %ld s\n", serverID, opNames[swapBuffers],
                     frames, static_cast<long>(now - second));
        frames = 0;
        second = now;
    }
}

} // namespace

void Overload(void (**table)())
{
    showFrame = reinterpret_cast<void (*)(Display*, GLXDrawable)>(table[swapBuffers]);
    table[swapBuffers] = reinterpret_cast<void (*)()>(countFrame);
    std::fprintf(stderr, "server %d: counting frames\n", serverID);
}

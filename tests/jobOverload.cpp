// An overload library for whole jobs. glIndexi counts as long as each number is one more than the
// last; glEnd says how many there were. glFinish lasts until the stream has ended; as it begins, it
// counts an acknowledgement, so that the client knows. glFlush reports itself. glXSwapBuffers, and
// a move of the area, add the server's number to the file MOSA_TEST_SHOWN, and take their time for
// it as MOSA_TEST_PAUSES says: "SERVER:FRAME:MILLISECONDS ...", frame 0 for all. With
// MOSA_TEST_HARDWARE there is hardware for swap groups.
#include "coding/wire.h"
#include "wire/areaMessages.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sstream>
#include <unistd.h>

extern "C" {
extern volatile int done;
extern int ackKnt;
extern pthread_mutex_t ackLock;
extern int vtl_mpi_task_number;
}

namespace {

int inOrder;

void count(int number) { inOrder += number == inOrder; }

void tellCount()
{
    std::fprintf(stderr, "task %d: %d numbers in order\n", vtl_mpi_task_number, inOrder);
}

void blockUntilEnd()
{
    pthread_mutex_lock(&ackLock);
    ++ackKnt;
    pthread_mutex_unlock(&ackLock);
    alarm(60); // ends a server whose stream never does
    while (!done)
        sched_yield();
    alarm(0);
    std::fputs("blocked until the end\n", stderr);
}

void pauseAsPlanned(int server, int frame)
{
    const char* pauses = std::getenv("MOSA_TEST_PAUSES");
    std::istringstream plan(pauses ? pauses : "");
    int ofServer = 0, ofFrame = 0;
    unsigned milliseconds = 0;
    for (char colon = 0; plan >> ofServer >> colon >> ofFrame >> colon >> milliseconds;)
        if (ofServer == server && (ofFrame == 0 || ofFrame == frame))
            usleep(1000 * milliseconds);
}

void noteFrame()
{
    static const int file = open(std::getenv("MOSA_TEST_SHOWN"), O_WRONLY | O_APPEND);
    static int frame;
    const int server = vtl_mpi_task_number - 1;
    pauseAsPlanned(server, ++frame);
    const char digit = static_cast<char>('0' + server);
    if (write(file, &digit, 1) != 1)
        std::abort();
}

void noteMove(unsigned long window)
{
    if (window == areaMessage(AreaWord::move))
        noteFrame();
}

const char* hardwareExtension() { return "GLX_EXT_other GLX_NV_swap_group"; }

int hardwareGroups(void*, int, unsigned* groups, unsigned* barriers)
{
    *groups = *barriers = 1;
    return 1;
}

int bindHardware()
{
    std::fputs("bound by hardware\n", stderr);
    return 1;
}

void reportFlush() { std::fputs("a queued buffer was decoded\n", stderr); }

} // namespace

extern "C" void Overload(glOp* table)
{
    table[indexOf(Op::glIndexi)] = reinterpret_cast<glOp>(count);
    table[indexOf(Op::glEnd)] = tellCount;
    table[indexOf(Op::glFinish)] = blockUntilEnd;
    table[indexOf(Op::glFlush)] = reportFlush;
    table[indexOf(Op::glXSwapBuffers)] = noteFrame;
    table[indexOf(Op::MWRaiseWindow)] = reinterpret_cast<glOp>(noteMove);
    if (std::getenv("MOSA_TEST_HARDWARE")) {
        table[indexOf(Op::glXQueryExtensionsString)] = reinterpret_cast<glOp>(hardwareExtension);
        table[indexOf(Op::glXQueryMaxSwapGroupsNV)] = reinterpret_cast<glOp>(hardwareGroups);
        table[indexOf(Op::glXJoinSwapGroupNV)] = reinterpret_cast<glOp>(bindHardware);
        table[indexOf(Op::glXBindSwapBarrierNV)] = reinterpret_cast<glOp>(bindHardware);
    }
}

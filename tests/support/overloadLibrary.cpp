// An overload library, built under several labels. It stands in for glFlush: it reports the call
// with its label, shows what it sees of the server, and chains to the entry before it.
#include "coding/serverWindows.h"
#include "coding/wire.h"

#include <cstdio>

extern "C" void* undefinedOp();

namespace {

constexpr int flush = static_cast<int>(Op::glFlush);
glOp before;

void labelledFlush()
{
    std::fprintf(stderr, "%s: %s, %d contexts, app %d x %d\n", OVERLOAD_LABEL, opNames[flush],
                 nContexts, currAppWidth, currAppHeight);
    before();
}

} // namespace

extern "C" void Overload(glOp* table)
{
    // The table is the live one, in which an operation that the server overloads differs from the
    // system library's.
    constexpr int viewport = static_cast<int>(Op::glViewport);
    std::fprintf(stderr, "%s: installed, live table %d, viewport overloaded %d, undefined %d\n",
                 OVERLOAD_LABEL, table == glOpTable, table[viewport] != baseOpTable[viewport],
                 table[viewport] == reinterpret_cast<glOp>(undefinedOp));
    before = table[flush];
    table[flush] = labelledFlush;
}

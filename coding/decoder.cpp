#include "coding/decoder.h"
#include "coding/argumentDecoders.h"

#include <algorithm>
#include <cstdio>

// The walk's position and its recent history, for a debugger, a core file and the message of a
// fatal end. Decode thread only.
unsigned char* bs; // first byte of the buffer
unsigned char* be; // one past its last byte
int knt;
int lastOps[100]; // opcode of operation knt at knt modulo 100; never cleared
int xx;           // trace switch
int bucketID;     // buffers whose walk ended exactly at their end
static char* br;  // first byte of the current record, null between buffers

// The line that operators' scripts know this message by.
static int ranPastEnd()
{
    constexpr int line = 133;
    std::fprintf(stderr, "something bad happened at line %d in routine %s\n", line,
                 "coding/decoder");
    std::fflush(stderr);
    br = nullptr;
    return 0;
}

static int abandoned()
{
    br = nullptr;
    return 0;
}

// Never inlined: it would stand in the way of every operation.
[[gnu::cold, gnu::noinline]] static void trace(unsigned opcode)
{
    if (opcode < operationCount)
        std::fprintf(stderr, "%s\n", opNames[opcode]);
}

static int badOpcode(unsigned opcode)
{
    std::fprintf(stderr, "BAD OPCODE (%u)!!\n", opcode);
    if (xx)
        std::fprintf(stderr, "BAD OPCODE!!\n");
    return abandoned(); // its length, and so the next record, is unknown
}

// Flattened: what is decoded in place becomes part of the walk. A build with checks needs no speed,
// and the compiler would take minutes.
#ifdef NDEBUG
[[gnu::flatten]]
#endif
int decoder(unsigned char* bufStart, int length)
{
    // Where each operation is performed; behind them, where the walk goes with one that is left to
    // its decoder, with an opcode that there is not, and without one.
    // The operations of OpenGL 1.1 end with a jump of their own to the next one's place: the
    // processor learns for each of them what follows it. The others, and those decoded by hand,
    // share one; with a jump for each of them, too, this would take three times as long to compile.
    constexpr unsigned firstSharing = indexOf(Op::glDrawRangeElements);
    enum { leftToDecoder = operationCount, unknownOpcode, noOpcode };
    static const void* const places[] = {
#define OPERATION(number, name, ...) &&perform##number,
#define BY_HAND(number, name, ...) &&perform##number,
#define UNPERFORMED(number, name, ...) &&leftToDecoder,
#include "wire/operations.def"
        &&leftToDecoder,
        &&unknownOpcode,
        &&noOpcode,
    };
    static_assert(std::size(places) == noOpcode + 1);

    char* const bufEnd = reinterpret_cast<char*>(bufStart + length);
    bs = bufStart;
    be = bufStart + length;
    int index = -1; // knt, in a register
    knt = index;
    int* last = lastOps; // where the next opcode goes
    unsigned opcode = 0;
    char* args = nullptr;                           // the record's argument block
    char* next = reinterpret_cast<char*>(bufStart); // the next record; null: not performed in place

    const auto onward = [&]() -> const void* {
        if (!next) [[unlikely]]
            return places[leftToDecoder];
        br = next;
        if (bufEnd - next < opcodeBytes) [[unlikely]]
            return places[noOpcode];
        knt = ++index;
        opcode = load<std::uint16_t>(next);
        *last = static_cast<int>(opcode);
        if (++last == std::end(lastOps)) [[unlikely]]
            last = lastOps;
        if (xx) [[unlikely]]
            trace(opcode);
        args = next + opcodeBytes;
        if (opcode >= operationCount) [[unlikely]]
            return places[unknownOpcode];
        return places[opcode];
    };
    // clang-format off
    goto *onward();

#define OPERATION(number, name, ...)                                                               \
perform##number:                                                                                   \
    next = decodeInPlace<Op::name, decltype(::name)>(__VA_ARGS__{}, _##name, args, bufEnd - args); \
    if constexpr (number < firstSharing)                                                           \
        goto *onward();                                                                            \
    goto share;
#define BY_HAND(number, name, ...)                                                                 \
perform##number:                                                                                   \
    next = callInPlace<Op::name>(__VA_ARGS__{}, _##name, args, bufEnd - args);                     \
    goto share;
#define UNPERFORMED(number, name, ...)
#include "wire/operations.def"

share:
    goto *onward();

leftToDecoder:
    if (!blockFits(recordExtents[opcode], args, bufEnd - args))
        return ranPastEnd();
    next = glWrappers[opcode](args);
    if (!next)
        return abandoned();
    goto *onward();
    // clang-format on

unknownOpcode:
    return badOpcode(opcode);

noOpcode:
    if (next != bufEnd)
        return ranPastEnd();
    ++bucketID;
    br = nullptr;
    return 1;
}

int typeSize(GLenum type)
{
    const int bytes = elementBytes(type);
    if (bytes == 4 && type != GL_INT && type != GL_UNSIGNED_INT && type != GL_FLOAT)
        std::fprintf(stderr,
                     "Attention MOSA: typeSize using default statement: type = %d  "
                     "We are returning 4 bytes \n",
                     static_cast<int>(type));
    return bytes;
}

void printRecentOperations()
{
    if (!br)
        return;
    std::fprintf(stderr,
                 "MOSA: in operation %d of the buffer, at byte %td of %td; the latest:", knt,
                 br - reinterpret_cast<char*>(bs), be - bs);
    constexpr int shown = std::ssize(lastOps);
    for (int i = std::max(0, knt - shown + 1); i <= knt; ++i) {
        const int opcode = lastOps[i % shown];
        std::fprintf(stderr, " %s", opcode < operationCount ? opNames[opcode] : "BAD OPCODE");
    }
    std::fputc('\n', stderr);
}

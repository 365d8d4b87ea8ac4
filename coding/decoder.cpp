#include "coding/decoder.h"
#include "coding/argumentDecoders.h"

#include <algorithm>
#include <cstdio>

// The walk's position and its recent history, for a debugger, a core file and the message of a
// fatal end. Decode thread only.
unsigned char* bs; // first byte of the buffer
unsigned char* be; // one past its last byte
int knt;
int lastOps[100];         // opcode of operation knt at knt modulo 100; never cleared
int xx;                   // trace switch
static unsigned char* br; // first byte of the current record, null between buffers

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

// Performs a record in place; null when that is left to its decoder.
static char* performInPlace(unsigned opcode, char* args, std::int64_t room)
{
    switch (opcode) {
#define OPERATION(number, name, ...)                                                               \
    case number:                                                                                   \
        return decodeInPlace<Op::name, decltype(::name)>(__VA_ARGS__{}, _##name, args, room);
#define BY_HAND(number, name, ...)                                                                 \
    case number:                                                                                   \
        return callInPlace<Op::name>(__VA_ARGS__{}, _##name, args, room);
#define UNPERFORMED(number, name, ...)
#include "coding/operations.def"
    }
    return nullptr;
}

// Flattened: all that is decoded in place becomes part of the loop.
[[gnu::flatten]] int decoder(unsigned char* bufStart, int length)
{
    static int bucketID; // buffers whose walk ended exactly at their end
    constexpr int opcodeBytes = 2;

    unsigned char* const bufEnd = bufStart + length;
    bs = bufStart;
    be = bufEnd;
    int index = -1; // knt, in a register
    knt = index;
    int* last = lastOps; // where the next opcode goes
    unsigned char* b = bufStart;
    for (;;) {
        br = b;
        if (bufEnd - b < opcodeBytes)
            break;
        knt = ++index;
        const unsigned opcode = load<std::uint16_t>(b);
        b += opcodeBytes;
        *last = static_cast<int>(opcode);
        if (++last == std::end(lastOps)) [[unlikely]]
            last = lastOps;
        if (xx) [[unlikely]]
            trace(opcode);

        char* args = reinterpret_cast<char*>(b);
        char* next = performInPlace(opcode, args, bufEnd - b);
        if (!next) [[unlikely]] {
            if (opcode >= operationCount)
                return badOpcode(opcode);
            if (!blockFits(recordExtents[opcode], args, bufEnd - b))
                return ranPastEnd();
            next = glWrappers[opcode](args);
            if (!next)
                return abandoned();
        }
        b = reinterpret_cast<unsigned char*>(next);
    }
    if (b != bufEnd)
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
                 br - bs, be - bs);
    constexpr int shown = std::ssize(lastOps);
    for (int i = std::max(0, knt - shown + 1); i <= knt; ++i) {
        const int opcode = lastOps[i % shown];
        std::fprintf(stderr, " %s", opcode < operationCount ? opNames[opcode] : "BAD OPCODE");
    }
    std::fputc('\n', stderr);
}

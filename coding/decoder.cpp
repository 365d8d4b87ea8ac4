#include "coding/decoder.h"
#include "coding/fromWire.h"

#include <algorithm>
#include <cstdio>

// The walk's position and its recent history, for a debugger, a core file and the message of a
// fatal end. Decode thread only.
unsigned char* bs;        // first byte of the buffer
unsigned char* be;        // one past its last byte
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

int decoder(unsigned char* bufStart, int length)
{
    static int bucketID; // buffers whose walk ended exactly at their end
    constexpr int opcodeBytes = 2;

    unsigned char* const bufEnd = bufStart + length;
    bs = bufStart;
    be = bufEnd;
    knt = -1;
    unsigned char* b = bufStart;
    while (b < bufEnd) {
        br = b;
        ++knt;
        if (bufEnd - b < opcodeBytes)
            return ranPastEnd();
        const unsigned opcode = load<std::uint16_t>(b);
        b += opcodeBytes;
        lastOps[knt % std::ssize(lastOps)] = static_cast<int>(opcode);

        const bool bad = opcode >= operationCount;
        if (bad)
            std::fprintf(stderr, "BAD OPCODE (%d)!!\n", opcode);
        if (xx)
            std::fprintf(stderr, "%s\n", bad ? "BAD OPCODE!!" : opNames[opcode]);
        if (bad)
            return abandoned(); // its length, and so the next record, is unknown

        char* args = reinterpret_cast<char*>(b);
        if (!blockFits(recordExtents[opcode], args, bufEnd - b))
            return ranPastEnd();
        b = reinterpret_cast<unsigned char*>(glWrappers[opcode](args));
        if (!b)
            return abandoned();
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

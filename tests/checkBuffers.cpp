// An overload library that compares what arrives with the buffers of randomBuffers.h, byte by byte.
// glIndexi(n) ends the check: n buffers must have arrived.
#include "tests/randomBuffers.h"

#include <cstdio>
#include <cstdlib>

extern "C" int vtl_mpi_task_number;

namespace {

int number = 0;                      // of the buffer that is arriving
std::vector<unsigned char> expected; // its bytes
std::size_t at = 0;                  // how many of them have been checked

void skipUnperformed()
{
    while (randomBuffers::sizeOf(number) == 1)
        ++number;
}

[[noreturn]] void fail()
{
    std::fprintf(stderr, "task %d: buffer %d of %zu bytes differs at byte %zu\n",
                 vtl_mpi_task_number, number, expected.size(), at);
    std::abort();
}

void check(const void* bytes, std::size_t count)
{
    if (at == 0) {
        skipUnperformed();
        expected = randomBuffers::bytesOf(number);
    }
    if (expected.size() - at < count || std::memcmp(expected.data() + at, bytes, count) != 0)
        fail();
    at += count;
    if (at < expected.size())
        return;
    at = 0;
    ++number;
}

template <Op op>
void withoutArguments()
{
    const Op opcode = op;
    check(&opcode, sizeof opcode);
}

void edgeFlag(unsigned char flag)
{
    withoutArguments<Op::glEdgeFlag>();
    check(&flag, sizeof flag);
}

void programString(unsigned target, unsigned format, int length, const void* bytes)
{
    withoutArguments<Op::glProgramStringARB>();
    check(&target, sizeof target);
    check(&format, sizeof format);
    check(&length, sizeof length);
    check(bytes, static_cast<std::size_t>(length));
}

void report(int buffers)
{
    skipUnperformed();
    if (number < buffers || at != 0)
        fail();
    std::fprintf(stderr, "task %d: checked %d buffers\n", vtl_mpi_task_number, buffers);
}

} // namespace

extern "C" void Overload(glOp* table)
{
    [&]<std::size_t... i>(std::index_sequence<i...>)
    {
        using randomBuffers::withoutArguments;
        ((table[indexOf(withoutArguments[i])] = ::withoutArguments<withoutArguments[i]>), ...);
    }
    (std::make_index_sequence<std::size(randomBuffers::withoutArguments)>{});
    table[indexOf(Op::glEdgeFlag)] = reinterpret_cast<glOp>(edgeFlag);
    table[indexOf(Op::glProgramStringARB)] = reinterpret_cast<glOp>(programString);
    table[indexOf(Op::glIndexi)] = reinterpret_cast<glOp>(report);
}

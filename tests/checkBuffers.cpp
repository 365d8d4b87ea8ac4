// An overload library that compares what arrives with the buffers of randomBuffers.h, byte by byte.
// glIndexi(n) ends the check: n buffers must have arrived.
#include "coding/wire.h"
#include "tests/randomBuffers.h"

#include <cstdio>
#include <cstdlib>

extern "C" int vtl_mpi_task_number;

namespace {

int number = 0;                      // of the buffer that is arriving
std::vector<unsigned char> expected; // its bytes
std::size_t at = 0;                  // how many of them have been checked
long total = 0;

[[noreturn]] void differs(const char* what)
{
    std::fprintf(stderr, "task %d: buffer %d of %zu bytes differs in %s at byte %zu\n",
                 vtl_mpi_task_number, number, expected.size(), what, at);
    std::fflush(stderr);
    std::abort();
}

void skipUnperformed()
{
    while (randomBuffers::sizeOf(number) == 1)
        ++number;
}

void check(const char* what, const void* bytes, std::size_t count)
{
    static const randomBuffers::Plan plan = randomBuffers::makePlan();
    if (at == 0) {
        skipUnperformed();
        expected = randomBuffers::bytesOf(plan, number);
    }
    if (expected.size() - at < count || std::memcmp(expected.data() + at, bytes, count) != 0)
        differs(what);
    at += count;
    total += static_cast<long>(count);
    if (at < expected.size())
        return;
    at = 0;
    ++number;
}

template <int opcode>
void plainOperation()
{
    const auto code = static_cast<std::uint16_t>(opcode);
    check("an opcode", &code, sizeof code);
}

void edgeFlag(unsigned char flag)
{
    plainOperation<randomBuffers::edgeFlag>();
    check("a flag", &flag, sizeof flag);
}

void programString(unsigned target, unsigned format, int length, const void* bytes)
{
    plainOperation<randomBuffers::programString>();
    check("a number", &target, sizeof target);
    check("a number", &format, sizeof format);
    check("a length", &length, sizeof length);
    check("data", bytes, static_cast<std::size_t>(length));
}

void report(int buffers)
{
    skipUnperformed();
    if (number < buffers || at != 0)
        differs("the number of buffers");
    std::fprintf(stderr, "task %d: checked %d buffers, %ld bytes\n", vtl_mpi_task_number, buffers,
                 total);
    std::fflush(stderr);
}

template <int... opcodes>
void installPlain(glOp* table, std::integer_sequence<int, opcodes...>)
{
    ((table[randomBuffers::plain[opcodes]] = plainOperation<randomBuffers::plain[opcodes]>), ...);
}

} // namespace

extern "C" void Overload(glOp* table)
{
    installPlain(table, std::make_integer_sequence<int, std::size(randomBuffers::plain)>{});
    table[randomBuffers::edgeFlag] = reinterpret_cast<glOp>(edgeFlag);
    table[randomBuffers::programString] = reinterpret_cast<glOp>(programString);
    table[indexOf(Op::glIndexi)] = reinterpret_cast<glOp>(report);
}

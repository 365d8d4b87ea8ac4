#include "coding/argumentDecoders.h"
#include "coding/invariant.h"

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <string>

static_assert(std::endian::native == std::endian::little, "the stream is read as it stands");

namespace {

template <Op op, class F, int length>
char* decode(LengthlessVector<length>, char* args)
{
    std::fprintf(stderr, "Attention MOSA: %s: unknown param value\n", opNames[indexOf(op)]);
    if constexpr (length == unknowable)
        return nullptr;
    else {
        call<op, F, 1>(args, arrayAt<F, 1>(args + 4));
        return args + 4 + vectorBytes<F, length>(args);
    }
}

template <Op op>
char* decode(Refused, char* args)
{
    std::fprintf(stderr, "Attention MOSA: local op %s should not be found on wire\n",
                 opNames[indexOf(op)]);
    return args;
}

template <Op op>
char* decode(Ignored, char* args)
{
    return args;
}

} // namespace

char* reserve(ScratchBuffer& scratch, int bytes, const char* operation)
{
    if (bytes > scratch.size) {
        std::free(scratch.data);
        scratch.data = static_cast<char*>(std::malloc(static_cast<std::size_t>(bytes)));
        if (!scratch.data)
            invariantFailed(scratch.name, ("coding/" + std::string(operation) + "_decode").c_str(),
                            __LINE__, ("_" + std::string(operation)).c_str());
        scratch.size = bytes;
    }
    return scratch.data;
}

#define OPERATION(number, name, ...)                                                               \
    char* _##name(char* args) { return decode<Op::name, decltype(::name)>(__VA_ARGS__{}, args); }
#define BY_HAND(number, name, ...)
#define UNPERFORMED(number, name, ...)                                                             \
    char* _##name(char* args) { return decode<Op::name>(__VA_ARGS__{}, args); }
#include "coding/operations.def"

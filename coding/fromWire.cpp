#include "coding/argumentDecoders.h"

#include <algorithm>
#include <cstdio>

namespace {

template <Op op, class F, int length>
char* decode(LengthlessVector<length>, char* args)
{
    std::fprintf(stderr, "Attention MOSA: %s: unknown param value\n", opNames[indexOf(op)]);
    if constexpr (length == unknowable) {
        // The library reads as many elements as the vector's declared type has, four at most.
        constexpr int most = 4;
        alignas(double) char elements[most * elementSize<F, 1>()] = {};
        const char* vector = args + 4;
        const auto left = reinterpret_cast<char*>(be) - vector;
        std::memcpy(elements, vector,
                    static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(left, 0, sizeof elements)));
        call<op, F, 1>(args, arrayAt<F, 1>(elements));
        return nullptr;
    } else {
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

#define OPERATION(number, name, ...)                                                               \
    char* _##name(char* args) { return decode<Op::name, decltype(::name)>(__VA_ARGS__{}, args); }
#define BY_HAND(number, name, ...)
#define UNPERFORMED(number, name, ...)                                                             \
    char* _##name(char* args) { return decode<Op::name>(__VA_ARGS__{}, args); }
#include "wire/operations.def"

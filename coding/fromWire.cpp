#include "coding/argumentDecoders.h"

#include <cstdio>

namespace {

template <Op op, class F, int length>
char* decode(LengthlessVector<length>, char* args)
{
    std::fprintf(stderr, "Attention MOSA: %s: unknown param value\n", opNames[indexOf(op)]);
    if constexpr (length == unknowable) {
        // The library reads as many elements as the vector's declared type has.
        const Supplied supplied = supplyValues(args + 4, mostValues * elementSize<F, 1>());
        call<op, F, 1>(args, arrayAt<F, 1>(supplied.at));
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

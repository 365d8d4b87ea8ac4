#include "coding/fromWire.h"
#include "coding/invariant.h"

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <string>

static_assert(std::endian::native == std::endian::little, "the stream is read as it stands");

namespace {

// Calls operation `op` with the scalar parameters of its block, then the given pointers.
template <Op op, class F, int scalars, class... Pointers>
void call(const char* args, Pointers... pointers)
{
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        reinterpret_cast<F*>(glOpTable[indexOf(op)])(parameter<F, i>(args)..., pointers...);
    }
    (std::make_integer_sequence<int, scalars>{});
}

// An array in the block, as the pointer that parameter i of the operation takes.
template <class F, int i>
auto arrayAt(char* at)
{
    using Pointer = typename Signature<F>::template Parameter<i>;
    return reinterpret_cast<Pointer>(at);
}

template <Op op, class F, int bytes>
char* decode(Scalars<bytes>, char* args)
{
    call<op, F, Signature<F>::count>(args);
    return args + bytes;
}

template <Op op, class F, int bytes>
char* decode(FixedArrays<bytes>, char* args)
{
    using S = Signature<F>;
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        call<op, F, S::scalars>(
            args,
            arrayAt<F, S::scalars + i>(args + S::scalarBytes + i * fixedArrayBytes<F, bytes>())...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
    return args + bytes;
}

template <Op op, class F>
char* decode(CountedArrays, char* args)
{
    const std::int64_t count = load<std::int32_t>(args);
    char* array = args + 4;
    if constexpr (Signature<F>::arrays == 1) {
        call<op, F, 1>(args, arrayAt<F, 1>(array));
        return array + count * elementSize<F, 1>();
    } else {
        static_assert(Signature<F>::arrays == 2);
        char* second = array + count * elementSize<F, 1>();
        call<op, F, 1>(args, arrayAt<F, 1>(array), arrayAt<F, 2>(second));
        return second + count * elementSize<F, 2>();
    }
}

template <Op op, class F, const ParamSizes& sizes>
char* decode(ParameterArray<sizes>, char* args)
{
    using S = Signature<F>;
    const GLenum pname = parameter<F, S::scalars - 1>(args);
    if (!findParam(sizes, pname))
        std::fprintf(stderr, "Attention MOSA: unknown enum in %s\n", opNames[indexOf(op)]);
    char* values = args + S::scalarBytes;
    call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(values));
    return values + paramBytes(sizes, pname);
}

template <Op op, class F, Count count, Null null, ScratchBuffer* scratch>
char* decode(DataBlock<count, null, scratch>, char* args)
{
    using S = Signature<F>;
    using Places = DataBlockPlaces<F, count, null>;
    char* data = args + Places::data;
    bool isNull = false;
    if constexpr (Places::flagged)
        isNull = load<std::int32_t>(args + Places::flag) != 0;
    const std::int64_t bytes = isNull ? 0 : dataBytes<F, count>(args, typeSize);
    if constexpr (null == Null::whenEmpty)
        isNull = bytes == 0;

    char* passed = isNull ? nullptr : data;
    if constexpr (scratch != nullptr) {
        if (!isNull) {
            passed = reserve(*scratch, static_cast<int>(bytes), opNames[indexOf(op)]);
            if (bytes > 0)
                std::memcpy(passed, data, static_cast<std::size_t>(bytes));
        } else if constexpr (null == Null::lastArrived)
            passed = scratch->data;
    }
    call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(passed));
    return data + bytes;
}

template <Op op, class F, ScratchBuffer& scratch, Components components, int typeAt>
char* decode(ClientArray<scratch, components, typeAt>, char* args)
{
    using Places = ClientArrayPlaces<F, components, typeAt>;
    const std::int64_t bytes = arrayBytes<F, components, typeAt>(args, typeSize);
    char* data = args + Places::data;
    char* array = reserve(scratch, static_cast<int>(bytes), opNames[indexOf(op)]);
    if (bytes > 0)
        std::memcpy(array, data, static_cast<std::size_t>(bytes));
    constexpr GLsizei packed = 0; // the stride: elements are tightly packed on the wire
    call<op, F, Places::stride>(args, packed, arrayAt<F, Places::stride + 1>(array));
    return data + bytes;
}

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

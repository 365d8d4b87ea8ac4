// The argument decoders as templates, one for each layout, and their use within the walk: an
// operation decoded in place costs one jump instead of three calls, which is most of what there is
// to save. docs/performance.md has the figures.
#pragma once

#include "coding/fromWire.h"

#include <cstdio>

/// Calls operation `op` with the scalar parameters of its block, then the given pointers.
template <Op op, class F, int scalars, class... Pointers>
void call(const char* args, Pointers... pointers)
{
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        reinterpret_cast<F*>(glOpTable[indexOf(op)])(parameter<F, i>(args)..., pointers...);
    }
    (std::make_integer_sequence<int, scalars>{});
}

/// An array in the block, as the pointer that parameter i of the operation takes.
template <class F, int i>
auto arrayAt(char* at)
{
    using Pointer = typename Signature<F>::template Parameter<i>;
    return reinterpret_cast<Pointer>(at);
}

/// Whether a DataBlock's data are kept. g++ 12 takes no address comparison for a constant while it
/// sanitizes, so specialisation tells.
template <ScratchBuffer*>
inline constexpr bool isKept = true;
template <>
inline constexpr bool isKept<nullptr> = false;

// One decoder for each layout.

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
    const ParamSize* size = findParam(sizes, parameter<F, S::scalars - 1>(args));
    if (!size)
        std::fprintf(stderr, "Attention MOSA: unknown enum in %s\n", opNames[indexOf(op)]);
    char* values = args + S::scalarBytes;
    call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(values));
    return values + (size ? size->bytes : sizes.otherwise);
}

/// True when the names that a glCallLists calls lie within the `there` bytes that it has. They have
/// three types of their own. Otherwise says so.
inline bool namesArrived(const char* args, std::int64_t there)
{
    const auto n = load<GLsizei>(args);
    const auto type = load<GLenum>(args + 4);
    const bool own = type == GL_2_BYTES || type == GL_3_BYTES || type == GL_4_BYTES;
    const std::int64_t needed =
        byteCount(n, own ? 2 + static_cast<int>(type - GL_2_BYTES) : elementBytes(type));
    if (needed <= there)
        return true;
    std::fprintf(stderr, "Attention MOSA: glCallLists: %d names need %lld bytes, %lld arrived\n", n,
                 static_cast<long long>(needed), static_cast<long long>(there));
    return false;
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
    if constexpr (isKept<scratch>) {
        if (!isNull) {
            passed = reserve(*scratch, static_cast<int>(bytes), opNames[indexOf(op)]);
            if (bytes > 0)
                std::memcpy(passed, data, static_cast<std::size_t>(bytes));
        } else if constexpr (null == Null::lastArrived)
            passed = scratch->data;
    }
    if constexpr (op == Op::glCallLists) {
        const std::int64_t there = isNull ? scratch->size : bytes;
        if (passed && !namesArrived(args, there))
            return data + bytes;
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

// ---- In the walk -------------------------------------------------------------------------------

/// Performs a record without a call of its decoder, unless that is no longer `own`: an overload
/// library may have put another in its place. Returns the first byte behind the block; null, and
/// nothing is performed, when the block does not lie within `room` or is better left to the
/// decoder.
template <Op op, class F, class Layout>
char* decodeInPlace(Layout layout, glBufOp own, char* args, std::int64_t room)
{
    if (glWrappers[indexOf(op)] == own && blockFits(extentOf<F>(Layout{}), args, room)) [[likely]]
        return decode<op, F>(layout, args);
    return nullptr;
}

// The size is looked up once instead of twice.
template <Op op, class F, const ParamSizes& sizes>
char* decodeInPlace(ParameterArray<sizes>, glBufOp own, char* args, std::int64_t room)
{
    using S = Signature<F>;
    if (glWrappers[indexOf(op)] != own || room < S::scalarBytes) [[unlikely]]
        return nullptr;
    const ParamSize* size = findParam(sizes, parameter<F, S::scalars - 1>(args));
    if (!size || size->bytes > room - S::scalarBytes) [[unlikely]]
        return nullptr;
    char* values = args + S::scalarBytes;
    call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(values));
    return values + size->bytes;
}

// Their decoder always prints something.
template <Op op, class F, int length>
char* decodeInPlace(LengthlessVector<length>, glBufOp, char*, std::int64_t)
{
    return nullptr;
}

/// The same for a decoder that is written by hand: it is called, but directly.
template <Op op, class Layout>
char* callInPlace(Layout layout, glBufOp own, char* args, std::int64_t room)
{
    if (glWrappers[indexOf(op)] == own && blockFits(extentOf<Prototype<op>>(layout), args, room))
        [[likely]]
        return own(args);
    return nullptr;
}

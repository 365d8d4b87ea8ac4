// The argument decoders as templates, one for each layout, and their use within the walk: an
// operation decoded in place costs one jump instead of three calls, which is most of what there is
// to save. docs/performance.md has the figures.
#pragma once

#include "coding/buffer.h"
#include "coding/clientMemory.h"
#include "coding/decoder.h"
#include "coding/fromWire.h"
#include "coding/images.h"

#include <algorithm>

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

/// Values that a parameter of any name has at most: a matrix.
inline constexpr int mostValues = 16;

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
    char* values = args + S::scalarBytes;
    if (!size) {
        std::fprintf(stderr, "Attention MOSA: unknown enum in %s\n", opNames[indexOf(op)]);
        // The library may know the parameter, and read as many values as it has.
        const Supplied supplied = supplyValues(values, mostValues * elementSize<F, S::scalars>());
        call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(supplied.at));
        return values + sizes.otherwise;
    }
    call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(values));
    return values + size->bytes;
}

/// Bytes of the kept data of an operation that it reads.
template <Op op, class F>
std::int64_t keptBytesRead(const char* args)
{
    if constexpr (op == Op::glCallLists)
        return listNameBytes(parameter<F, 0>(args), parameter<F, 1>(args));
    else if constexpr (op == Op::glMap1d || op == Op::glMap1f)
        return elementSize<F, Signature<F>::scalars>() *
               mapValues(parameter<F, 0>(args), parameter<F, 3>(args), parameter<F, 4>(args));
    else {
        static_assert(op == Op::glMap2d || op == Op::glMap2f);
        return elementSize<F, Signature<F>::scalars>() *
               mapValues(parameter<F, 0>(args), parameter<F, 3>(args), parameter<F, 4>(args),
                         parameter<F, 7>(args), parameter<F, 8>(args));
    }
}

/// The data of a block.
struct BlockData {
    char* data;
    std::int64_t bytes;
    bool isNull; // there are none: the operation gets a null pointer
};
template <class F, Count count, Null null>
BlockData dataIn(char* args)
{
    using Places = DataBlockPlaces<F, count, null>;
    bool isNull = false;
    if constexpr (Places::flagged)
        isNull = load<std::int32_t>(args + Places::flag) != 0;
    const std::int64_t bytes = isNull ? 0 : dataBytes<F, count>(args, typeSize);
    if constexpr (null == Null::whenEmpty)
        isNull = bytes == 0;
    return {args + Places::data, bytes, isNull};
}

template <Op op, class F, Count count, Null null, Memory memory>
char* decode(DataBlock<count, null, memory>, char* args)
{
    using S = Signature<F>;
    const auto [data, bytes, isNull] = dataIn<F, count, null>(args);
    char* passed = isNull ? nullptr : data;
    if constexpr (memory != Memory::none)
        if (!isNull)
            passed = keepData(memory, data, static_cast<int>(bytes), opNames[indexOf(op)]);
    if constexpr (null == Null::lastArrived) {
        const Supplied kept = keptData(memory, keptBytesRead<op, F>(args), opNames[indexOf(op)]);
        if (kept.at)
            call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(kept.at));
    } else
        call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(passed));
    return data + bytes;
}

template <Op op, class F, Memory memory, Components components, int typeAt>
char* decode(ClientArray<memory, components, typeAt>, char* args)
{
    using Places = ClientArrayPlaces<F, components, typeAt>;
    const std::int64_t bytes = arrayBytes<F, components, typeAt>(args, typeSize);
    char* data = args + Places::data;
    char* array = keepArray(memory, data, static_cast<int>(bytes),
                            parameter<F, Places::stride>(args), opNames[indexOf(op)]);
    constexpr GLsizei packed = 0; // the stride: elements are tightly packed on the wire
    call<op, F, Places::stride>(args, packed, arrayAt<F, Places::stride + 1>(array));
    return data + bytes;
}

template <Op op, class F, class Layout>
char* decode(Guarded<Layout>, char* args)
{
    if (!mayPerform<op>(args)) [[unlikely]]
        return args + blockBytes(recordExtents[indexOf(op)], args);
    return decode<op, F>(Layout{}, args);
}

template <Op op, class F, int bytes>
char* decode(Padded<FixedArrays<bytes>>, char* args)
{
    static_assert(Signature<F>::count == 1);
    const Supplied pixels = supply(opNames[indexOf(op)], args, bytes, bytesRead<op>(args));
    if (pixels.at)
        call<op, F, 0>(args, arrayAt<F, 0>(pixels.at));
    return args + bytes;
}

template <Op op, class F, Count count, Null null>
char* decode(Padded<DataBlock<count, null>>, char* args)
{
    using S = Signature<F>;
    const auto [data, bytes, isNull] = dataIn<F, count, null>(args);
    if (isNull)
        call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(nullptr));
    else if (const Supplied pixels = supply(opNames[indexOf(op)], data, bytes, bytesRead<op>(args));
             pixels.at)
        call<op, F, S::scalars>(args, arrayAt<F, S::scalars>(pixels.at));
    return data + bytes;
}

template <Op op, class F, class Layout>
char* decode(Noted<Layout>, char* args)
{
    char* const end = decode<op, F>(Layout{}, args);
    notePerformed<op, Layout>(args);
    return end;
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

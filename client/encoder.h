// The client's side of the wire: records of operations, from the same list and layouts as the
// decoders. The arguments are the operation's own parameters, each layout with the differences that
// its functions below state. A record's size is known before a byte of it is written: a caller that
// has the room stores it in place (recordBytes, storeRecord), others append it (encode).
#pragma once

#include "wire/operations.h"

#include <tuple>
#include <vector>

using CommandBuffer = std::vector<unsigned char>;

/// The block of memory of an operation that takes one: where, and how many elements (bytes when it
/// is untyped). A null address sets the record's null flag, where it has one.
struct Block {
    const void* data;
    int count;
};

namespace encoding {

inline unsigned char* storeBytes(unsigned char* at, const void* data, std::int64_t bytes)
{
    if (bytes > 0)
        std::memcpy(at, data, static_cast<std::size_t>(bytes));
    return at + bytes;
}

/// The first `n` parameters of prototype F, from the first `n` arguments, at their offsets.
template <class F, int n, class Arguments>
unsigned char* storeScalars(unsigned char* at, const Arguments& arguments)
{
    using S = Signature<F>;
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        (toWire(at + S::offsets[i],
                static_cast<typename S::template Parameter<i>>(std::get<i>(arguments))),
         ...);
    }
    (std::make_integer_sequence<int, n>{});
    return at + S::offsets[n];
}

// For each layout, the bytes of a block and the block itself.

/// Scalars only: the operation's parameters. Handles may be given as numbers of 32 bits through
/// appHandle.
template <class F, int bytes, class... A>
constexpr std::int64_t sizeOf(Scalars<bytes>, const A&...)
{
    static_assert(sizeof...(A) == Signature<F>::count);
    return bytes;
}
template <class F, int bytes, class... A>
unsigned char* put(Scalars<bytes>, unsigned char* at, const A&... a)
{
    return storeScalars<F, Signature<F>::count>(at, std::tie(a...));
}

/// The operation's parameters; each array is copied from its address.
template <class F, int bytes, class... A>
constexpr std::int64_t sizeOf(FixedArrays<bytes>, const A&...)
{
    static_assert(sizeof...(A) == Signature<F>::count);
    return bytes;
}
template <class F, int bytes, class... A>
unsigned char* put(FixedArrays<bytes>, unsigned char* at, const A&... a)
{
    using S = Signature<F>;
    const auto given = std::tie(a...);
    at = storeScalars<F, S::scalars>(at, given);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        ((at = storeBytes(at, std::get<S::scalars + i>(given), fixedArrayBytes<F, bytes>())), ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
    return at;
}

/// The count, then the address of each array.
template <class F, class... A>
std::int64_t sizeOf(CountedArrays, GLsizei n, const A&...)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::arrays);
    return [n]<int... i>(std::integer_sequence<int, i...>)
    {
        return 4 + std::int64_t{n} * (elementSize<F, 1 + i>() + ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
}
template <class F, class... A>
unsigned char* put(CountedArrays, unsigned char* at, GLsizei n, const A&... a)
{
    using S = Signature<F>;
    const auto given = std::tie(a...);
    at = storeBytes(at, &n, 4);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        ((at = storeBytes(at, std::get<i>(given), std::int64_t{n} * elementSize<F, 1 + i>())), ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
    return at;
}

/// The operation's parameters; as much of the array is copied as the pname takes.
template <class F, const ParamSizes& sizes, class Arguments>
int paramBytesOf(const Arguments& given)
{
    return paramBytes(sizes, static_cast<GLenum>(std::get<Signature<F>::scalars - 1>(given)));
}
template <class F, const ParamSizes& sizes, class... A>
std::int64_t sizeOf(ParameterArray<sizes>, const A&... a)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::count);
    return S::scalarBytes + paramBytesOf<F, sizes>(std::tie(a...));
}
template <class F, const ParamSizes& sizes, class... A>
unsigned char* put(ParameterArray<sizes>, unsigned char* at, const A&... a)
{
    using S = Signature<F>;
    const auto given = std::tie(a...);
    at = storeScalars<F, S::scalars>(at, given);
    return storeBytes(at, std::get<S::scalars>(given), paramBytesOf<F, sizes>(given));
}

/// The operation's scalars, then a Block. Where the scalars hold the count, they decide.
template <class F, Count count, class Arguments>
std::int64_t blockDataBytes(const Arguments& given)
{
    using S = Signature<F>;
    const Block block = std::get<S::scalars>(given);
    if (!block.data)
        return 0;
    if constexpr (count == Count::behindScalars)
        return std::int64_t{block.count} * elementSize<F, S::scalars>();
    else {
        unsigned char head[S::scalarBytes];
        storeScalars<F, S::scalars>(head, given);
        return dataBytes<F, count>(reinterpret_cast<const char*>(head), elementBytes);
    }
}
template <class F, Count count, Null null, Memory memory, class... A>
std::int64_t sizeOf(DataBlock<count, null, memory>, const A&... a)
{
    static_assert(sizeof...(A) == Signature<F>::count);
    return DataBlockPlaces<F, count, null>::data + blockDataBytes<F, count>(std::tie(a...));
}
template <class F, Count count, Null null, Memory memory, class... A>
unsigned char* put(DataBlock<count, null, memory>, unsigned char* at, const A&... a)
{
    using S = Signature<F>;
    using Places = DataBlockPlaces<F, count, null>;
    const auto given = std::tie(a...);
    const Block block = std::get<S::scalars>(given);
    storeScalars<F, S::scalars>(at, given);
    if constexpr (count == Count::behindScalars)
        store(at + Places::count_, block.data ? block.count : 0);
    if constexpr (Places::flagged)
        store(at + Places::flag, block.data ? 0 : 1);
    return storeBytes(at + Places::data, block.data, blockDataBytes<F, count>(given));
}

/// The operation's parameters with the number of elements in the stride's place; the elements are
/// copied from the address, tightly packed.
template <class F, Components components, int typeAt, class Arguments>
std::int64_t clientArrayBytes(const Arguments& given)
{
    using S = Signature<F>;
    unsigned char head[S::offsets[S::count - 1]];
    storeScalars<F, S::count - 1>(head, given);
    return arrayBytes<F, components, typeAt>(reinterpret_cast<const char*>(head), elementBytes);
}
template <class F, Memory memory, Components components, int typeAt, class... A>
std::int64_t sizeOf(ClientArray<memory, components, typeAt>, const A&... a)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::count);
    return S::offsets[S::count - 1] + clientArrayBytes<F, components, typeAt>(std::tie(a...));
}
template <class F, Memory memory, Components components, int typeAt, class... A>
unsigned char* put(ClientArray<memory, components, typeAt>, unsigned char* at, const A&... a)
{
    using S = Signature<F>;
    const auto given = std::tie(a...);
    at = storeScalars<F, S::count - 1>(at, given);
    return storeBytes(at, std::get<S::count - 1>(given),
                      clientArrayBytes<F, components, typeAt>(given));
}

/// The operation's parameters.
template <class F, int length, class First, class T>
std::int64_t sizeOf(LengthlessVector<length>, const First& first, const T*)
{
    static_assert(length != unknowable, "nothing says how long the vector is");
    return 4 + vectorBytes<F, length>(reinterpret_cast<const char*>(&first));
}
template <class F, int length, class First, class T>
unsigned char* put(LengthlessVector<length>, unsigned char* at, const First& first, const T* vector)
{
    const std::int64_t bytes = vectorBytes<F, length>(reinterpret_cast<const char*>(&first));
    return storeBytes(storeScalars<F, 1>(at, std::tie(first)), vector, bytes);
}

/// The block, as a record of the type that blocks.def names.
template <class, class Fields>
std::int64_t sizeOf(HandWritten<Fields>, const Fields& block)
{
    return blockBytes(block);
}
template <class, class Fields>
unsigned char* put(HandWritten<Fields>, unsigned char* at, const Fields& block)
{
    return storeBlock(at, block);
}

template <class>
constexpr std::int64_t sizeOf(Refused)
{
    return 0;
}
template <class>
unsigned char* put(Refused, unsigned char* at)
{
    return at;
}
template <class>
constexpr std::int64_t sizeOf(Ignored)
{
    return 0;
}
template <class>
unsigned char* put(Ignored, unsigned char* at)
{
    return at;
}

// The prototype of an operation, where it is performed.
template <Op op>
constexpr auto prototypeOrVoid()
{
    if constexpr (requires { typename PrototypeOf<op>::Type; })
        return std::type_identity<Prototype<op>>{};
    else
        return std::type_identity<void>{};
}
template <Op op>
using PrototypeOrVoid = typename decltype(prototypeOrVoid<op>())::type;

} // namespace encoding

/// Bytes of a record, its opcode included.
template <Op op, class... A>
std::int64_t recordBytes(const A&... a)
{
    return opcodeBytes + encoding::sizeOf<encoding::PrototypeOrVoid<op>>(Layout<op>{}, a...);
}

/// Stores a record in recordBytes bytes and returns the first byte behind it.
template <Op op, class... A>
unsigned char* storeRecord(unsigned char* at, const A&... a)
{
    store(at, static_cast<std::uint16_t>(op));
    return encoding::put<encoding::PrototypeOrVoid<op>>(Layout<op>{}, at + opcodeBytes, a...);
}

/// Appends one record.
template <Op op, class... A>
void encode(CommandBuffer& out, const A&... a)
{
    const std::size_t start = out.size();
    out.resize(start + static_cast<std::size_t>(recordBytes<op>(a...)));
    storeRecord<op>(out.data() + start, a...);
}

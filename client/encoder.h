// The client's side of the wire: appends records of operations to a command buffer, from the same
// list and layouts as the decoders. encode<Op::NAME>(buffer, arguments...) takes the operation's
// own parameters, each layout with the differences that its overload below states.
#pragma once

#include "coding/fromWire.h"

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using CommandBuffer = std::vector<unsigned char>;

/// The block of memory of an operation that takes one: where, and how many elements (bytes when it
/// is untyped). A null address sets the record's null flag, where it has one.
struct Block {
    const void* data;
    int count;
};

namespace encoding {

inline void appendBytes(CommandBuffer& out, const void* data, std::int64_t bytes)
{
    const auto* from = static_cast<const unsigned char*>(data);
    out.insert(out.end(), from, from + bytes);
}

template <class T>
void appendValue(CommandBuffer& out, T value)
{
    out.resize(out.size() + wireSize<T>);
    toWire(out.data() + out.size() - wireSize<T>, value);
}

/// The first `n` parameters of prototype F, from the first `n` arguments.
template <class F, int n, class Arguments>
void appendScalars(CommandBuffer& out, const Arguments& arguments)
{
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        (appendValue(out, static_cast<typename Signature<F>::template Parameter<i>>(
                              std::get<i>(arguments))),
         ...);
    }
    (std::make_integer_sequence<int, n>{});
}

/// Scalars only: the operation's parameters. Handles may be given as numbers of 32 bits through
/// appHandle.
template <class F, int bytes, class... A>
void arguments(Scalars<bytes>, CommandBuffer& out, A... a)
{
    static_assert(sizeof...(A) == Signature<F>::count);
    appendScalars<F, Signature<F>::count>(out, std::tuple(a...));
}

/// The operation's parameters; each array is copied from its address.
template <class F, int bytes, class... A>
void arguments(FixedArrays<bytes>, CommandBuffer& out, A... a)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::count);
    const std::tuple given(a...);
    appendScalars<F, S::scalars>(out, given);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        (appendBytes(out, std::get<S::scalars + i>(given), fixedArrayBytes<F, bytes>()), ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
}

/// The count, then the address of each array.
template <class F, class... A>
void arguments(CountedArrays, CommandBuffer& out, GLsizei n, A... a)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::arrays);
    appendValue(out, n);
    const std::tuple given(a...);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        (appendBytes(out, std::get<i>(given), std::int64_t{n} * elementSize<F, 1 + i>()), ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
}

/// The operation's parameters; as much of the array is copied as the pname takes.
template <class F, const ParamSizes& sizes, class... A>
void arguments(ParameterArray<sizes>, CommandBuffer& out, A... a)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::count);
    const std::tuple given(a...);
    appendScalars<F, S::scalars>(out, given);
    appendBytes(out, std::get<S::scalars>(given),
                paramBytes(sizes, static_cast<GLenum>(std::get<S::scalars - 1>(given))));
}

/// The operation's scalars, then a Block. Where the scalars hold the count, they decide.
template <class F, Count count, Null null, ScratchBuffer* scratch, class... A>
void arguments(DataBlock<count, null, scratch>, CommandBuffer& out, A... a)
{
    using S = Signature<F>;
    using Places = DataBlockPlaces<F, count, null>;
    static_assert(sizeof...(A) == S::count);
    const std::tuple given(a...);
    const Block block = std::get<S::scalars>(given);
    const std::size_t start = out.size();
    appendScalars<F, S::scalars>(out, given);
    if constexpr (count == Count::behindScalars)
        appendValue(out, block.data ? block.count : 0);
    if constexpr (Places::flagged)
        appendValue(out, block.data ? 0 : 1);
    if (block.data) {
        const auto* args = reinterpret_cast<const char*>(out.data() + start);
        appendBytes(out, block.data, dataBytes<F, count>(args, elementBytes));
    }
}

/// The operation's parameters with the number of elements in the stride's place; the elements are
/// copied from the address, tightly packed.
template <class F, ScratchBuffer& scratch, Components components, int typeAt, class... A>
void arguments(ClientArray<scratch, components, typeAt>, CommandBuffer& out, A... a)
{
    using S = Signature<F>;
    static_assert(sizeof...(A) == S::count);
    const std::tuple given(a...);
    const std::size_t start = out.size();
    appendScalars<F, S::count - 1>(out, given);
    const auto* args = reinterpret_cast<const char*>(out.data() + start);
    const std::int64_t bytes = arrayBytes<F, components, typeAt>(args, elementBytes);
    appendBytes(out, std::get<S::count - 1>(given), bytes);
}

/// The operation's parameters.
template <class F, int length, class First, class T>
void arguments(LengthlessVector<length>, CommandBuffer& out, First first, const T* vector)
{
    static_assert(length != unknowable, "nothing says how long the vector is");
    appendScalars<F, 1>(out, std::tuple(first));
    appendBytes(out, vector, vectorBytes<F, length>(reinterpret_cast<const char*>(&first)));
}

inline void appendField(CommandBuffer& out, std::string_view bytes)
{
    appendBytes(out, bytes.data(), static_cast<std::int64_t>(bytes.size()));
}

inline void appendField(CommandBuffer& out, std::span<const int> words)
{
    appendBytes(out, words.data(), static_cast<std::int64_t>(words.size_bytes()));
}

template <class T>
requires(sizeof(T) == 4) void appendField(CommandBuffer& out, T word) { appendValue(out, word); }

/// The fields of the block as the decoder reads them: values of 4 bytes, words, bytes.
template <class F, int head, std::int64_t (*rest)(const char*), class... A>
void arguments(HandWritten<head, rest> layout, CommandBuffer& out, A... a)
{
    const std::size_t start = out.size();
    (appendField(out, a), ...);
    const auto length = static_cast<std::int64_t>(out.size() - start);
    const Extent extent = extentOf<F>(layout);
    const auto* args = reinterpret_cast<const char*>(out.data() + start);
    if (!blockFits(extent, args, length) ||
        length != extent.head + (extent.rest ? extent.rest(args) : 0))
        throw std::invalid_argument("the fields do not make up the operation's block");
}

template <class>
void arguments(Refused, CommandBuffer&)
{
}
template <class>
void arguments(Ignored, CommandBuffer&)
{
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

} // namespace encoding

/// Appends one record. Throws std::invalid_argument when the fields of a block that is read by hand
/// do not make up a whole one.
template <Op op, class... A>
void encode(CommandBuffer& out, A... a)
{
    using F = typename decltype(encoding::prototypeOrVoid<op>())::type;
    encoding::appendValue(out, static_cast<std::uint16_t>(op));
    encoding::arguments<F>(Layout<op>{}, out, a...);
}

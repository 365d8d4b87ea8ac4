// How the arguments of an operation travel: the layouts that operations.def names, and the extent
// of a record of each. A layout says only what the operation's prototype does not; parameters come
// in the order of the prototype, each in its wire width.
#pragma once

#include "wire/blocks.h"
#include "wire/paramSizes.h"

#include <array>
#include <tuple>
#include <utility>

// ---- The layouts -------------------------------------------------------------------------------

/// Scalar parameters only, handles included.
template <int bytes>
struct Scalars {
};

/// Scalars, then arrays of fixed length, which share the rest of the block evenly.
template <int bytes>
struct FixedArrays {
};

/// A count n, then for each array parameter n elements.
struct CountedArrays {};

/// Scalars ending with a pname, then the parameters, as many as the pname takes.
template <const ParamSizes& sizes>
struct ParameterArray {
};

/// How many elements the data of a DataBlock holds.
enum class Count {
    behindScalars, // a 4-byte count of its own follows the scalars
    firstScalar,
    lastScalar,
    indexList, // the last two scalars are the count and the type
};

/// When a DataBlock's pointer is null.
enum class Null {
    never,
    whenEmpty,   // when the count is 0
    byFlag,      // when the 4-byte flag before the data is set, and then no data follow
    lastArrived, // by flag too, but the operation gets the last data that arrived, if any
};

/// Which memory of the application the data of a block stand for, where OpenGL or a later record
/// uses them after the record is gone: whoever performs it keeps them. One for each kind of client
/// array, so that arrays of different kinds are alive together.
enum class Memory {
    none, // used at once
    vertex,
    normal,
    color,
    index,
    texCoord,
    edgeFlag,
    fogCoord,
    secondaryColor,
    weight,
    matrixIndex,
    vertexAttrib, // of all attributes
    listNames,
    map1d,
    map1f,
    map2d,
    map2f,
    feedback,
};
inline constexpr int memoryKinds = static_cast<int>(Memory::feedback) + 1;

/// Scalars, then one block of data.
template <Count count, Null null, Memory memory = Memory::none>
struct DataBlock {
};

/// Values in one element of a client array.
enum class Components { one, three, bySize, untyped };

/// The parameters of a client-array pointer with the number of elements in place of the stride,
/// then the elements, tightly packed. `typeAt` is the index of the type parameter; by default it
/// is the one before the stride. Arrays `bySize` have the size before the type.
template <Memory memory, Components components, int typeAt = -1>
struct ClientArray {
};

/// One parameter and a vector for which the stream carries no length. A positive `length` is the
/// number of elements that the operation's name or definition gives.
template <int length>
struct LengthlessVector {
};
inline constexpr int byCount = 0;           // the first parameter counts the elements
inline constexpr int byPointParameter = -1; // the first parameter is a point parameter's name
inline constexpr int unknowable = -2;       // nothing tells: the record has no end

/// A block that carries more than its operation's parameters: its fields are listed in blocks.def.
template <class Block>
struct HandWritten {
};

/// A layout whose operation makes OpenGL read client arrays. Whoever performs it sees to it that
/// every enabled one has an address, and that the draw is not absurdly large.
template <class Layout>
struct Guarded : Layout {
};

/// A layout whose operation makes OpenGL read pixels under the unpack state, which may be more than
/// the record brings. Whoever performs it adds zeros behind those that arrived.
template <class Layout>
struct Padded : Layout {
};

/// A layout whose operation may change which client arrays are enabled or have an address, or how
/// pixels are unpacked.
template <class Layout>
struct Noted : Layout {
};

/// Queries that the client answers itself: an empty block, and a message.
struct Refused {};

/// Nothing is performed, an empty block.
struct Ignored {};

// ---- Parameters of a prototype -----------------------------------------------------------------

template <class F>
struct Signature;

/// What the layouts need of a prototype R(P...): the parameters, how many of the last are arrays
/// (pointers), and where each parameter would stand if all were scalars.
template <class R, class... P>
struct Signature<R(P...)> {
    static constexpr int count = sizeof...(P);
    template <int i>
    using Parameter = std::tuple_element_t<i, std::tuple<P...>>;

    static constexpr std::array<int, count + 1> offsets = [] {
        std::array<int, count + 1> at{};
        [[maybe_unused]] int i = 0;
        ((at[i + 1] = at[i] + wireSize<P>, ++i), ...);
        return at;
    }();

    static constexpr int arrays = [] {
        int trailing = 0;
        ((trailing = std::is_pointer_v<P> ? trailing + 1 : 0), ...);
        return trailing;
    }();
    static constexpr int scalars = count - arrays;
    static constexpr int scalarBytes = offsets[scalars];
};

/// Bytes of one element behind an array parameter; untyped memory counts bytes.
template <class F, int parameter>
constexpr int elementSize()
{
    using Element = std::remove_pointer_t<typename Signature<F>::template Parameter<parameter>>;
    if constexpr (std::is_void_v<Element>)
        return 1;
    else
        return sizeof(Element);
}

/// Reads scalar parameter i of a block.
template <class F, int i>
auto parameter(const char* args)
{
    using Type = typename Signature<F>::template Parameter<i>;
    return fromWire<Type>(args + Signature<F>::offsets[i]);
}

// ---- Extents -----------------------------------------------------------------------------------

/// The length of an operation's argument block: `head` bytes, then what `rest` computes from them
/// (null: nothing). A negative result stands for a count that is negative or beyond all bounds.
struct Extent {
    int head;
    std::int64_t (*rest)(const char* args);
};

/// Bytes of the block at `args`, which lies wholly within its buffer.
inline std::int64_t blockBytes(const Extent& extent, const char* args)
{
    return extent.head + (extent.rest ? extent.rest(args) : 0);
}

/// True when the block at `args` lies wholly within `room` bytes.
inline bool blockFits(const Extent& extent, const char* args, std::int64_t room)
{
    if (extent.head > room)
        return false;
    if (!extent.rest)
        return true;
    const std::int64_t rest = extent.rest(args);
    return rest >= 0 && rest <= room - extent.head;
}

template <class F, int bytes>
constexpr Extent extentOf(Scalars<bytes>)
{
    static_assert(Signature<F>::offsets[Signature<F>::count] == bytes);
    return {bytes, nullptr};
}

/// Bytes of one of the arrays of a FixedArrays block.
template <class F, int bytes>
constexpr int fixedArrayBytes()
{
    using S = Signature<F>;
    static_assert(S::arrays > 0 && bytes > S::scalarBytes);
    constexpr int each = (bytes - S::scalarBytes) / S::arrays;
    static_assert(each * S::arrays == bytes - S::scalarBytes);
    static_assert(each % elementSize<F, S::scalars>() == 0);
    return each;
}

template <class F, int bytes>
constexpr Extent extentOf(FixedArrays<bytes>)
{
    static_assert(fixedArrayBytes<F, bytes>() > 0);
    return {bytes, nullptr};
}

template <class F>
constexpr Extent extentOf(CountedArrays)
{
    using S = Signature<F>;
    static_assert(S::scalarBytes == 4 && S::arrays > 0);
    return {4, [](const char* args) {
                return []<int... i>(const char* at, std::integer_sequence<int, i...>)
                {
                    return byteCount(load<std::int32_t>(at), (elementSize<F, 1 + i>() + ...));
                }
                (args, std::make_integer_sequence<int, S::arrays>{});
            }};
}

template <class F, const ParamSizes& sizes>
constexpr Extent extentOf(ParameterArray<sizes>)
{
    using S = Signature<F>;
    static_assert(S::arrays == 1);
    return {S::scalarBytes, [](const char* args) {
                return std::int64_t{paramBytes(sizes, parameter<F, S::scalars - 1>(args))};
            }};
}

/// Where the bookkeeping of a DataBlock stands behind its scalars.
template <class F, Count count, Null null>
struct DataBlockPlaces {
    static constexpr int count_ = Signature<F>::scalarBytes;
    static constexpr int flag = count_ + (count == Count::behindScalars ? 4 : 0);
    static constexpr bool flagged = null == Null::byFlag || null == Null::lastArrived;
    static constexpr int data = flag + (flagged ? 4 : 0);
};

/// Bytes of a DataBlock's data, were they there: `unit` gives the size of an index type.
template <class F, Count count, class Unit>
std::int64_t dataBytes(const char* args, Unit unit)
{
    using S = Signature<F>;
    static_assert(S::arrays == 1);
    constexpr int size = elementSize<F, S::scalars>();
    if constexpr (count == Count::behindScalars)
        return byteCount(load<std::int32_t>(args + S::scalarBytes), size);
    else if constexpr (count == Count::firstScalar)
        return byteCount(parameter<F, 0>(args), size);
    else if constexpr (count == Count::lastScalar)
        return byteCount(parameter<F, S::scalars - 1>(args), size);
    else
        return byteCount(parameter<F, S::scalars - 2>(args),
                         unit(parameter<F, S::scalars - 1>(args)));
}

template <class F, Count count, Null null, Memory memory>
constexpr Extent extentOf(DataBlock<count, null, memory>)
{
    using Places = DataBlockPlaces<F, count, null>;
    return {Places::data, [](const char* args) -> std::int64_t {
                if constexpr (Places::flagged)
                    if (load<std::int32_t>(args + Places::flag) != 0)
                        return 0;
                return dataBytes<F, count>(args, elementBytes);
            }};
}

/// Places in a ClientArray's block: the parameters with the count in the stride's place.
template <class F, Components components, int typeAt>
struct ClientArrayPlaces {
    using S = Signature<F>;
    static constexpr int stride = S::count - 2;
    static constexpr int type = typeAt >= 0 ? typeAt : stride - 1;
    static constexpr int data = S::offsets[stride + 1];
};

/// Bytes of a client array's elements: `unit` gives the size of its type.
template <class F, Components components, int typeAt, class Unit>
std::int64_t arrayBytes(const char* args, Unit unit)
{
    using Places = ClientArrayPlaces<F, components, typeAt>;
    const std::int32_t count = parameter<F, Places::stride>(args);
    if constexpr (components == Components::untyped)
        return byteCount(count, 1);
    else {
        std::int32_t values = components == Components::three ? 3 : 1;
        if constexpr (components == Components::bySize)
            values = parameter<F, Places::type - 1>(args);
        return byteCount(count, values, unit(parameter<F, Places::type>(args)));
    }
}

template <class F, Memory memory, Components components, int typeAt>
constexpr Extent extentOf(ClientArray<memory, components, typeAt>)
{
    return {ClientArrayPlaces<F, components, typeAt>::data,
            [](const char* args) { return arrayBytes<F, components, typeAt>(args, elementBytes); }};
}

/// Bytes of a vector for which the stream carries no length.
template <class F, int length>
std::int64_t vectorBytes(const char* args)
{
    constexpr int size = elementSize<F, 1>();
    if constexpr (length > 0)
        return length * size;
    else if constexpr (length == byCount)
        return byteCount(load<std::int32_t>(args), size);
    else
        return load<GLenum>(args) == GL_POINT_DISTANCE_ATTENUATION ? 3 * size : size;
}

template <class F, int length>
constexpr Extent extentOf(LengthlessVector<length>)
{
    static_assert(Signature<F>::count == 2 && Signature<F>::scalarBytes == 4);
    if constexpr (length == unknowable)
        return {4, nullptr};
    else
        return {4, vectorBytes<F, length>};
}

template <class, class Block>
constexpr Extent extentOf(HandWritten<Block>)
{
    return {headBytes<Block>(), hasVariableField<Block>() ? restBytes<Block> : nullptr};
}

template <class>
constexpr Extent extentOf(Refused)
{
    return {0, nullptr};
}
template <class>
constexpr Extent extentOf(Ignored)
{
    return {0, nullptr};
}

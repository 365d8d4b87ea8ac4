// Unaligned values of the command stream, and memory that outlives a command buffer.
//
// Every value travels in the width of its type, little-endian, packed without padding. X and GLX
// handles, X resource IDs and application pointers are the application's own 32-bit values whatever
// their width on this host.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

/// Reads or writes one value at any address.
template <class T>
T load(const void* at)
{
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <class T>
void store(void* at, T value)
{
    std::memcpy(at, &value, sizeof value);
}

/// True for parameters that carry a 32-bit value of the application although the C type is wider
/// here: pointers, and unsigned long (XID, VisualID, attribute and event masks).
template <class T>
inline constexpr bool isAppHandle = std::is_pointer_v<T> || std::is_same_v<T, unsigned long>;

/// Bytes of one value of type T on the wire.
template <class T>
inline constexpr int wireSize = isAppHandle<T> ? 4 : int{sizeof(T)};

/// An application handle as the type in which the operation takes it; it stays a mere number.
template <class T>
T appHandle(std::uint32_t value)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(static_cast<std::uintptr_t>(value));
    else
        return value;
}

/// Reads one parameter of type T.
template <class T>
T fromWire(const void* at)
{
    if constexpr (isAppHandle<T>)
        return appHandle<T>(load<std::uint32_t>(at));
    else
        return load<T>(at);
}

/// Writes one parameter of type T; the upper half of a handle is dropped.
template <class T>
void toWire(void* at, T value)
{
    if constexpr (std::is_pointer_v<T>)
        store(at, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value)));
    else if constexpr (isAppHandle<T>)
        store(at, static_cast<std::uint32_t>(value));
    else
        store(at, value);
}

/// Product of counts and sizes from the wire; negative when a factor is negative or the product
/// does not fit. No stream is that long, so callers treat both as a record that does not fit.
inline std::int64_t byteCount(std::int64_t a, std::int64_t b, std::int64_t c = 1)
{
    std::int64_t product = 0;
    if (a < 0 || b < 0 || c < 0 || __builtin_mul_overflow(a, b, &product) ||
        __builtin_mul_overflow(product, c, &product))
        return -1;
    return product;
}

/// Memory that OpenGL or a decoder keeps using after its command buffer has gone back to the pool.
/// It grows to exactly what the largest record needed and is never released.
struct ScratchBuffer {
    const char* name; // for the message when it cannot grow
    char* data = nullptr;
    int size = 0;
};

// One buffer for each kind of client array, so that arrays of different kinds are alive together;
// all attribute indices share vAbuf.
inline ScratchBuffer vBuf{"vBuf"}, nBuf{"nBuf"}, cBuf{"cBuf"}, iBuf{"iBuf"}, tBuf{"tBuf"},
    eBuf{"eBuf"}, fBuf{"fBuf"}, scBuf{"scBuf"}, wBuf{"wBuf"}, mIbuf{"mIbuf"}, vAbuf{"vAbuf"};

// The last list names and control points that arrived, for later calls that carry none.
inline ScratchBuffer listsBuf{"lists"}, map1dBuf{"points"}, map1fBuf{"points"}, map2dBuf{"points"},
    map2fBuf{"points"};

// OpenGL writes feedback values until the render mode changes, long after the record is gone.
inline ScratchBuffer feedbackBuf{"feedback"};

/// Makes `scratch` hold at least `bytes` bytes (its contents are lost when it grows) and returns
/// its data. Ends the process, naming the buffer and the decoder of `operation`, without memory.
char* reserve(ScratchBuffer& scratch, int bytes, const char* operation);

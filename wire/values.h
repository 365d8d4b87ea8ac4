// Unaligned values of the command stream.
//
// Every value travels in the width of its type, little-endian, packed without padding. X and GLX
// handles, X resource IDs and application pointers are the application's own 32-bit values whatever
// their width on this host.
#pragma once

#include "wire/prototypes.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

static_assert(std::endian::native == std::endian::little, "the stream is read as it stands");

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

/// The number of an application handle; the upper half of the parameter's type is dropped.
template <class T>
std::uint32_t appNumber(T handle)
{
    static_assert(isAppHandle<T>);
    if constexpr (std::is_pointer_v<T>)
        return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
    else
        return static_cast<std::uint32_t>(handle);
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

/// Writes one parameter of type T.
template <class T>
void toWire(void* at, T value)
{
    if constexpr (isAppHandle<T>)
        store(at, appNumber(value));
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

/// Bytes of one element of an OpenGL data type; 4 for a type that is none.
constexpr int elementBytes(GLenum type)
{
    switch (type) {
    case GL_BYTE:
    case GL_UNSIGNED_BYTE:
        return 1;
    case GL_SHORT:
    case GL_UNSIGNED_SHORT:
        return 2;
    case GL_DOUBLE:
        return 8;
    default:
        return 4;
    }
}

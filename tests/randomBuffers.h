// Command buffers whose sizes and bytes follow from their number alone, so that the client can make
// them and an overload library on every server can tell each byte. A buffer is records without
// effect: from 14 bytes on one glProgramStringARB, below that as many of 2 and 3 bytes as fill it.
// A single byte is no record; the server reports it, and nothing of it can be checked.
#pragma once

#include "coding/buffer.h"
#include "coding/wire.h"

#include <cmath>
#include <random>
#include <vector>

namespace randomBuffers {

constexpr int largest = 5'000'000;
constexpr int programHead = 14; // opcode, target, format and length of a glProgramStringARB

constexpr Op withoutArguments[] = {Op::glFinish, Op::glFlush, Op::glEnd, Op::glEndList};

// Sizes around every limit come first.
constexpr int firstSizes[] = {1,      2, 3,         4,         5,         6,         7,
                              8,      9, 13,        14,        15,        23,        100,
                              65'537, 1, 1'999'999, 2'000'000, 2'000'001, 5'000'000, 4'999'999};

/// Every order of magnitude from 1 byte to the largest is equally frequent.
inline int sizeOf(int number)
{
    if (number < static_cast<int>(std::size(firstSizes)))
        return firstSizes[number];
    std::mt19937 random(static_cast<unsigned>(number));
    std::uniform_real_distribution<double> exponent(0, std::log(1.0 * largest));
    return static_cast<int>(std::exp(exponent(random)));
}

/// Not 0 where the client asks for an acknowledgement; any number will do.
inline int syncOf(int number) { return number % 3 == 0 ? (number % 2 ? -1 : 7) : 0; }

inline std::vector<unsigned char> bytesOf(int number)
{
    const int size = sizeOf(number);
    std::mt19937 random(static_cast<unsigned>(number));
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    if (size >= programHead) {
        store(bytes.data(), Op::glProgramStringARB);
        store(bytes.data() + programHead - sizeof(int), size - programHead);
        return bytes;
    }
    if (size > 1 && size % 2)
        store(bytes.data(), Op::glEdgeFlag); // and its one byte of arguments
    for (int at = size % 2 ? 3 : 0; at < size; at += 2)
        store(bytes.data() + at, withoutArguments[random() % std::size(withoutArguments)]);
    return bytes;
}

} // namespace randomBuffers

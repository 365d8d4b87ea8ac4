// Command buffers whose sizes and bytes follow from their number alone, so that the client can make
// them and an overload library on every server can tell each byte. A buffer is records without
// effect: from 14 bytes on one glProgramStringARB, below that as many of 2 and 3 bytes as fill it.
// A single byte is no record; the server reports it, and nothing of it can be checked.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace randomBuffers {

constexpr int largest = 5'000'000;
constexpr int programHead = 14; // opcode, target, format and length of a glProgramStringARB

// Opcodes.
constexpr int programString = 583;
constexpr int edgeFlag = 17;              // one byte of arguments
constexpr int plain[] = {40, 41, 75, 70}; // glFinish, glFlush, glEnd, glEndList: none

// Sizes around every limit come first.
constexpr int firstSizes[] = {1,      2, 3,         4,         5,         6,         7,
                              8,      9, 13,        14,        15,        23,        100,
                              65'537, 1, 1'999'999, 2'000'000, 2'000'001, 5'000'000, 4'999'999};

struct Plan {
    std::vector<unsigned char> noise; // where the bytes of all buffers come from
};

inline Plan makePlan()
{
    Plan plan;
    plan.noise.resize(2 * largest);
    std::mt19937_64 random(1);
    for (std::size_t i = 0; i + 8 <= plan.noise.size(); i += 8) {
        const std::uint64_t word = random();
        std::memcpy(plan.noise.data() + i, &word, sizeof word);
    }
    return plan;
}

/// The generator that decides about one buffer.
inline std::mt19937 generator(int number) { return std::mt19937(static_cast<unsigned>(number)); }

/// Every order of magnitude from 1 byte to the largest is equally frequent.
inline int sizeOf(int number)
{
    if (number < static_cast<int>(std::size(firstSizes)))
        return firstSizes[number];
    auto random = generator(number);
    std::uniform_real_distribution<double> exponent(0, std::log(1.0 * largest));
    return static_cast<int>(std::exp(exponent(random)));
}

/// Not 0 where the client asks for an acknowledgement; any number will do.
inline int syncOf(int number) { return number % 3 == 0 ? (number % 2 ? -1 : 7) : 0; }

inline std::vector<unsigned char> bytesOf(const Plan& plan, int number)
{
    const int size = sizeOf(number);
    auto random = generator(number);
    std::vector<unsigned char> bytes;
    const auto append = [&bytes](std::uint32_t value, int width) {
        for (int i = 0; i < width; ++i)
            bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    };
    if (size < programHead) {
        if (size % 2) {
            append(edgeFlag, size == 1 ? 1 : 2);
            if (size > 1)
                append(static_cast<std::uint32_t>(random()), 1);
        }
        while (static_cast<int>(bytes.size()) < size)
            append(static_cast<std::uint32_t>(plain[random() % std::size(plain)]), 2);
        return bytes;
    }
    const int length = size - programHead;
    append(programString, 2);
    append(static_cast<std::uint32_t>(number), 4);
    append(static_cast<std::uint32_t>(random()), 4);
    append(static_cast<std::uint32_t>(length), 4);
    const unsigned char* from = plan.noise.data() + random() % largest;
    bytes.insert(bytes.end(), from, from + length);
    return bytes;
}

} // namespace randomBuffers

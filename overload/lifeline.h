// What a server says over its lifeline, once, in its own byte order.
#pragma once

#include <cstdint>

inline constexpr std::uint32_t lifelineMark = 0x4546494c; // "LIFE"

struct LifelineHello {
    std::uint32_t mark;
    std::int32_t server; // its number
    std::int32_t pid;    // on its machine
    char secret[32];     // the job's, filled up with zeros
};

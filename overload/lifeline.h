// What a server says over its lifeline, in its own byte order: once who it is, then every second
// how it goes.
#pragma once

#include <cstdint>

inline constexpr std::uint32_t lifelineMark = 0x4546494c; // "LIFE"

struct LifelineHello {
    std::uint32_t mark;
    std::int32_t server; // its number
    std::int32_t pid;    // on its machine
    char secret[32];     // the job's, filled up with zeros
};

struct LifelineFigures {
    std::uint64_t frames;       // that it has shown, since it began
    std::uint64_t decodingTime; // of the decode thread on a processor, nanoseconds
    std::uint64_t time;         // since it began, likewise
    std::uint64_t bytes;        // of memory in use
};

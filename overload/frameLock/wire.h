// What the servers and the hub of a frame lock say to each other, over TCP. A server connects and
// sends a Hello; then Words go both ways, in the sender's byte order: one stream, one kind of host.
#pragma once

#include <cstdint>

namespace frameLock {

inline constexpr std::uint32_t helloMark = 0x4b434f4c; // "LOCK"
inline constexpr int secretBytes = 32, hostBytes = 64;

struct Hello {
    std::uint32_t mark;
    std::int32_t server;      // its number
    std::int32_t hasHardware; // its graphics can hold swaps back by themselves
    std::int32_t zero;
    char secret[secretBytes]; // filled up with zeros
    char host[hostBytes];     // for messages; ends with a zero
};

enum class Kind : std::uint32_t {
    swapReady, // server: has drawn everything before swap `number`
    swapNow,   // hub: swap `number` may be shown
    byNetwork, // hub, once, when all have come: the hub holds swaps back
    byHardware // hub, once: every server has hardware for it, and the hub is not needed
};

struct Word {
    Kind kind;
    std::uint32_t zero;
    std::uint64_t number; // of a swap, counted from 1 by each server in the stream's order
};

} // namespace frameLock

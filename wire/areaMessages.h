// What a client tells the servers of a job that has an area of the wall to itself, and where it
// tells more of the pointer: in the stream, so that all of them come to it at the same place, as
// MWRaiseWindow of what is no window. The upper three bits of an X window's number are never set;
// in a message all of them are. Servers without the libraries for this know no such window, and do
// nothing.
//
//   31 29 28   26 25          0
//   1 1 1 | what | value, signed
#pragma once

#include <cstdint>

enum class AreaWord : std::uint32_t {
    left,   // of the area from the wall's left, in wall pixels: kept until `move`
    top,    // and from its top
    move,   // there
    raise,  // above the areas of other jobs
    pointer // the port at which places of the pointer are told
};

inline constexpr std::uint32_t areaMark = 0xE0000000;
inline constexpr int areaValueBits = 26;

constexpr bool isAreaMessage(std::uint64_t window) { return (window & ~0x1FFFFFFFULL) == areaMark; }

constexpr std::uint32_t areaMessage(AreaWord word, std::int32_t value = 0)
{
    constexpr std::uint32_t mask = (1U << areaValueBits) - 1;
    return areaMark | static_cast<std::uint32_t>(word) << areaValueBits |
           (static_cast<std::uint32_t>(value) & mask);
}

constexpr AreaWord wordOf(std::uint64_t message)
{
    return static_cast<AreaWord>(message >> areaValueBits & 7);
}

constexpr std::int32_t valueOf(std::uint64_t message)
{
    constexpr int unused = 32 - areaValueBits;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(message) << unused) >> unused;
}

/// True when the message changes what is seen: all servers do it at the same moment.
constexpr bool isSeen(std::uint64_t message)
{
    return wordOf(message) == AreaWord::move || wordOf(message) == AreaWord::raise;
}

static_assert(valueOf(areaMessage(AreaWord::left, -1)) == -1);
static_assert(wordOf(areaMessage(AreaWord::move, -5)) == AreaWord::move);

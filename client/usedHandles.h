// Under which handles servers know what a captured program has had: those of the next one in the
// same stream lie above them, since servers forget none.
#pragma once

#include "client/encoder.h"

#include <cstdint>
#include <span>
#include <vector>

struct UsedHandles {
    std::int32_t greatest = 0;
    std::vector<AppContext> contexts; // that have not been given back
};

/// Takes note of what a buffer begins with: it is there, and nowhere else, that the capture library
/// makes visuals, contexts and windows.
void noteHandles(UsedHandles& used, std::span<const unsigned char> buffer);

/// Records that give back what servers need no more.
void encodeGivingBack(CommandBuffer& out, UsedHandles& used);

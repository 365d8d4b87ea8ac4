// Attribute lists of GLX operations.
#pragma once

#include "wire/blocks.h"

#include <vector>

/// An aligned copy of the words, which ends even where the stream's own terminator is missing: a
/// last token may take one of the two zeros as its value.
inline std::vector<int> attributeList(const Words& words)
{
    std::vector<int> list(static_cast<std::size_t>(words.count) + 2);
    std::memcpy(list.data(), words.at, static_cast<std::size_t>(words.count) * 4);
    return list;
}

// Attribute lists of GLX operations.
#pragma once

#include "coding/buffer.h"

#include <vector>

/// The attribute list of a block whose count of words stands at `countAt`, right before the words.
/// The copy is aligned, and ends even where the stream's own terminator is missing: a last token
/// may take one of the two zeros as its value.
inline std::vector<int> attributeList(const char* args, int countAt)
{
    const int count = load<std::int32_t>(args + countAt);
    std::vector<int> words(static_cast<std::size_t>(count) + 2);
    std::memcpy(words.data(), args + countAt + 4, static_cast<std::size_t>(count) * 4);
    return words;
}

/// The first byte behind such a list.
inline char* behindAttributes(char* args, int countAt)
{
    return args + countAt + 4 + 4 * std::int64_t{load<std::int32_t>(args + countAt)};
}

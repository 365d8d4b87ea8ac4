// Whole records of any operation, without knowing its arguments.
#pragma once

#include "wire/operations.h"

#include <vector>

/// Appends a record of `opcode` whose head consists of copies of `word` and whose rest, of the
/// length that the head then asks for, of zeros. When that is more than `most` bytes, or no length
/// at all, the head is of zeros.
inline void appendSampleRecord(std::vector<unsigned char>& out, int opcode, std::uint32_t word,
                               int most = 512)
{
    const Extent& extent = recordExtents[opcode];
    std::vector<char> block(static_cast<std::size_t>(extent.head));
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = reinterpret_cast<const char*>(&word)[i % sizeof word];
    std::int64_t rest = extent.rest ? extent.rest(block.data()) : 0;
    if (rest < 0 || rest > most) {
        block.assign(block.size(), 0);
        rest = extent.rest(block.data());
    }
    block.resize(block.size() + static_cast<std::size_t>(rest));
    out.push_back(static_cast<unsigned char>(opcode));
    out.push_back(static_cast<unsigned char>(opcode >> 8));
    out.insert(out.end(), block.begin(), block.end());
}

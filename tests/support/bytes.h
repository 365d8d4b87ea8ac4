// Wire bytes written out by hand. A text holds hexadecimal bytes ("0a ff00") and, for values whose
// bytes say little to a reader, tokens: an operation's name is its opcode, "#1238" an opcode by
// number, "i:-3" 4 bytes, "s:7" 2, "b:1" one, "f:1.5" a float and "d:2" a double, all
// little-endian; "z:20" is 20 zero bytes and "'text" the characters up to the next blank.
#pragma once

#include "wire/opcodes.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline void appendLittleEndian(Bytes& out, std::uint64_t value, int width)
{
    for (int i = 0; i < width; ++i)
        out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

/// The number of an operation by its name.
inline int opcodeOf(const std::string& name)
{
    static constexpr const char* names[] = {
#define OPERATION(number, name, ...) #name,
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "wire/operations.def"
    };
    const auto* found = std::ranges::find(names, name);
    if (found == std::end(names))
        throw std::out_of_range(name);
    return static_cast<int>(found - names);
}

inline void appendToken(Bytes& out, const std::string& token)
{
    if (token.starts_with("gl") || token.starts_with("MW")) {
        appendLittleEndian(out, static_cast<unsigned>(opcodeOf(token)), 2);
        return;
    }
    const std::string text = token.size() > 1 && token[1] == ':' ? token.substr(2) : "";
    if (token[0] == '#')
        appendLittleEndian(out, std::stoul(token.substr(1)), 2);
    else if (token[0] == '\'')
        out.insert(out.end(), token.begin() + 1, token.end());
    else if (text.empty())
        for (std::size_t i = 0; i < token.size(); i += 2)
            appendLittleEndian(out, std::stoul(token.substr(i, 2), nullptr, 16), 1);
    else if (token[0] == 'f')
        appendLittleEndian(out, std::bit_cast<std::uint32_t>(std::stof(text)), 4);
    else if (token[0] == 'd')
        appendLittleEndian(out, std::bit_cast<std::uint64_t>(std::stod(text)), 8);
    else if (token[0] == 'z')
        out.resize(out.size() + std::stoul(text));
    else {
        const int width = token[0] == 'i' ? 4 : token[0] == 's' ? 2 : 1;
        appendLittleEndian(out, static_cast<std::uint64_t>(std::stoll(text, nullptr, 0)), width);
    }
}

inline Bytes bytes(const std::string& text)
{
    Bytes out;
    std::istringstream words(text);
    for (std::string token; words >> token;)
        appendToken(out, token);
    return out;
}

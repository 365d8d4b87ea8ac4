// Wire bytes written out by hand. A text holds hexadecimal bytes ("0a ff00") and, for values whose
// bytes say little to a reader, tokens with a type: "#81" is an opcode, "i:-3" 4 bytes, "s:7" 2,
// "b:1" one, "f:1.5" a float and "d:2" a double, all little-endian; "z:20" is 20 zero bytes and
// "'text" the characters up to the next blank.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
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

inline void appendHexadecimal(Bytes& out, const std::string& digits)
{
    if (digits.size() % 2 || digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos)
        throw std::invalid_argument("not bytes: " + digits);
    for (std::size_t i = 0; i < digits.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
}

inline void appendToken(Bytes& out, const std::string& token)
{
    const auto bits = [](auto value) {
        std::uint64_t result = 0;
        std::memcpy(&result, &value, sizeof value);
        return result;
    };
    if (token[0] == '#')
        return appendLittleEndian(out, std::stoul(token.substr(1)), 2);
    if (token[0] == '\'') {
        out.insert(out.end(), token.begin() + 1, token.end());
        return;
    }
    if (token.size() < 2 || token[1] != ':')
        return appendHexadecimal(out, token);
    const std::string text = token.substr(2);
    const auto integer = [&] { return bits(std::stoll(text, nullptr, 0)); };
    switch (token[0]) {
    case 'i':
        return appendLittleEndian(out, integer(), 4);
    case 's':
        return appendLittleEndian(out, integer(), 2);
    case 'b':
        return appendLittleEndian(out, integer(), 1);
    case 'f':
        return appendLittleEndian(out, bits(std::stof(text)), 4);
    case 'd':
        return appendLittleEndian(out, bits(std::stod(text)), 8);
    case 'z':
        out.resize(out.size() + std::stoul(text));
        return;
    default:
        throw std::invalid_argument("no such token: " + token);
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

/// The token of an opcode, for texts put together.
inline std::string opcodeToken(int opcode)
{
    std::string token("#");
    return token += std::to_string(opcode);
}

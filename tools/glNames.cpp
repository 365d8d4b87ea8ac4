#include "tools/glNames.h"

#include <algorithm>
#include <charconv>
#include <tuple>

namespace {

#include "glTables.inc"

// Vocabularies with some names of their own.
bool isPartly(Vocabulary vocabulary)
{
    return vocabulary == Vocabulary::primitives || vocabulary == Vocabulary::factors ||
           vocabulary == Vocabulary::formats;
}

void appendBits(std::string& out, Vocabulary vocabulary, std::uint32_t value)
{
    const char* separator = "";
    for (std::uint32_t bit = 1U << 31; bit != 0; bit >>= 1)
        if (const Name* name = value & bit ? findName(vocabulary, bit) : nullptr) {
            out.append(separator).append(name->name);
            separator = "|";
            value -= bit;
        }
    if (value != 0)
        appendHex(out += separator, value);
    else if (*separator == '\0')
        out += '0';
}

} // namespace

void appendHex(std::string& out, std::uint32_t value)
{
    char digits[8];
    out += "0x";
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value, 16).ptr);
}

const Name* findName(Vocabulary vocabulary, std::uint32_t value)
{
    const auto key = std::tuple(vocabulary, value);
    const auto keyOf = [](const Name& name) { return std::tuple(name.vocabulary, name.value); };
    const Name* at = std::ranges::lower_bound(names, key, {}, keyOf);
    if (at != std::end(names) && keyOf(*at) == key)
        return at;
    return isPartly(vocabulary) ? findName(Vocabulary::enumerants, value) : nullptr;
}

void appendName(std::string& out, Vocabulary vocabulary, std::uint32_t value)
{
    constexpr std::uint32_t mostComponents = 4;
    if (vocabulary == Vocabulary::formats && value <= mostComponents)
        out += std::to_string(value);
    else if (const Name* name = findName(vocabulary, value))
        out += name->name;
    else if (vocabulary >= Vocabulary::bits)
        appendBits(out, vocabulary, value);
    else
        appendHex(out, value);
}

std::span<const NamedParameter> namedParameters(Op operation)
{
    return std::ranges::equal_range(parameters, operation, {}, &NamedParameter::operation);
}

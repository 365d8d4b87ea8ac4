// The blocks of blocks.def as records, and how they are measured, loaded and stored.
#pragma once

#include "wire/handles.h"

/// Fields of variable length. Loaded ones point into the buffer.
struct Words {
    const void* at = nullptr;
    std::int32_t count = 0;
};
struct Text {
    const void* at = nullptr;
    std::int32_t length = 0;
};
struct Data {
    const void* at = nullptr;
    std::int64_t bytes = 0;
};

#define BLOCK(name) struct name {
#define FIELD(type, field) type field{};
#define END_BLOCK                                                                                  \
    }                                                                                              \
    ;
#include "wire/blocks.def"

/// Calls visit(name, field) for each field of a block, in the order of the wire.
#define BLOCK(name)                                                                                \
    template <class Block, class Visit>                                                            \
    requires std::is_same_v<std::remove_const_t<Block>, name>                                      \
    constexpr void eachField([[maybe_unused]] Block& block, [[maybe_unused]] Visit&& visit)        \
    {
#define FIELD(type, field) visit(#field, block.field);
#define END_BLOCK }
#include "wire/blocks.def"

/// Bytes of a Data field, by the fields before it.
inline std::int64_t dataBytes(const SeparableFilterBlock& block, const Data& field)
{
    if (&field == &block.row)
        return block.rowNull ? 0 : block.rowBytes;
    return block.columnNull ? 0 : block.columnBytes;
}

/// What each kind of field has in the block's head: the whole field, its count, or nothing.
template <class Field>
inline constexpr int headBytesOf = 4;
template <>
inline constexpr int headBytesOf<Data> = 0;
template <class Field>
inline constexpr bool variable =
    std::is_same_v<Field, Words> || std::is_same_v<Field, Text> || std::is_same_v<Field, Data>;

/// Bytes of a block up to the count of its first field of variable length, included.
template <class Block>
constexpr int headBytes()
{
    int bytes = 0;
    bool behind = false;
    Block block{};
    eachField(block, [&](const char*, auto& field) {
        using Field = std::remove_reference_t<decltype(field)>;
        static_assert(variable<Field> ||
                      (sizeof(Field) == 4 && std::is_trivially_copyable_v<Field>));
        bytes += behind ? 0 : headBytesOf<Field>;
        behind |= variable<Field>;
    });
    return bytes;
}

template <class Block>
constexpr bool hasVariableField()
{
    bool has = false;
    Block block{};
    eachField(block, [&](const char*, auto& field) {
        has |= variable<std::remove_reference_t<decltype(field)>>;
    });
    return has;
}

/// Bytes behind the head, by the counts in it; negative when one of them is.
template <class Block>
std::int64_t restBytes(const char* args)
{
    std::int64_t rest = 0;
    bool behind = false; // the first field of variable length
    bool possible = true;
    Block block{};
    eachField(block, [&](const char*, auto& field) {
        using Field = std::remove_reference_t<decltype(field)>;
        std::int64_t bytes = 0;
        if constexpr (std::is_same_v<Field, Data>)
            bytes = dataBytes(block, field);
        else if constexpr (variable<Field>)
            bytes = byteCount(load<std::int32_t>(args), std::is_same_v<Field, Words> ? 4 : 1);
        else if (!behind)
            field = load<Field>(args);
        possible &= bytes >= 0;
        rest += bytes + (behind ? headBytesOf<Field> : 0);
        args += behind ? 0 : headBytesOf<Field>;
        behind |= variable<Field>;
    });
    return possible ? rest : -1;
}

/// Loads a block that lies wholly in memory. Returns the first byte behind it.
template <class Block>
char* loadBlock(char* args, Block& block)
{
    eachField(block, [&](const char*, auto& field) {
        using Field = std::remove_reference_t<decltype(field)>;
        if constexpr (std::is_same_v<Field, Words>) {
            field = {args + 4, load<std::int32_t>(args)};
            args += 4 + 4 * std::int64_t{field.count};
        } else if constexpr (std::is_same_v<Field, Text>) {
            field = {args + 4, load<std::int32_t>(args)};
            args += 4 + std::int64_t{field.length};
        } else if constexpr (std::is_same_v<Field, Data>) {
            field = {args, dataBytes(block, field)};
            args += field.bytes;
        } else {
            field = load<Field>(args);
            args += 4;
        }
    });
    return args;
}

/// Bytes that a block takes on the wire.
template <class Block>
std::int64_t blockBytes(const Block& block)
{
    std::int64_t bytes = 0;
    eachField(block, [&](const char*, const auto& field) {
        using Field = std::remove_cvref_t<decltype(field)>;
        bytes += headBytesOf<Field>;
        if constexpr (std::is_same_v<Field, Words>)
            bytes += 4 * std::int64_t{field.count};
        else if constexpr (std::is_same_v<Field, Text>)
            bytes += field.length;
        else if constexpr (std::is_same_v<Field, Data>)
            bytes += dataBytes(block, field);
    });
    return bytes;
}

/// Stores a block in blockBytes bytes. Returns the first byte behind it.
template <class Block>
unsigned char* storeBlock(unsigned char* at, const Block& block)
{
    const auto append = [&at](const void* from, std::int64_t bytes) {
        if (bytes > 0)
            std::memcpy(at, from, static_cast<std::size_t>(bytes));
        at += bytes;
    };
    eachField(block, [&](const char*, const auto& field) {
        using Field = std::remove_cvref_t<decltype(field)>;
        if constexpr (std::is_same_v<Field, Words>) {
            append(&field.count, 4);
            append(field.at, 4 * std::int64_t{field.count});
        } else if constexpr (std::is_same_v<Field, Text>) {
            append(&field.length, 4);
            append(field.at, field.length);
        } else if constexpr (std::is_same_v<Field, Data>)
            append(field.at, dataBytes(block, field));
        else
            append(&field, 4);
    });
    return at;
}

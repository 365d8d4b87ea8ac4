// Records of the command stream in words, for people: from the same list, prototypes and layouts as
// the decoders, but without the server.
#pragma once

#include <cstdint>
#include <string>

/// Where a record ends, and what it is.
struct Record {
    int opcode;
    std::int64_t bytes; // with the opcode
    std::string fault;  // not empty: the record is none, and nothing behind it can be found
};

/// Measures the record at `at` by the rules of the server's walk; `room` bytes of its buffer are
/// left, at least one.
Record measureRecord(const char* at, std::int64_t room);

/// Appends a measured record without fault as "name(argument, ...)": enumerants, bits and booleans
/// by name, other numbers in decimal, handles and what lacks a name in hexadecimal. Arrays show
/// their first elements, blocks of data their size.
void describeRecord(std::string& out, const Record& record, const char* at);

/// The name of an operation. `opcode` must be one.
const char* operationName(int opcode);

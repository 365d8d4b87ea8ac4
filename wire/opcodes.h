// The operations of the command stream by number.
#pragma once

#include <cstdint>

/// The operations by name; the value is the opcode on the wire.
enum class Op : std::uint16_t {
#define OPERATION(number, name, ...) name = number,
#define BY_HAND(number, name, ...) name = number,
#define UNPERFORMED(number, name, ...) name = number,
#include "wire/operations.def"
};

inline constexpr int operationCount = 1238;

/// Index of an operation in the tables by opcode.
constexpr int indexOf(Op op) { return static_cast<int>(op); }

inline constexpr int opcodeBytes = 2;

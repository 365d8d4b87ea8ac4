// The tables indexed by opcode, from the list of operations.
#include "coding/fromWire.h"

namespace {

// The rows must stand in the order of their numbers, without gaps: the tables are filled in order.
constexpr bool rowsInOrder()
{
    constexpr int numbers[] = {
#define OPERATION(number, name, ...) number,
#define BY_HAND(number, name, ...) number,
#define UNPERFORMED(number, name, ...) number,
#include "coding/operations.def"
    };
    int expected = 0;
    for (const int number : numbers)
        if (number != expected++)
            return false;
    return expected == operationCount;
}
static_assert(rowsInOrder());

} // namespace

const char* opNames[operationCount] = {
#define OPERATION(number, name, ...) #name,
#define BY_HAND(number, name, ...) #name,
#define UNPERFORMED(number, name, ...) #name,
#include "coding/operations.def"
};

glBufOp glWrappers[operationCount] = {
#define OPERATION(number, name, ...) _##name,
#define BY_HAND(number, name, ...) _##name,
#define UNPERFORMED(number, name, ...) _##name,
#include "coding/operations.def"
};

constinit const Extent recordExtents[operationCount] = {
#define OPERATION(number, name, ...) extentOf<decltype(::name)>(__VA_ARGS__{}),
#define BY_HAND(number, name, ...) extentOf<decltype(::name)>(__VA_ARGS__{}),
#define UNPERFORMED(number, name, ...) extentOf<void>(__VA_ARGS__{}),
#include "coding/operations.def"
};

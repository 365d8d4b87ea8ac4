// The extents of all records, and the checks of the list that they come from.
#include "wire/operations.h"

namespace {

// The rows must stand in the order of their numbers, without gaps: tables are filled in order.
constexpr bool rowsInOrder()
{
    constexpr int numbers[] = {
#define OPERATION(number, name, ...) number,
#define BY_HAND(number, name, ...) number,
#define UNPERFORMED(number, name, ...) number,
#include "wire/operations.def"
    };
    int expected = 0;
    for (const int number : numbers)
        if (number != expected++)
            return false;
    return expected == operationCount;
}
static_assert(rowsInOrder());

} // namespace

constinit const Extent recordExtents[operationCount] = {
#define OPERATION(number, name, ...) extentOf<decltype(::name)>(__VA_ARGS__{}),
#define BY_HAND(number, name, ...) extentOf<decltype(::name)>(__VA_ARGS__{}),
#define UNPERFORMED(number, name, ...) extentOf<void>(__VA_ARGS__{}),
#include "wire/operations.def"
};

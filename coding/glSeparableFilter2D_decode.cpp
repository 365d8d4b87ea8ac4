// glSeparableFilter2D carries two blocks of data: behind the scalars stand the byte counts of the
// row and the column, their null flags, and then the data of those that are not null.
#include "coding/fromWire.h"

char* _glSeparableFilter2D(char* args)
{
    using F = Prototype<Op::glSeparableFilter2D>;
    char* row = args + 40;
    const bool rowNull = load<std::int32_t>(args + 32) != 0;
    const bool columnNull = load<std::int32_t>(args + 36) != 0;
    char* column = row + (rowNull ? 0 : load<std::int32_t>(args + 24));
    char* end = column + (columnNull ? 0 : load<std::int32_t>(args + 28));
    perform<Op::glSeparableFilter2D>(parameter<F, 0>(args), parameter<F, 1>(args),
                                     parameter<F, 2>(args), parameter<F, 3>(args),
                                     parameter<F, 4>(args), parameter<F, 5>(args),
                                     rowNull ? nullptr : row, columnNull ? nullptr : column);
    return end;
}

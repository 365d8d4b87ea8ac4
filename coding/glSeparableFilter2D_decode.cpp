// glSeparableFilter2D carries two blocks of data, each with a count and a null flag of its own.
#include "coding/fromWire.h"
#include "coding/images.h"

char* _glSeparableFilter2D(char* args)
{
    SeparableFilterBlock block;
    char* const end = loadBlock(args, block);
    const auto filter = [&block](const Data& data, std::int32_t length, std::int32_t null) {
        return supply("glSeparableFilter2D", static_cast<char*>(const_cast<void*>(data.at)),
                      data.bytes, null ? 0 : bytesOf({length, 1, 1, block.format, block.type}));
    };
    const Supplied row = filter(block.row, block.width, block.rowNull);
    const Supplied column = filter(block.column, block.height, block.columnNull);
    if (row.at && column.at)
        perform<Op::glSeparableFilter2D>(
            block.target, block.internalFormat, block.width, block.height, block.format, block.type,
            block.rowNull ? nullptr : row.at, block.columnNull ? nullptr : column.at);
    return end;
}

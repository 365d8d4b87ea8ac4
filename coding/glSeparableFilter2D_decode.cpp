// glSeparableFilter2D carries two blocks of data, each with a count and a null flag of its own.
#include "coding/clientMemory.h"
#include "coding/fromWire.h"

char* _glSeparableFilter2D(char* args)
{
    SeparableFilterBlock block;
    char* const end = loadBlock(args, block);
    const auto there = [&block](std::int32_t length, std::int32_t null, std::int32_t arrived) {
        return null ||
               enoughArrived("glSeparableFilter2D",
                             clientMemory::bytesOf({length, 1, 1, block.format, block.type}),
                             arrived);
    };
    if (!there(block.width, block.rowNull, block.rowBytes) ||
        !there(block.height, block.columnNull, block.columnBytes))
        return end;
    perform<Op::glSeparableFilter2D>(
        block.target, block.internalFormat, block.width, block.height, block.format, block.type,
        block.rowNull ? nullptr : block.row.at, block.columnNull ? nullptr : block.column.at);
    return end;
}

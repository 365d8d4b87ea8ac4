// glSeparableFilter2D carries two blocks of data, each with a count and a null flag of its own.
#include "coding/fromWire.h"

char* _glSeparableFilter2D(char* args)
{
    SeparableFilterBlock block;
    char* const end = loadBlock(args, block);
    perform<Op::glSeparableFilter2D>(
        block.target, block.internalFormat, block.width, block.height, block.format, block.type,
        block.rowNull ? nullptr : block.row.at, block.columnNull ? nullptr : block.column.at);
    return end;
}

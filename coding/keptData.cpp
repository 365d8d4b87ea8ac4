#include "coding/keptData.h"

#include <cstdio>

char* keepData(Memory kind, const char* data, int bytes, const char* operation)
{
    char* kept = reserve(kind, bytes, operation);
    if (bytes > 0)
        std::memcpy(kept, data, static_cast<std::size_t>(bytes));
    scratchOf(kind).arrived = bytes;
    return kept;
}

bool enoughArrived(const char* operation, std::int64_t needed, std::int64_t arrived)
{
    if (needed <= arrived)
        return true;
    std::fprintf(stderr, "Attention MOSA: %s: %lld bytes are needed, %lld arrived\n", operation,
                 static_cast<long long>(needed), static_cast<long long>(arrived));
    return false;
}

#include "coding/invariant.h"
#include "coding/decoder.h"

#include <cstdio>
#include <cstdlib>

void invariantFailed(const char* expression, const char* source, int line, const char* function)
{
    std::fprintf(stderr, "MOSA: assertion failed: %s, file %s, line %d, function %s\n", expression,
                 source, line, function);
    printRecentOperations();
    std::fflush(nullptr);
    std::abort();
}

#include "coding/invariant.h"
#include "coding/decoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void invariantFailed(const char* expression, const char* source, int line, const char* function)
{
    std::fprintf(stderr, "MOSA: assertion failed: %s, file %s, line %d, function %s\n", expression,
                 source, line, function);
    if (std::strcmp(expression, "currLocalDisplay") == 0 && !std::getenv("MOSA_DISPLAY"))
        std::fputs("MOSA: MOSA_DISPLAY is not set: no wall configuration file, no display\n",
                   stderr);
    printRecentOperations();
    std::fflush(nullptr);
    std::abort();
}

// The client answers glXGetProcAddress itself; it has no business in the stream.
#include "coding/fromWire.h"

#include <cstdio>

char* _glXGetProcAddress(char* args)
{
    constexpr int line = 27; // the line that operators know this message by
    std::fprintf(stderr, "SHOULD NEVER GET HERE!!! %s:%d\n", "coding/glXGetProcAddress_decode",
                 line);
    return args;
}

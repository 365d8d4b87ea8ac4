// What the stand-in client sends in one run.
#pragma once

#include "shuffle/mw.h"

#include <random>
#include <vector>

struct Script {
    std::minstd_rand random;
    std::vector<_hdr> buffers;
    int syncs = 0;                // acknowledgements that are due when all are decoded
    unsigned longestWait = 0;     // polls until a message arrives, at most
    unsigned longestDecoding = 0; // how often the decoder gives up the processor in a buffer
};

extern Script script;

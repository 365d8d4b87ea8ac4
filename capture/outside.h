// OpenGL's functions outside the wire's list: what each means to a context that is shown by its
// calls. What is in none of the rows changes what is seen, and calls cannot carry it.
#pragma once

#include <string_view>

enum class Outside {
    harmless,       // nothing that is seen
    changesBuffers, // the contents of buffer objects
    unlessZero,     // harmless where its argument is 0: what there is without it
    beyondCalls,
};

struct OutsideRow {
    Outside what = Outside::beyondCalls;
    int argument = 0; // that counts, of unlessZero
};

/// The row of a function's name.
OutsideRow outsideOf(std::string_view name);

// Judges wall files: what each server will show, and what is wrong.
#pragma once

#include "client/wallLayout.h"

/// Something about a wall. Line 0 stands for the wall as a whole.
struct Finding {
    int line;
    bool fault; // false: worth knowing
    std::string text;
};

/// What server n will show, in words.
std::string describeTile(const Wall& wall, int server);

/// Everything there is to say about a wall, in the order of the lines, the whole last.
std::vector<Finding> checkWall(const Wall& wall);

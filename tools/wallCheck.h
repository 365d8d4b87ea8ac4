// Judges wall files: what each server will show, and what is wrong.
#pragma once

#include "tools/wallLayout.h"

#include <cstdio>

/// Something about a wall. Line 0 stands for the wall as a whole.
struct Finding {
    int line;
    bool fault; // false: worth knowing
    std::string text;
};

/// What server n will show, in words.
std::string describeTile(const Wall& wall, int server);

/// Everything there is to say about a wall, in the order of the lines, the whole last. A display
/// without a host is one of its server's node; without places, of the same machine for all.
std::vector<Finding> checkWall(const Wall& wall, const std::vector<Place>& places = {});

/// Prints findings, `notes` or only faults, with the wall file's name and line. Returns how many
/// are faults.
int printFindings(std::FILE* to, const Wall& wall, const std::vector<Finding>& findings,
                  bool notes);

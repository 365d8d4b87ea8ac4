// The part of the wall that a job has: an area, and the servers whose displays show something of it.
#pragma once

#include "tools/about.h"
#include "tools/chosenWall.h"
#include "tools/mpiJob.h"

/// Where a job stands, as --at says it. Empty: it has the whole wall.
struct AtOptions {
    std::string at;         // as parseArea reads it
    bool isMovable = false; // and it may be moved to any place
};

/// Reads an area of a wall: "960x540+480+270" from its upper left, as X writes it, with "-0" from
/// the right or the bottom and "+-50" beyond the edge; "960x540" or "50x50%" in the middle; left,
/// right, top, bottom, a half; center, a quarter in the middle; top-left and the like, a quarter;
/// all. Throws std::runtime_error.
PixelArea parseArea(const std::string& text, Size wall);

/// What `move` is told: the same, or "+480+270" alone, for an area that keeps its size.
PixelArea parsePlace(const std::string& text, Size wall, Size size);

/// As X writes it, from the wall's upper left.
std::string areaText(const PixelArea& area, Size wall);

/// The servers that an area needs: those whose displays show some of it, or all when it may move.
/// Throws std::runtime_error when there is none.
JobArea areaOn(const Wall& wall, const AtOptions& options);

/// The wall as the job has it: those servers' entries and nodes alone.
ChosenWall withServersOf(const ChosenWall& chosen, const JobArea& area);

/// Has the servers of a job on such a wall keep to the area. Throws std::runtime_error when the
/// environment names overload libraries of its own.
void putInArea(Job& job, const JobArea& area, Size wall);

// A system library without pixels: an operation table for the decoders and overloads whose entries
// read and write all the memory that they are handed, as OpenGL would, and do nothing else.
#pragma once

#include "coding/server_overload/overloads.h"

/// What the stand-in answers to every query of a number.
extern double queriedNumber;

/// An invariant of the server did not hold: by design that ends the server, here only the walk.
struct InvariantFailed {};

/// Fills glOpTable with the stand-ins, with the server's overloads on top if wanted.
void installStandIns(bool overloads);

/// Releases what earlier walks left and empties all tables. `current` leaves one context current
/// on one drawable of a display, as after a program's first make-current.
void resetServer(bool current);

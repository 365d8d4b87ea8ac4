// The server's global records at start-up, and as after a first make-current.
#pragma once

#include "coding/server_overload/overloads.h"

/// Empties all tables, with nothing current.
void clearServerTables();

/// Makes a drawable and a context current, without X: the application's window of W x H, the local
/// display showing `tile` of the wall, which has `scale` wall pixels for an application pixel.
/// Returns the context's record, its stack at the application's viewport (0, 0, W, H).
LocalContextInfo& makeTileCurrent(MWRect tile, int W, int H, float scale);

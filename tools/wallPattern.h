// A test pattern for judging a wall by eye.
#pragma once

#include "client/streamFile.h"
#include "tools/wallLayout.h"

/// The stream of a test pattern in an application window of the wall's own size, so that one of its
/// pixels is one of the wall's. Geometry and bezels: a grid and a circle over the whole wall, each
/// tile's outline with its server and rectangle. Synchronisation: a frame counter on every tile and
/// a bar that crosses the wall.
std::vector<OutgoingBuffer> patternStream(const Wall& wall, int frames);

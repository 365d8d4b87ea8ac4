// What a recorded stream tells of the program that was recorded.
#pragma once

#include "client/streamFile.h"
#include "tools/wallLayout.h"

/// The program's first window, as servers place it on the wall; 0x0 when the stream shows none.
Size programWindow(const StreamFile& stream);

/// Buffers that are acknowledged.
int frameCount(const StreamFile& stream);

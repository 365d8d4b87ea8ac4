// A scene of the capture tests' program.
#pragma once

/// Draws from buffer objects that stay as they are, and from some that change, a cell for each: all
/// kinds, types and modes. Every frame looks like the first. `swap` draws in a second context that
/// shares, and comes back.
void drawKeptScene(void (*inSharing)(void (*change)()));

// Widths in the window's pixels.
#pragma once

/// Sends the current context's widths as its window needs them, which is new to the wall or has
/// another size. In the thread of the context.
void recordWidths();

// Which of the program's windows the wall shows, and what the wall has to know of it. All of it
// under streamLock, in the thread of the context.
#pragma once

#include "capture/passOn.h"

/// The current window may have been mapped or resized: decides anew whether it is shown. False when
/// the wall has to be connected before.
bool reconsider(Context& c);

/// What is recorded between the two belongs to the picture of a context that is shown by pictures.
void beginPicture(Context& c);
void endPicture(Context& c);

/// Black around the picture in the buffers of a window that is new to the wall.
void recordMarginsOfFrame(const Context& c);

/// Tells the wall's process which window it is, or that none is shown any more.
void tellShown(const Context& c);

// The local display: which one this server drives, which rectangle of the wall it shows, and the
// banner shown when it is opened. Decode thread only.
#pragma once

#include "coding/serverWindows.h"

/// The record that serves an application display: made on first use from this server's entry of the
/// wall configuration file. Null, and nothing kept, when the display cannot be had; a file without
/// a usable entry ends the process.
LocalDisplay* GetLocalDisplay(Display* appDisplay);

/// Closes the connection and releases the record. Null is allowed.
void _freeLocalDisplay(LocalDisplay* ldpy);

/// Releases every record.
void CleanupLocalDisplays();

extern char banner1[39], banner2[32]; // the banner's two lines

/// Shows the banner, waits for MOSA_BANNER_TIME seconds and removes it. W, H are the wall's size
/// and x, y, w, h this display's rectangle of it, in wall pixels with y upward. Returns 0.
int mosa_banner(Display* theDisplay, int theScreen, int W, int H, int x, int y, int w, int h);

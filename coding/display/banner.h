// The banner that is shown when a display is opened. Decode thread only.
#pragma once

#include <X11/Xlib.h>

/// 1, unless an overload library has set it to 0: then the display is opened without a banner.
extern int showsBanner;

extern char banner1[39], banner2[32]; // the banner's two lines

/// Shows the banner, waits for MOSA_BANNER_TIME seconds and removes it. W, H are the wall's size
/// and x, y, w, h this display's rectangle of it, in wall pixels with y upward. Returns 0.
int mosa_banner(Display* theDisplay, int theScreen, int W, int H, int x, int y, int w, int h);

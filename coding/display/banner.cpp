// The banner: an outline of the wall with this display's part filled, and two lines of notice,
// shown for a few seconds when a display is opened. Replay pauses meanwhile.
#include "coding/display/banner.h"
#include "coding/display/rect.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

int showsBanner = 1;

char banner1[39] = "Vantrel MOSA render server " MOSA_VERSION;
char banner2[32] = "One OpenGL window, many tiles";

// The banner on show; each call overwrites them.
Window theWindow;
GC theGC;      // the wall's outline
GC theColorGC; // this display's part, and the text
XFontStruct* fontStruct;
int theDepth;
unsigned long theBlackPixel;
unsigned long theWhitePixel;

namespace {

const char* environmentOr(const char* name, const char* otherwise)
{
    const char* value = std::getenv(name);
    return value ? value : otherwise;
}

/// A context with foreground theWhitePixel and background theBlackPixel. Nonzero on success.
int createGC(Display* theDisplay, Window theNewWindow, GC* theNewGC)
{
    *theNewGC = XCreateGC(theDisplay, theNewWindow, 0, nullptr);
    if (!*theNewGC)
        return 0;
    XSetForeground(theDisplay, *theNewGC, theWhitePixel);
    XSetBackground(theDisplay, *theNewGC, theBlackPixel);
    return 1;
}

/// Creates and maps the window and its plain context. 0 when the context could not be made.
Window openWindow(Display* theDisplay, int theScreen, int x, int y, int width, int height,
                  int /*flag*/, GC* theNewGC)
{
    XSetWindowAttributes attributes{};
    attributes.background_pixel = theBlackPixel;
    attributes.border_pixel = theWhitePixel;
    attributes.override_redirect = True; // no decoration, and nobody moves it
    constexpr unsigned border = 2;
    const Window window = XCreateWindow(
        theDisplay, RootWindow(theDisplay, theScreen), x, y, static_cast<unsigned>(width),
        static_cast<unsigned>(height), border, theDepth, InputOutput, CopyFromParent,
        CWBackPixel | CWBorderPixel | CWOverrideRedirect, &attributes);
    XSizeHints hints{};
    hints.flags = PPosition | PSize;
    hints.x = x;
    hints.y = y;
    hints.width = width;
    hints.height = height;
    XSetNormalHints(theDisplay, window, &hints);
    if (!createGC(theDisplay, window, theNewGC)) {
        XDestroyWindow(theDisplay, window);
        return 0;
    }
    XMapWindow(theDisplay, window);
    XFlush(theDisplay);
    return window;
}

/// A context with named colours. 0 when the context could not be made, else 1.
int create_color_GC(Display* theDisplay, int theScreen, Window theNewWindow, const char* back,
                    const char* fore, GC* theNewGC)
{
    *theNewGC = XCreateGC(theDisplay, theNewWindow, 0, nullptr);
    if (!*theNewGC)
        return 0;
    const Colormap colors = DefaultColormap(theDisplay, theScreen);
    XColor exact{};
    XColor background{};
    XLookupColor(theDisplay, colors, back ? back : "black", &exact, &background);
    XAllocColor(theDisplay, colors, &background);
    XSetBackground(theDisplay, *theNewGC, background.pixel);

    XColor foreground{};
    if (!fore)
        fore = "black";
    if (!XLookupColor(theDisplay, colors, fore, &exact, &foreground)) {
        std::fprintf(stderr, "Attention MOSA: X Color %s not found.  Using white\n", fore);
        fore = "white";
        XLookupColor(theDisplay, colors, fore, &exact, &foreground);
    }
    if (!XAllocColor(theDisplay, colors, &foreground)) {
        std::fprintf(stderr, "Attention MOSA: Unable to allocate cell for color %s\n", fore);
        foreground.pixel = background.pixel;
    }
    XSetForeground(theDisplay, *theNewGC, foreground.pixel);
    return 1;
}

/// Loads a font and sets it into the context; null, and the context keeps its font, without it.
XFontStruct* initFont(Display* theDisplay, GC theNewGC, const char* fontName)
{
    XFontStruct* font = XLoadQueryFont(theDisplay, fontName);
    if (font)
        XSetFont(theDisplay, theNewGC, font->fid);
    return font;
}

/// Where the wall's outline stands in the banner window, and how large a wall pixel is there.
struct Outline {
    double scale;
    int left, top, width, height;
};

Outline placeOutline(int screenWidth, int screenHeight, int windowWidth, int windowHeight, int W,
                     int H)
{
    Outline outline{};
    const bool tall = 1.0 * screenWidth * H > 0.95 * screenHeight * W;
    // A wall file may leave out the wall's size; the outline then has none.
    if (tall)
        outline.scale = H ? 0.95 * windowHeight / H : 0;
    else
        outline.scale = W ? 1.0 * windowWidth / W : 0;
    outline.width = truncate(W * outline.scale);
    outline.height = truncate(H * outline.scale);
    outline.left = truncate(0.5 * (1.0 * windowWidth - outline.width));
    outline.top = truncate(0.524 * screenHeight - 0.5 * outline.height);
    return outline;
}

void drawText(Display* theDisplay, int x, int y, const char* text)
{
    XDrawImageString(theDisplay, theWindow, theColorGC, x, y, text,
                     static_cast<int>(std::strlen(text)));
}

} // namespace

int mosa_banner(Display* theDisplay, int theScreen, int W, int H, int x, int y, int w, int h)
{
    const char* font = environmentOr("MOSA_BANNER_FONT", "variable");
    const char* color = environmentOr("MOSA_BANNER_COLOR", "SkyBlue");
    const int seconds = std::max(0, std::atoi(environmentOr("MOSA_BANNER_TIME", "5")));

    const int screenWidth = DisplayWidth(theDisplay, theScreen);
    const int screenHeight = DisplayHeight(theDisplay, theScreen);
    const int windowWidth = static_cast<int>(0.96 * screenWidth);
    const int windowHeight = static_cast<int>(0.96 * screenHeight);
    theWindow =
        openWindow(theDisplay, theScreen, static_cast<int>(0.02 * screenWidth),
                   static_cast<int>(0.02 * screenHeight), windowWidth, windowHeight, 0, &theGC);
    if (!theWindow)
        return 0;
    if (!create_color_GC(theDisplay, theScreen, theWindow, "black", color, &theColorGC)) {
        XDestroyWindow(theDisplay, theWindow);
        return 0;
    }

    const Outline wall = placeOutline(screenWidth, screenHeight, windowWidth, windowHeight, W, H);
    XDrawRectangle(theDisplay, theWindow, theGC, wall.left, wall.top,
                   static_cast<unsigned>(wall.width), static_cast<unsigned>(wall.height));
    // The wall's y axis points up, the window's down.
    XFillRectangle(theDisplay, theWindow, theColorGC, truncate(wall.scale * x + wall.left),
                   truncate(wall.scale * (1.0 * H - y - h) + wall.top),
                   static_cast<unsigned>(truncate(wall.scale * w)),
                   static_cast<unsigned>(truncate(wall.scale * h)));

    fontStruct = initFont(theDisplay, theColorGC, font);
    const int textLeft = static_cast<int>(0.04 * screenWidth);
    drawText(theDisplay, textLeft, static_cast<int>(0.025 * windowHeight + 0.02 * screenHeight),
             banner1);
    drawText(theDisplay, textLeft, static_cast<int>(0.02 * screenHeight + 0.05 * windowHeight),
             banner2);

    XFlush(theDisplay);
    sleep(static_cast<unsigned>(seconds));
    if (fontStruct)
        XFreeFont(theDisplay, fontStruct);
    XDestroyWindow(theDisplay, theWindow);
    return 0;
}

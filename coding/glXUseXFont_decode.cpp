// glXUseXFont names a font; the server loads it, always from display ":0".
#include "coding/fromWire.h"
#include "coding/xErrors.h"

#include <cstdio>
#include <string>

namespace {

constexpr char fontDisplay[] = ":0";

// One connection for the process, opened at the first font.
Display* openFontDisplay()
{
    static Display* dpy;
    if (!dpy) {
        handleXErrors();
        dpy = XOpenDisplay(fontDisplay);
    }
    if (!dpy)
        std::fprintf(stderr, "Attention MOSA: glXUseXFont: unable to open display %s\n",
                     fontDisplay);
    return dpy;
}

} // namespace

char* _glXUseXFont(char* args)
{
    const int length = load<std::int32_t>(args);
    const char* behindName = args + 4 + length;
    char* end = args + 16 + length;
    // The name brings its terminating zero along; one that is missing or early does no harm.
    const std::string font{args + 4, strnlen(args + 4, static_cast<std::size_t>(length))};

    Display* dpy = openFontDisplay();
    if (!dpy)
        return end;
    const Font local = XLoadFont(dpy, font.c_str());
    XFontStruct* metrics = XQueryFont(dpy, local);
    if (!metrics) {
        std::fprintf(stderr, "Attention MOSA: glXUseXFont: display %s has no font %s\n",
                     fontDisplay, font.c_str());
        return end;
    }
    XFreeFontInfo(nullptr, metrics, 1); // the library asks for the metrics itself
    perform<Op::glXUseXFont>(local, load<std::int32_t>(behindName),
                             load<std::int32_t>(behindName + 4),
                             load<std::int32_t>(behindName + 8));
    return end;
}

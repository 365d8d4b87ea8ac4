// glXUseXFont names a font; the server loads it, always from display ":0".
#include "coding/display/xErrors.h"
#include "coding/fromWire.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

struct Freed {
    void operator()(char* memory) const { std::free(memory); }
};

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
    UseXFontBlock block;
    char* const end = loadBlock(args, block);
    // The name brings its terminating zero along; one that is missing does no harm.
    const auto length = static_cast<std::size_t>(block.name.length);
    const std::unique_ptr<char, Freed> font{static_cast<char*>(std::malloc(length + 1))};
    if (!font) {
        std::fputs("malloc failed .... glXUseXFont_decode\n", stderr);
        return end;
    }
    std::memcpy(font.get(), block.name.at, length);
    font.get()[length] = '\0';

    Display* dpy = openFontDisplay();
    if (!dpy)
        return end;
    const Font local = XLoadFont(dpy, font.get());
    XFontStruct* metrics = XQueryFont(dpy, local);
    if (!metrics) {
        std::fprintf(stderr, "Attention MOSA: glXUseXFont: display %s has no font %s\n",
                     fontDisplay, font.get());
        return end;
    }
    XFreeFontInfo(nullptr, metrics, 1); // the library asks for the metrics itself
    perform<Op::glXUseXFont>(local, block.first, block.count, block.listBase);
    return end;
}

// glXUseXFont: the font is the program's own, whatever fonts the nodes of the wall have. Each glyph
// becomes a list with its bitmap.
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/lists.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <memory>

namespace {

const XCharStruct* glyphOf(const XFontStruct& font, unsigned code)
{
    const unsigned row = code >> 8, column = code & 0xff;
    if (row < font.min_byte1 || row > font.max_byte1 || column < font.min_char_or_byte2 ||
        column > font.max_char_or_byte2)
        return nullptr;
    if (!font.per_char)
        return &font.max_bounds;
    const unsigned columns = font.max_char_or_byte2 - font.min_char_or_byte2 + 1;
    return &font.per_char[(row - font.min_byte1) * columns + column - font.min_char_or_byte2];
}

int cellWidthOf(const XFontStruct& font)
{
    return std::max(0, -font.min_bounds.lbearing) + std::max<int>(font.max_bounds.rbearing, 1);
}

struct Sheet {
    XImage* image;
    int cellWidth;
    int baseline; // below the upper edge
};

// Draws the glyphs side by side, in cells that hold each wholly, and reads them back at once.
Sheet drawGlyphs(Display* dpy, Font id, const XFontStruct& font, unsigned first, unsigned count)
{
    const int left = std::max(0, -font.min_bounds.lbearing);
    const int cellWidth = cellWidthOf(font);
    const int baseline = std::max<int>(font.max_bounds.ascent, 0);
    const int height = std::max(1, baseline + std::max<int>(font.max_bounds.descent, 0));
    const unsigned width = static_cast<unsigned>(cellWidth) * count;
    const Pixmap pixmap =
        XCreatePixmap(dpy, DefaultRootWindow(dpy), width, static_cast<unsigned>(height), 1);
    XGCValues values{};
    values.font = id;
    GC gc = XCreateGC(dpy, pixmap, GCFont | GCForeground | GCBackground, &values);
    XFillRectangle(dpy, pixmap, gc, 0, 0, width, static_cast<unsigned>(height));
    XSetForeground(dpy, gc, 1);
    for (unsigned i = 0; i < count; ++i) {
        const unsigned code = first + i;
        const XChar2b character{static_cast<unsigned char>(code >> 8),
                                static_cast<unsigned char>(code)};
        XDrawString16(dpy, pixmap, gc, static_cast<int>(i) * cellWidth + left, baseline, &character,
                      1);
    }
    XImage* image = XGetImage(dpy, pixmap, 0, 0, width, static_cast<unsigned>(height), 1, XYPixmap);
    XFreeGC(dpy, gc);
    XFreePixmap(dpy, pixmap);
    return {image, cellWidth, baseline};
}

// Rows from the bottom up, the highest bit first.
std::vector<unsigned char> bitsOf(const Sheet& sheet, int cell, int left, const XCharStruct& glyph)
{
    const int width = glyph.rbearing - glyph.lbearing, height = glyph.ascent + glyph.descent;
    const int rowBytes = (width + 7) / 8;
    std::vector<unsigned char> bits(static_cast<std::size_t>(rowBytes * height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (XGetPixel(sheet.image, cell * sheet.cellWidth + left + glyph.lbearing + x,
                          sheet.baseline + glyph.descent - 1 - y)) {
                auto& byte = bits[static_cast<std::size_t>(y * rowBytes + x / 8)];
                byte = static_cast<unsigned char>(byte | 0x80 >> x % 8);
            }
    return bits;
}

// How far each of the node's own lists moves the raster position: libraries differ where a glyph is
// empty. Drawn nowhere.
std::vector<GLfloat> advancesOf(int listBase, int count)
{
    std::vector<GLfloat> advances;
    callNative<Op::glPushAttrib>(GLbitfield{GL_CURRENT_BIT | GL_COLOR_BUFFER_BIT});
    callNative<Op::glDrawBuffer>(GLenum{GL_NONE});
    for (int i = 0; i < count; ++i) {
        GLfloat position[4] = {};
        callNative<Op::glWindowPos2i>(0, 0);
        callNative<Op::glCallList>(static_cast<GLuint>(listBase + i));
        callNative<Op::glGetFloatv>(GLenum{GL_CURRENT_RASTER_POSITION}, position);
        advances.push_back(position[0]);
    }
    callNative<Op::glPopAttrib>();
    return advances;
}

void useXFont(Font id, int first, int count, int listBase)
{
    callNative<Op::glXUseXFont>(id, first, count, listBase);
    Display* dpy = currentContext().dpy;
    constexpr int mostGlyphs = 4096;
    if (!isRecorded<Effect::defines>() || first < 0 || count < 1)
        return;
    if (count > mostGlyphs)
        return tell(Reason::fontTooLarge);
    XFontStruct* const font = dpy ? XQueryFont(dpy, id) : nullptr;
    if (!font)
        return tell(Reason::noFont);
    constexpr int widest = 32767; // of a pixmap
    const int atOnce = std::max(1, widest / cellWidthOf(*font));
    Sheet sheet{};
    const int left = std::max(0, -font->min_bounds.lbearing);
    const std::vector<GLfloat> advances = advancesOf(listBase, count);
    for (int i = 0; i < count; ++i) {
        if (i % atOnce == 0) {
            if (sheet.image)
                XDestroyImage(sheet.image);
            sheet = drawGlyphs(dpy, id, *font, static_cast<unsigned>(first + i),
                               static_cast<unsigned>(std::min(atOnce, count - i)));
        }
        if (!sheet.image)
            break;
        std::vector<unsigned char> records;
        if (const XCharStruct* glyph = glyphOf(*font, static_cast<unsigned>(first + i))) {
            const int width = glyph->rbearing - glyph->lbearing;
            const int height = glyph->ascent + glyph->descent;
            const bool empty = width <= 0 || height <= 0;
            const std::vector<unsigned char> bits =
                empty ? std::vector<unsigned char>{} : bitsOf(sheet, i % atOnce, left, *glyph);
            encode<Op::glBitmap>(
                records, empty ? 0 : width, empty ? 0 : height,
                static_cast<GLfloat>(-glyph->lbearing), static_cast<GLfloat>(glyph->descent - 1),
                advances[static_cast<std::size_t>(i)], 0.0F,
                Block{empty ? nullptr : bits.data(), static_cast<int>(bits.size())});
        }
        keepList(static_cast<GLuint>(listBase + i), std::move(records));
    }
    if (sheet.image)
        XDestroyImage(sheet.image);
    XFreeFontInfo(nullptr, font, 1);
}

} // namespace

void installFonts() { install<Op::glXUseXFont>(useXFont); }

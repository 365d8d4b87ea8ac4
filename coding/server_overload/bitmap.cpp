// Bitmaps. The system library cannot zoom them: the server resamples each to the wall's scale.
#include "coding/server_overload/currentContext.h"
#include "coding/server_overload/localDrawing.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

// The unpack parameters that the resampled bitmap must not be read with.
constexpr GLenum unpackParameters[] = {GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS,
                                       GL_UNPACK_SKIP_PIXELS, GL_UNPACK_ALIGNMENT};
constexpr GLint plainUnpack[] = {0, 0, 0, 1};
using SavedUnpack = GLint[std::size(unpackParameters)];

void setUnpack(const GLint* values)
{
    for (const GLenum name : unpackParameters)
        callSystem<Op::glPixelStorei>(name, *values++);
}

struct Bitmap {
    int columns, rows;
    int rowBytes; // whole bytes, most significant bit first, rows from the bottom up
};

// A huge pixel scale makes as many columns as an int holds: no room to round up by adding.
Bitmap bitmapOf(int columns, int rows) { return {columns, rows, columns / 8 + (columns % 8 != 0)}; }

struct Freed {
    void operator()(GLubyte* bytes) const { std::free(bytes); }
};

// Enlarges one row; dx is source pixels per output pixel.
void resampleRow(const Bitmap& in, const GLubyte* from, const Bitmap& out, float dx, GLubyte* to)
{
    double fi = 0;
    for (int j = 0; j < out.columns; ++j, fi += dx) {
        const int c = std::min(truncate(fi), in.columns - 1);
        if (from[c / 8] & (0x80 >> (c % 8)))
            to[j / 8] = static_cast<GLubyte>(to[j / 8] | (0x80 >> (j % 8)));
    }
}

// Nearest source pixel by truncation. Output rows of the same source row are equal.
void resample(const Bitmap& in, const GLubyte* source, const Bitmap& out, float dx, float dy,
              GLubyte* target)
{
    double fj = 0;
    std::int64_t before = -1; // the source row of the output row before
    for (int i = 0; i < out.rows; ++i, fj += dy, target += out.rowBytes) {
        const std::int64_t row = std::min(truncate(fj), in.rows - 1);
        const GLubyte* const from = source + row * in.rowBytes;
        if (row == before)
            std::copy_n(target - out.rowBytes, out.rowBytes, target);
        else if (std::any_of(from, from + in.rowBytes, [](GLubyte bits) { return bits != 0; }))
            resampleRow(in, from, out, dx, target);
        before = row;
    }
}

// Draws the bitmap at `trect`, in local window pixels, enlarged to its size. Leaves the local
// pixels selected.
ReplacedState drawScaled(const Bitmap& in, const GLubyte* bitmap, const MWRect& wrect,
                         const MWRect& trect, float xorig, float yorig)
{
    const LocalDrawableInfo& ldi = *currDrawableInfo;
    const MWRect& lrect = ldi.lrect;
    const Bitmap out = bitmapOf(truncate(trect.w), truncate(trect.h));
    const float dx = static_cast<float>(in.columns) / trect.w;
    const float dy = static_cast<float>(in.rows) / trect.h;
    const auto scaledBytes = static_cast<std::int64_t>(double{wrect.h} * out.rowBytes);
    const std::int64_t size =
        std::max({scaledBytes, std::int64_t{out.rowBytes} * out.rows, std::int64_t{1}});
    std::unique_ptr<GLubyte, Freed> new_bitmap{
        static_cast<GLubyte*>(std::calloc(static_cast<std::size_t>(size), 1))};
    require(new_bitmap != nullptr, "new_bitmap");
    resample(in, bitmap, out, dx, dy, new_bitmap.get());

    const ReplacedState replaced = selectLocalPixels(lrect);
    const auto within = [](float at, float origin, float extent) {
        return origin <= at && at <= origin + extent;
    };
    if (within(trect.x, lrect.x, lrect.w) && within(trect.y, lrect.y, lrect.h))
        callSystem<Op::glRasterPos2f>(trect.x, trect.y);
    else {
        // From a valid position inside the window; the move keeps it valid.
        callSystem<Op::glRasterPos2f>(lrect.x, lrect.y);
        callSystem<Op::glBitmap>(0, 0, 0.0F, 0.0F, trect.x - lrect.x, trect.y - lrect.y, nullptr);
    }
    callSystem<Op::glBitmap>(out.columns, out.rows, xorig * ldi.psx, yorig * ldi.psy, 0.0F, 0.0F,
                             new_bitmap.get());
    return replaced;
}

bool apart(const MWRect& a, const MWRect& b)
{
    return a.x > b.x + b.w || b.x > a.x + a.w || a.y > b.y + b.h || b.y > a.y + a.h;
}

// A bitmap larger than what the wall can show of it, with room for one that reaches beyond its
// edges: it comes of a stream whose window size is damaged, and would take gigabytes and minutes.
bool tooLarge(const MWRect& rect)
{
    constexpr double alwaysAllowed = 1 << 26; // pixels
    const double wall = 1.0 * currLocalDisplay->vWidth * currLocalDisplay->vHeight;
    return std::max(rect.w, 1.0F) * double{std::max(rect.h, 1.0F)} >
           std::max(alwaysAllowed, 2 * wall);
}

} // namespace

void _glBitmap(GLsizei width, GLsizei height, GLfloat xorig, GLfloat yorig, GLfloat xmove,
               GLfloat ymove, const GLubyte* bitmap)
{
    LocalContextInfo& lctx = currentContextOnDisplay();
    const LocalDrawableInfo& ldi = *currDrawableInfo;
    const MWRect arect{static_cast<float>(lctx.tileRP[0]), static_cast<float>(lctx.tileRP[1]),
                       static_cast<float>(width), static_cast<float>(height)};

    // Bitmaps arrive most significant bit first, in rows of whole bytes.
    callSystem<Op::glPixelStorei>(GLenum{GL_UNPACK_LSB_FIRST}, 0);
    SavedUnpack saved;
    std::ranges::transform(unpackParameters, saved, systemInteger);
    setUnpack(plainUnpack);

    lctx.tileRP[0] += xmove;
    lctx.tileRP[1] += ymove;

    std::optional<ReplacedState> replaced;
    if (bitmap && width >= 1 && height >= 1) {
        const MWRect& tile = currLocalDisplay->rect;
        const MWRect& lrect = ldi.lrect;
        MWRect wrect;
        MWRect trect;
        MWRect shifted; // by the bitmap's origin: a descender reaches over the seam below
        _scaleRect(arect, ldi.psx, ldi.psy, &wrect);
        _translateRect(wrect, -(tile.x + lrect.x), -(tile.y + lrect.y), &trect);
        _translateRect(trect, -xorig * ldi.psx, -yorig * ldi.psy, &shifted);
        if (tooLarge(wrect))
            std::fprintf(stderr,
                         "Attention MOSA: glBitmap: %g x %g pixels on the wall are too many\n",
                         static_cast<double>(wrect.w), static_cast<double>(wrect.h));
        else if (!apart(lrect, trect) || !apart(lrect, shifted))
            replaced = drawScaled(bitmapOf(width, height), bitmap, wrect, trect, xorig, yorig);
    }
    setUnpack(saved);
    if (replaced)
        restoreApplicationPixels(*replaced);
}

#include "capture/pictures.h"
#include "capture/imageRecords.h"
#include "capture/readBack.h"
#include "capture/rows.h"
#include "capture/stream.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr int pixelBytes = 4;

// ---- Reading back ------------------------------------------------------------------------------

// What a context has, as far as it changes what is read back.
struct Abilities {
    bool es = false;
    bool readFramebuffer = false; // one for reading and one for drawing
    bool framebuffer = false;     // one for both
    bool packBuffer = false;
    bool packLayout = false; // row lengths and skips
    bool readBuffer = false;
    bool transfer = false; // pixel transfer, on the attribute stack
};

Abilities currentAbilities()
{
    const auto* text = reinterpret_cast<const char*>(callNative<Op::glGetString>(GL_VERSION));
    std::string_view version = text ? text : "";
    Abilities has;
    constexpr std::string_view esBegins = "OpenGL ES ";
    has.es = version.starts_with(esBegins);
    if (has.es)
        version.remove_prefix(esBegins.size());
    const int major = std::atoi(version.data());
    const std::size_t point = version.find('.');
    const int minor = point == version.npos ? 0 : std::atoi(version.data() + point + 1);
    has.readFramebuffer = major >= 3;
    has.packBuffer = major >= 3 || (!has.es && major == 2 && minor >= 1);
    has.packLayout = has.readBuffer = !has.es || major >= 3;
    has.framebuffer = has.es && major == 2;
    if (has.es)
        return has;
    if (major < 3) {
        const auto* names =
            reinterpret_cast<const char*>(callNative<Op::glGetString>(GL_EXTENSIONS));
        const std::string_view extensions = names ? names : "";
        has.readFramebuffer = extensions.find("GL_ARB_framebuffer_object") != extensions.npos;
        has.framebuffer =
            !has.readFramebuffer && extensions.find("GL_EXT_framebuffer_object") != extensions.npos;
    }
    GLint profile = 0;
    if (major > 3 || (major == 3 && minor >= 2))
        callNative<Op::glGetIntegerv>(GLenum{GL_CONTEXT_PROFILE_MASK}, &profile);
    has.transfer = !(profile & GL_CONTEXT_CORE_PROFILE_BIT) && !(major == 3 && minor == 1);
    return has;
}

void bindFramebuffer(GLenum target, GLuint name)
{
    static auto* const native =
        reinterpret_cast<decltype(&glBindFramebuffer)>(nativeByName("glBindFramebuffer"));
    native(target, name);
}

// The format in which this machine has pictures, so that they are copied as they are. The other is
// what every OpenGL ES has.
GLenum formatOf(const Abilities& has) { return has.es ? GL_RGBA : GL_BGRA; }

void readBack(const Abilities& has, bool front, int width, int height, unsigned char* to)
{
    constexpr GLenum layout[] = {GL_PACK_ALIGNMENT, GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS,
                                 GL_PACK_SKIP_PIXELS, GL_PACK_SWAP_BYTES};
    const int used = !has.packLayout ? 1 : has.es ? 4 : 5;
    GLint kept[std::size(layout)];
    for (int i = 0; i < used; ++i) {
        kept[i] = stateOf(layout[i]);
        callNative<Op::glPixelStorei>(layout[i], i == 0 ? pixelBytes : 0);
    }
    const GLenum target = has.readFramebuffer ? GL_READ_FRAMEBUFFER : GL_FRAMEBUFFER;
    const bool framebuffers = has.readFramebuffer || has.framebuffer;
    const GLint framebuffer =
        framebuffers
            ? stateOf(has.readFramebuffer ? GL_READ_FRAMEBUFFER_BINDING : GL_FRAMEBUFFER_BINDING)
            : 0;
    if (framebuffer != 0)
        bindFramebuffer(target, 0);
    const GLint packBuffer = has.packBuffer ? stateOf(GL_PIXEL_PACK_BUFFER_BINDING) : 0;
    if (packBuffer != 0)
        bindPackBuffer(0);
    const GLenum wanted = front && !has.es ? GL_FRONT : GL_BACK;
    const GLint readBuffer = has.readBuffer ? stateOf(GL_READ_BUFFER) : 0;
    const bool otherBuffer = has.readBuffer && static_cast<GLenum>(readBuffer) != wanted;
    if (otherBuffer)
        callNative<Op::glReadBuffer>(wanted);
    const SavedTransfer transfer = has.transfer ? plainPixelTransfer() : SavedTransfer{};
    callNative<Op::glReadPixels>(0, 0, width, height, formatOf(has), GLenum{GL_UNSIGNED_BYTE},
                                 static_cast<void*>(to));
    if (has.transfer)
        restorePixelTransfer(transfer);
    if (otherBuffer)
        callNative<Op::glReadBuffer>(static_cast<GLenum>(readBuffer));
    if (packBuffer != 0)
        bindPackBuffer(static_cast<GLuint>(packBuffer));
    if (framebuffer != 0)
        bindFramebuffer(target, static_cast<GLuint>(framebuffer));
    for (int i = 0; i < used; ++i)
        callNative<Op::glPixelStorei>(layout[i], kept[i]);
}

// ---- What has changed --------------------------------------------------------------------------

struct Part {
    int x, y, width, height;
};

const unsigned char* rowOf(const ShownPicture& picture, const std::vector<unsigned char>& pixels,
                           int y)
{
    return pixels.data() + std::size_t{pixelBytes} * static_cast<std::size_t>(picture.width) *
                               static_cast<std::size_t>(y);
}

// The pixels that differ in so many rows, between columns that are multiples of a step.
Part changedIn(const ShownPicture& picture, int y, int rows)
{
    constexpr int step = 64;
    const auto differs = [&](int row, int x, int width) {
        const std::size_t at = std::size_t{pixelBytes} * static_cast<std::size_t>(x);
        return std::memcmp(rowOf(picture, picture.next, row) + at,
                           rowOf(picture, picture.shown, row) + at,
                           std::size_t{pixelBytes} * static_cast<std::size_t>(width)) != 0;
    };
    int left = picture.width;
    int right = 0;
    for (int row = y; row < y + rows; ++row) {
        if (!differs(row, 0, picture.width))
            continue;
        int x = 0;
        while (x < left && !differs(row, x, std::min(step, picture.width - x)))
            x += step;
        left = std::min(left, x);
        x = (picture.width - 1) / step * step;
        while (x >= right && !differs(row, x, std::min(step, picture.width - x)))
            x -= step;
        right = std::max(right, std::min(x + step, picture.width));
    }
    return {left, y, std::max(right - left, 0), rows};
}

std::vector<Part> changedParts(const ShownPicture& picture)
{
    constexpr int band = 16;                    // rows
    constexpr std::int64_t mostBytes = 1 << 19; // of a part
    std::vector<Part> parts;
    for (int y = 0; y < picture.height; y += band) {
        const int rows = std::min(band, picture.height - y);
        const Part part =
            picture.shown.empty() ? Part{0, y, picture.width, rows} : changedIn(picture, y, rows);
        if (part.width == 0)
            continue;
        Part* const below = parts.empty() ? nullptr : &parts.back();
        if (below && below->x == part.x && below->width == part.width &&
            below->y + below->height == part.y &&
            std::int64_t{part.width} * (below->height + rows) * pixelBytes <= mostBytes)
            below->height += rows;
        else
            parts.push_back(part);
    }
    return parts;
}

// A filter looks at a pixel beyond the edge: where the texture goes on there, it has that of the
// edge.
void recordPart(const ShownPicture& picture, const Part& part, GLenum format)
{
    const bool atRight =
        part.x + part.width == picture.width && picture.textureWidth > picture.width;
    const bool atTop =
        part.y + part.height == picture.height && picture.textureHeight > picture.height;
    const GLsizei width = part.width + atRight;
    const GLsizei height = part.height + atTop;
    const auto fill = [&](unsigned char* to) {
        const std::size_t bytes = std::size_t{pixelBytes} * static_cast<std::size_t>(part.width);
        for (GLsizei row = 0; row < height; ++row) {
            const unsigned char* from =
                rowOf(picture, picture.next, part.y + std::min(row, part.height - 1)) +
                std::size_t{pixelBytes} * static_cast<std::size_t>(part.x);
            std::memcpy(to, from, bytes);
            to += bytes;
            if (atRight) {
                std::memcpy(to, from + bytes - pixelBytes, pixelBytes);
                to += pixelBytes;
            }
        }
    };
    recordPixels<Op::glTexSubImage2D>(std::int64_t{width} * height * pixelBytes, false, fill,
                                      GLenum{GL_TEXTURE_2D}, 0, part.x, part.y, width, height,
                                      format, GLenum{GL_UNSIGNED_BYTE});
}

// ---- Enlarging ---------------------------------------------------------------------------------

// Smooth: each pixel of the wall is between the four of the picture that are next to it. Blocks:
// each is one of the picture's, and at whole factors all are as large. Averaged: where an edge of a
// block falls within a pixel of the wall, that is between the two.
enum class Enlargement { smooth, blocks, averaged };

Enlargement enlargementOf(const ShownPicture& picture)
{
    const CaptureOptions& options = captureOptions;
    const bool isWhole =
        picture.onWallWidth % picture.width == 0 && picture.onWallHeight % picture.height == 0;
    const auto isEnlarged = [&picture](int times) {
        return picture.onWallWidth >= times * picture.width &&
               picture.onWallHeight >= times * picture.height;
    };
    if (options.wallWidth <= 0) // a recording, for walls of any size
        return options.enlarging == Enlarging::sharp ? Enlargement::blocks : Enlargement::smooth;
    const bool isOfSameSize =
        picture.onWallWidth == picture.width && picture.onWallHeight == picture.height;
    const bool isSharp = options.enlarging == Enlarging::sharp       ? isEnlarged(1)
                         : options.enlarging == Enlarging::automatic ? isEnlarged(2)
                                                                     : isOfSameSize;
    return !isSharp && !isOfSameSize ? Enlargement::smooth
           : isWhole                 ? Enlargement::blocks
                                     : Enlargement::averaged;
}

// The texture over all of the viewport, moved by a part of the wall's pixels.
void recordQuad(const ShownPicture& picture, float pixelsRight, float pixelsUp)
{
    constexpr Effect draws = Effect::draws;
    const float right =
        static_cast<float>(picture.width) / static_cast<float>(picture.textureWidth);
    const float top =
        static_cast<float>(picture.height) / static_cast<float>(picture.textureHeight);
    const float dx = right * pixelsRight / static_cast<float>(picture.onWallWidth);
    const float dy = top * pixelsUp / static_cast<float>(picture.onWallHeight);
    record<Op::glBegin, draws>(GLenum{GL_QUADS});
    for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
        record<Op::glTexCoord2f, draws>((x ? right : 0.0F) + dx, (y ? top : 0.0F) + dy);
        record<Op::glVertex2f, draws>(x ? 1.0F : -1.0F, y ? 1.0F : -1.0F);
    }
    record<Op::glEnd, draws>();
}

} // namespace

void describePicture(ShownPicture& picture, int width, int height, int onWallWidth,
                     int onWallHeight)
{
    const auto powerOfTwo = [](int n) {
        return static_cast<int>(std::bit_ceil(static_cast<unsigned>(n)));
    };
    picture = {width, height, powerOfTwo(width), powerOfTwo(height),
               {},    {},     onWallWidth,       onWallHeight};
    const Enlargement enlargement = enlargementOf(picture);
    picture.averaged = enlargement == Enlargement::averaged;
    constexpr Effect state = Effect::state, defines = Effect::defines;
    for (const GLenum mode : {GL_PROJECTION, GL_MODELVIEW}) {
        record<Op::glMatrixMode, state>(mode);
        record<Op::glLoadIdentity, state>();
    }
    record<Op::glDisable, state>(GLenum{GL_DITHER});
    record<Op::glEnable, state>(GLenum{GL_TEXTURE_2D});
    record<Op::glTexEnvi, state>(GLenum{GL_TEXTURE_ENV}, GLenum{GL_TEXTURE_ENV_MODE}, GL_REPLACE);
    record<Op::glBindTexture, defines>(GLenum{GL_TEXTURE_2D}, GLuint{1});
    if (picture.averaged) {
        record<Op::glEnable, state>(GLenum{GL_BLEND});
        record<Op::glBlendFunc, state>(GLenum{GL_CONSTANT_ALPHA},
                                       GLenum{GL_ONE_MINUS_CONSTANT_ALPHA});
    } else
        record<Op::glDisable, state>(GLenum{GL_BLEND});
    const GLint filter = enlargement == Enlargement::smooth ? GL_LINEAR : GL_NEAREST;
    for (const auto& [name, value] : {std::pair{GL_TEXTURE_MIN_FILTER, filter},
                                      {GL_TEXTURE_MAG_FILTER, filter},
                                      {GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE},
                                      {GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE}})
        record<Op::glTexParameteri, defines>(GLenum{GL_TEXTURE_2D}, static_cast<GLenum>(name),
                                             value);
    record<Op::glTexImage2D, defines>(GLenum{GL_TEXTURE_2D}, 0, GLint{GL_RGBA8},
                                      picture.textureWidth, picture.textureHeight, 0,
                                      GLenum{GL_RGBA}, GLenum{GL_UNSIGNED_BYTE}, Block{nullptr, 0});
}

void recordPicture(ShownPicture& picture, bool front)
{
    if (picture.width <= 0 || picture.height <= 0)
        return;
    const Abilities has = currentAbilities();
    picture.next.resize(std::size_t{pixelBytes} * static_cast<std::size_t>(picture.width) *
                        static_cast<std::size_t>(picture.height));
    readBack(has, front, picture.width, picture.height, picture.next.data());
    for (const Part& part : changedParts(picture))
        recordPart(picture, part, formatOf(has));
    std::swap(picture.shown, picture.next);

    if (!picture.averaged)
        return recordQuad(picture, 0, 0);
    // The average of the blocks at four places within each pixel of the wall. These lie a little
    // off the quarters: an edge of a block that falls on one would be seen by some tiles on this
    // side of it and by others on that.
    constexpr float quarter = 0.25F, off = 0.0137F;
    float shareOfThis = 1;
    for (const float up : {-quarter + off, quarter + off})
        for (const float right : {-quarter + off, quarter + off}) {
            record<Op::glBlendColor, Effect::state>(0.0F, 0.0F, 0.0F, shareOfThis);
            recordQuad(picture, right, up);
            shareOfThis /= 1 + shareOfThis;
        }
}

// Images: packed from the program's memory as its unpack state says, and sent without gaps, in this
// machine's byte order, bits from the most significant on. The wall's unpack alignment is 1, and no
// other unpack parameter is ever sent.
#include "capture/bufferObjects.h"
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/imageRecords.h"
#include "capture/keptImages.h"
#include "capture/raster.h"
#include "wire/imageMemory.h"

#include <algorithm>
#include <span>

namespace {

struct Unpack {
    UnpackState state;
    bool swapBytes, lsbFirst;
};

Unpack currentUnpack()
{
    return {{stateOf(GL_UNPACK_ALIGNMENT, 4), stateOf(GL_UNPACK_ROW_LENGTH),
             stateOf(GL_UNPACK_SKIP_ROWS), stateOf(GL_UNPACK_SKIP_PIXELS),
             stateOf(GL_UNPACK_IMAGE_HEIGHT), stateOf(GL_UNPACK_SKIP_IMAGES)},
            stateOf(GL_UNPACK_SWAP_BYTES) != 0,
            stateOf(GL_UNPACK_LSB_FIRST) != 0};
}

/// An image in the program's memory, or in a buffer object.
struct Picture {
    const void* pixels;
    ImageSize size;
};

bool isBits(const ImageSize& size) { return size.type == GL_BITMAP; }

std::int64_t rowBytes(const ImageSize& size)
{
    return isBits(size) ? (size.width + 7) / 8 : size.width * pixelBytes(size.format, size.type);
}

/// Bytes without gaps; negative when there is no such image.
std::int64_t packedBytes(const ImageSize& size)
{
    if (!isBits(size) && pixelBytes(size.format, size.type) == 0)
        return -1;
    if (size.width < 0)
        return -1;
    return byteCount(rowBytes(size), size.height, size.depth);
}

void packBits(unsigned char* to, const unsigned char* from, int skip, int width, bool lsbFirst)
{
    if (skip % 8 == 0 && !lsbFirst) {
        std::memcpy(to, from + skip / 8, static_cast<std::size_t>((width + 7) / 8));
        return;
    }
    std::memset(to, 0, static_cast<std::size_t>((width + 7) / 8));
    for (int i = 0; i < width; ++i) {
        const int bit = skip + i;
        const int shift = lsbFirst ? bit % 8 : 7 - bit % 8;
        if (from[bit / 8] >> shift & 1)
            to[i / 8] = static_cast<unsigned char>(to[i / 8] | 0x80 >> i % 8);
    }
}

void swapUnits(unsigned char* at, std::int64_t bytes, int unit)
{
    for (std::int64_t i = 0; i < bytes; i += unit)
        std::reverse(at + i, at + i + unit);
}

void pack(unsigned char* to, const unsigned char* pixels, const ImageSize& size,
          const Unpack& unpack)
{
    const ImagePlaces places = placesOf(size, unpack.state);
    const std::int64_t bytes = rowBytes(size);
    const std::int64_t skipped = unpack.state.skipPixels;
    const unsigned char* from = pixels + places.first;
    for (std::int64_t image = 0; image < size.depth; ++image, from += places.image) {
        if (!isBits(size) && places.row == bytes && skipped == 0) {
            std::memcpy(to, from, static_cast<std::size_t>(bytes * size.height));
            to += bytes * size.height;
            continue;
        }
        const unsigned char* at = from;
        for (std::int64_t y = 0; y < size.height; ++y, at += places.row, to += bytes) {
            if (isBits(size))
                packBits(to, at, static_cast<int>(skipped), static_cast<int>(size.width),
                         unpack.lsbFirst);
            else
                std::memcpy(to, at + skipped * places.pixelBits / 8,
                            static_cast<std::size_t>(bytes));
        }
    }
    if (const int unit = pixelUnit(size.type).bytes; unpack.swapBytes && unit > 1) {
        const std::int64_t all = bytes * size.height * size.depth;
        swapUnits(to - all, all, unit);
    }
}

/// The pixels of an image without gaps; none where it has none, or OpenGL refuses it.
std::vector<unsigned char> packed(const Picture& picture)
{
    const std::int64_t bytes = packedBytes(picture.size);
    if (!picture.pixels || bytes <= 0)
        return {};
    const Unpack unpack = currentUnpack();
    const void* const from = unpackSource(picture.pixels, placesOf(picture.size, unpack.state).end);
    if (!from)
        return {};
    std::vector<unsigned char> pixels(static_cast<std::size_t>(bytes));
    pack(pixels.data(), static_cast<const unsigned char*>(from), picture.size, unpack);
    return pixels;
}

/// An image where it is, if it has no gaps there, or else where it is packed until the thread's
/// next.
std::span<const unsigned char> withoutGaps(const unsigned char* pixels, std::int64_t bytes,
                                           const ImageSize& size, const Unpack& unpack)
{
    if (bytes <= 0)
        return {};
    const auto count = static_cast<std::size_t>(bytes);
    const ImagePlaces places = placesOf(size, unpack.state);
    if (!isBits(size) && !unpack.swapBytes && places.row == rowBytes(size) &&
        unpack.state.skipPixels == 0)
        return {pixels + places.first, count};
    thread_local std::vector<unsigned char> scratch;
    scratch.resize(count);
    pack(scratch.data(), pixels, size, unpack);
    return scratch;
}

bool isInBuffer() { return currentContext().client.unpackBuffer != nullptr; }

// The image's operation: its scalars, then the pixels.
template <Op op, class... Scalars>
void recordImage(const Picture& picture, Scalars... scalars)
{
    if (!isRecorded<effectOf<op>>() || !canAsk())
        return;
    const bool none = !picture.pixels && !isInBuffer();
    const std::int64_t bytes = none ? 0 : packedBytes(picture.size);
    const Unpack unpack = bytes > 0 ? currentUnpack() : Unpack{};
    const void* from = picture.pixels;
    if (bytes > 0) {
        from = unpackSource(picture.pixels, placesOf(picture.size, unpack.state).end);
        if (!from) // more than the buffer object holds: refused
            return;
    }
    const auto* pixels = static_cast<const unsigned char*>(from);
    if constexpr (op == Op::glTexImage2D) {
        const std::span<const unsigned char> all = withoutGaps(pixels, bytes, picture.size, unpack);
        const auto& [target, level, internalFormat, width, height, border, format, type] =
            std::tie(scalars...);
        if (none)
            noteImagesChanged(op); // contents that nobody knows
        else if (isAtServers(target, level,
                             {internalFormat, width, height, border, static_cast<GLint>(format),
                              static_cast<GLint>(type)},
                             all))
            return;
        return recordPixels<op>(
            bytes, none, [&](unsigned char* to) { std::ranges::copy(all, to); }, scalars...);
    }
    recordPixels<op>(
        bytes, none, [&](unsigned char* to) { pack(to, pixels, picture.size, unpack); },
        scalars...);
}

void texImage1D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLint border,
                GLenum format, GLenum type, const void* pixels)
{
    if (!isProxy(target))
        recordImage<Op::glTexImage1D>({pixels, {width, 1, 1, format, type}}, target, level,
                                      internalFormat, width, border, format, type);
    callNative<Op::glTexImage1D>(target, level, internalFormat, width, border, format, type,
                                 pixels);
}

void texImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
                GLint border, GLenum format, GLenum type, const void* pixels)
{
    if (!isProxy(target))
        recordImage<Op::glTexImage2D>({pixels, {width, height, 1, format, type}}, target, level,
                                      internalFormat, width, height, border, format, type);
    callNative<Op::glTexImage2D>(target, level, internalFormat, width, height, border, format, type,
                                 pixels);
}

template <Op op, class Format>
void texImage3D(GLenum target, GLint level, Format internalFormat, GLsizei width, GLsizei height,
                GLsizei depth, GLint border, GLenum format, GLenum type, const void* pixels)
{
    if (!isProxy(target))
        recordImage<op>({pixels, {width, height, depth, format, type, true}}, target, level,
                        internalFormat, width, height, depth, border, format, type);
    callNative<op>(target, level, internalFormat, width, height, depth, border, format, type,
                   pixels);
}

template <Op op>
void texSubImage1D(GLenum target, GLint level, GLint x, GLsizei width, GLenum format, GLenum type,
                   const void* pixels)
{
    recordImage<Op::glTexSubImage1D>({pixels, {width, 1, 1, format, type}}, target, level, x, width,
                                     format, type);
    callNative<op>(target, level, x, width, format, type, pixels);
}

template <Op op>
void texSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                   GLenum format, GLenum type, const void* pixels)
{
    recordImage<Op::glTexSubImage2D>({pixels, {width, height, 1, format, type}}, target, level, x,
                                     y, width, height, format, type);
    callNative<op>(target, level, x, y, width, height, format, type, pixels);
}

template <Op op>
void texSubImage3D(GLenum target, GLint level, GLint x, GLint y, GLint z, GLsizei width,
                   GLsizei height, GLsizei depth, GLenum format, GLenum type, const void* pixels)
{
    recordImage<Op::glTexSubImage3D>({pixels, {width, height, depth, format, type, true}}, target,
                                     level, x, y, z, width, height, depth, format, type);
    callNative<op>(target, level, x, y, z, width, height, depth, format, type, pixels);
}

void drawPixels(GLsizei width, GLsizei height, GLenum format, GLenum type, const void* pixels)
{
    atRasterPosition(false, [&] {
        recordImage<Op::glDrawPixels>({pixels, {width, height, 1, format, type}}, width, height,
                                      format, type);
    });
    callNative<Op::glDrawPixels>(width, height, format, type, pixels);
}

void bitmap(GLsizei width, GLsizei height, GLfloat xorig, GLfloat yorig, GLfloat xmove,
            GLfloat ymove, const GLubyte* bits)
{
    atRasterPosition(true, [&] {
        recordImage<Op::glBitmap>({bits, {width, height, 1, GL_COLOR_INDEX, GL_BITMAP}}, width,
                                  height, xorig, yorig, xmove, ymove);
    });
    callNative<Op::glBitmap>(width, height, xorig, yorig, xmove, ymove, bits);
}

void polygonStipple(const GLubyte* mask)
{
    GLubyte block[1024] = {}; // what the record carries; OpenGL reads the first 128
    if (isRecorded<Effect::state>() && canAsk()) {
        const ImageSize size{32, 32, 1, GL_COLOR_INDEX, GL_BITMAP};
        const Unpack unpack = currentUnpack();
        if (const void* from = unpackSource(mask, placesOf(size, unpack.state).end)) {
            pack(block, static_cast<const unsigned char*>(from), size, unpack);
            record<Op::glPolygonStipple, Effect::state>(block);
        }
    }
    callNative<Op::glPolygonStipple>(mask);
}

template <Op op>
void colorTable(GLenum target, GLenum internalFormat, GLsizei width, GLenum format, GLenum type,
                const void* table)
{
    if (!isProxy(target))
        recordImage<op>({table, {width, 1, 1, format, type}}, target, internalFormat, width, format,
                        type);
    callNative<op>(target, internalFormat, width, format, type, table);
}

void colorSubTable(GLenum target, GLsizei start, GLsizei count, GLenum format, GLenum type,
                   const void* data)
{
    recordImage<Op::glColorSubTable>({data, {count, 1, 1, format, type}}, target, start, count,
                                     format, type);
    callNative<Op::glColorSubTable>(target, start, count, format, type, data);
}

void convolutionFilter1D(GLenum target, GLenum internalFormat, GLsizei width, GLenum format,
                         GLenum type, const void* image)
{
    recordImage<Op::glConvolutionFilter1D>({image, {width, 1, 1, format, type}}, target,
                                           internalFormat, width, format, type);
    callNative<Op::glConvolutionFilter1D>(target, internalFormat, width, format, type, image);
}

void convolutionFilter2D(GLenum target, GLenum internalFormat, GLsizei width, GLsizei height,
                         GLenum format, GLenum type, const void* image)
{
    recordImage<Op::glConvolutionFilter2D>({image, {width, height, 1, format, type}}, target,
                                           internalFormat, width, height, format, type);
    callNative<Op::glConvolutionFilter2D>(target, internalFormat, width, height, format, type,
                                          image);
}

void separableFilter2D(GLenum target, GLenum internalFormat, GLsizei width, GLsizei height,
                       GLenum format, GLenum type, const void* row, const void* column)
{
    if (isRecorded<Effect::state>() && canAsk()) {
        const auto rows = packed({row, {width, 1, 1, format, type}});
        const auto columns = packed({column, {height, 1, 1, format, type}});
        const auto size = [](const auto& v) { return static_cast<std::int32_t>(v.size()); };
        record<Op::glSeparableFilter2D, Effect::state>(
            SeparableFilterBlock{target,
                                 internalFormat,
                                 width,
                                 height,
                                 format,
                                 type,
                                 size(rows),
                                 size(columns),
                                 !row,
                                 !column,
                                 {rows.data(), size(rows)},
                                 {columns.data(), size(columns)}});
    }
    callNative<Op::glSeparableFilter2D>(target, internalFormat, width, height, format, type, row,
                                        column);
}

template <Op op, class T>
void pixelMap(GLenum map, GLsizei size, const T* values)
{
    if (size >= 0 && isRecorded<Effect::defines>())
        if (const void* from = unpackSource(values, std::int64_t{size} * std::int64_t{sizeof(T)}))
            record<op, Effect::defines>(map, size, Block{static_cast<const T*>(from), size});
    callNative<op>(map, size, values);
}

// Compressed images carry their size, the last scalar.
template <Op op, Op native, class... A>
void compressed(A... a)
{
    const auto given = std::tuple(a...);
    constexpr std::size_t last = sizeof...(A) - 1;
    const GLsizei size = std::get<last - 1>(given);
    const void* const data = std::get<last>(given);
    const void* const from = size >= 0 ? unpackSource(data, size) : nullptr;
    const bool empty = !data && !isInBuffer();
    if (size >= 0 && !isProxy(std::get<0>(given)) && (from || empty))
        [&]<std::size_t... i>(std::index_sequence<i...>)
        {
            record<op, Effect::defines>(std::get<i>(given)..., Block{from, size});
        }
    (std::make_index_sequence<last>{});
    callNative<native>(a...);
}

template <Op op, Op native, class F = Prototype<op>>
struct Compressed;
template <Op op, Op native, class... P>
struct Compressed<op, native, void(P...)> {
    static void call(P... p) { compressed<op, native>(p...); }
};

template <Op core, Op extension>
void installCompressed()
{
    install<core>(Compressed<core, core>::call);
    install<extension>(Compressed<core, extension>::call);
}

} // namespace

void installImages()
{
    install<Op::glTexImage1D>(texImage1D);
    install<Op::glTexImage2D>(texImage2D);
    install<Op::glTexImage3D>(texImage3D<Op::glTexImage3D, GLint>);
    install<Op::glTexImage3DEXT>(texImage3D<Op::glTexImage3DEXT, GLenum>);
    install<Op::glTexSubImage1D>(texSubImage1D<Op::glTexSubImage1D>);
    install<Op::glTexSubImage2D>(texSubImage2D<Op::glTexSubImage2D>);
    install<Op::glTexSubImage3D>(texSubImage3D<Op::glTexSubImage3D>);
    install<Op::glTexSubImage1DEXT>(texSubImage1D<Op::glTexSubImage1DEXT>);
    install<Op::glTexSubImage2DEXT>(texSubImage2D<Op::glTexSubImage2DEXT>);
    install<Op::glTexSubImage3DEXT>(texSubImage3D<Op::glTexSubImage3DEXT>);
    install<Op::glDrawPixels>(drawPixels);
    install<Op::glBitmap>(bitmap);
    install<Op::glPolygonStipple>(polygonStipple);
    install<Op::glColorTable>(colorTable<Op::glColorTable>);
    install<Op::glColorTableEXT>(colorTable<Op::glColorTableEXT>);
    install<Op::glColorSubTable>(colorSubTable);
    install<Op::glConvolutionFilter1D>(convolutionFilter1D);
    install<Op::glConvolutionFilter2D>(convolutionFilter2D);
    install<Op::glSeparableFilter2D>(separableFilter2D);
    install<Op::glPixelMapfv>(pixelMap<Op::glPixelMapfv, GLfloat>);
    install<Op::glPixelMapuiv>(pixelMap<Op::glPixelMapuiv, GLuint>);
    install<Op::glPixelMapusv>(pixelMap<Op::glPixelMapusv, GLushort>);
    installCompressed<Op::glCompressedTexImage1D, Op::glCompressedTexImage1DARB>();
    installCompressed<Op::glCompressedTexImage2D, Op::glCompressedTexImage2DARB>();
    installCompressed<Op::glCompressedTexImage3D, Op::glCompressedTexImage3DARB>();
    installCompressed<Op::glCompressedTexSubImage1D, Op::glCompressedTexSubImage1DARB>();
    installCompressed<Op::glCompressedTexSubImage2D, Op::glCompressedTexSubImage2DARB>();
    installCompressed<Op::glCompressedTexSubImage3D, Op::glCompressedTexSubImage3DARB>();
}

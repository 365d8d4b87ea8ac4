// How much memory OpenGL reads for an image, by its size and the unpack state.
#pragma once

#include "wire/sizes.h"

#include <limits>

/// An image in memory, as an operation describes it.
struct ImageSize {
    std::int64_t width, height, depth;
    GLenum format, type;
    bool volume = false; // the unpack state's images count
};

inline bool isEmpty(const ImageSize& image)
{
    return image.width <= 0 || image.height <= 0 || image.depth <= 0;
}

/// The unpack state, as far as it decides where pixels lie. Lengths of 0 are those of the image.
struct UnpackState {
    std::int64_t alignment = 4, rowLength = 0, skipRows = 0, skipPixels = 0, imageHeight = 0,
                 skipImages = 0;
};

/// Where pixels lie from the pointer on, in bytes.
struct ImagePlaces {
    std::int64_t pixelBits, row, image, first; // of a pixel, between rows, between images
    std::int64_t end;                          // behind the last pixel
};

namespace saturating {

inline constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();

// Of what a stream or a program says, no larger than can be held.
inline std::int64_t times(std::int64_t a, std::int64_t b)
{
    std::int64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? most : product;
}
inline std::int64_t plus(std::int64_t a, std::int64_t b)
{
    std::int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? most : sum;
}
inline std::int64_t roundUp(std::int64_t value, std::int64_t to)
{
    return value > most - to ? most : (value + to - 1) / to * to;
}

} // namespace saturating

/// All zero for an empty image, and for a format and type that are none.
inline ImagePlaces placesOf(const ImageSize& image, const UnpackState& unpack)
{
    using namespace saturating;
    const bool bitmap = image.type == GL_BITMAP;
    const std::int64_t bits = bitmap ? 1 : 8 * pixelBytes(image.format, image.type);
    if (isEmpty(image) || bits == 0)
        return {};
    const std::int64_t alignment = std::max<std::int64_t>(unpack.alignment, 1);
    const std::int64_t length = unpack.rowLength > 0 ? unpack.rowLength : image.width;
    std::int64_t row = roundUp(times(length, bits), 8) / 8;
    if (bitmap || pixelUnit(image.type).bytes < alignment)
        row = roundUp(row, alignment);
    const std::int64_t rows =
        image.volume && unpack.imageHeight > 0 ? unpack.imageHeight : image.height;
    const std::int64_t layer = times(row, rows);
    const std::int64_t first =
        plus(times(unpack.skipRows, row), image.volume ? times(unpack.skipImages, layer) : 0);
    const std::int64_t lastRow = roundUp(times(plus(unpack.skipPixels, image.width), bits), 8) / 8;
    std::int64_t end = plus(first, times(image.height - 1, row));
    if (image.volume)
        end = plus(end, times(image.depth - 1, layer));
    return {bits, row, layer, first, plus(end, lastRow)};
}

/// A target that asks whether there would be room: nothing is read.
constexpr bool isProxy(GLenum target)
{
    switch (target) {
    case GL_PROXY_TEXTURE_1D:
    case GL_PROXY_TEXTURE_2D:
    case GL_PROXY_TEXTURE_3D:
    case GL_PROXY_TEXTURE_CUBE_MAP:
    case GL_PROXY_TEXTURE_RECTANGLE:
    case GL_PROXY_TEXTURE_1D_ARRAY:
    case GL_PROXY_TEXTURE_2D_ARRAY:
    case GL_PROXY_TEXTURE_CUBE_MAP_ARRAY:
    case GL_PROXY_COLOR_TABLE:
    case GL_PROXY_POST_CONVOLUTION_COLOR_TABLE:
    case GL_PROXY_POST_COLOR_MATRIX_COLOR_TABLE:
    case GL_PROXY_TEXTURE_COLOR_TABLE_SGI:
        return true;
    default:
        return false;
    }
}

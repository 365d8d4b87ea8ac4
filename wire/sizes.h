// How much memory OpenGL reads for an operation, by its parameters: list names, control points,
// pixels.
#pragma once

#include "wire/values.h"

#include <algorithm>

// ---- List names --------------------------------------------------------------------------------

/// Bytes of the names that a glCallLists calls. They have three types of their own.
inline std::int64_t listNameBytes(GLsizei n, GLenum type)
{
    const bool own = type == GL_2_BYTES || type == GL_3_BYTES || type == GL_4_BYTES;
    return byteCount(n, own ? 2 + static_cast<int>(type - GL_2_BYTES) : elementBytes(type));
}

// ---- Evaluators --------------------------------------------------------------------------------

/// Values in a control point of an evaluator map; 0 for a target that is none.
constexpr int pointValues(GLenum target)
{
    switch (target) {
    case GL_MAP1_INDEX:
    case GL_MAP2_INDEX:
    case GL_MAP1_TEXTURE_COORD_1:
    case GL_MAP2_TEXTURE_COORD_1:
        return 1;
    case GL_MAP1_TEXTURE_COORD_2:
    case GL_MAP2_TEXTURE_COORD_2:
        return 2;
    case GL_MAP1_NORMAL:
    case GL_MAP2_NORMAL:
    case GL_MAP1_TEXTURE_COORD_3:
    case GL_MAP2_TEXTURE_COORD_3:
    case GL_MAP1_VERTEX_3:
    case GL_MAP2_VERTEX_3:
        return 3;
    case GL_MAP1_COLOR_4:
    case GL_MAP2_COLOR_4:
    case GL_MAP1_TEXTURE_COORD_4:
    case GL_MAP2_TEXTURE_COORD_4:
    case GL_MAP1_VERTEX_4:
    case GL_MAP2_VERTEX_4:
        return 4;
    default:
        return target >= GL_MAP1_VERTEX_ATTRIB0_4_NV && target <= GL_MAP2_VERTEX_ATTRIB15_4_NV ? 4
                                                                                               : 0;
    }
}

/// Values that OpenGL reads of an evaluator's control points: up to the last value of the last
/// point. 0 where it refuses the map and reads none.
inline std::int64_t mapValues(GLenum target, std::int64_t stride, std::int64_t order)
{
    const int values = pointValues(target);
    return values == 0 || order < 1 || stride < values ? 0 : (order - 1) * stride + values;
}
inline std::int64_t mapValues(GLenum target, std::int64_t stride, std::int64_t order,
                              std::int64_t secondStride, std::int64_t secondOrder)
{
    const std::int64_t row = mapValues(target, stride, order);
    if (row == 0 || secondOrder < 1 || secondStride < pointValues(target))
        return 0;
    constexpr std::int64_t beyondAll = std::int64_t{1} << 40; // times a size it is no overflow
    return std::min((secondOrder - 1) * secondStride + row, beyondAll);
}

// ---- Pixels ------------------------------------------------------------------------------------

/// Components of a pixel in a format; 0 for one that is none.
constexpr int pixelComponents(GLenum format)
{
    switch (format) {
    case GL_COLOR_INDEX:
    case GL_STENCIL_INDEX:
    case GL_DEPTH_COMPONENT:
    case GL_RED:
    case GL_GREEN:
    case GL_BLUE:
    case GL_ALPHA:
    case GL_LUMINANCE:
    case GL_INTENSITY:
    case GL_RED_INTEGER:
    case GL_GREEN_INTEGER:
    case GL_BLUE_INTEGER:
    case GL_ALPHA_INTEGER:
    case GL_LUMINANCE_INTEGER_EXT:
        return 1;
    case GL_LUMINANCE_ALPHA:
    case GL_RG:
    case GL_RG_INTEGER:
    case GL_DEPTH_STENCIL:
    case GL_YCBCR_MESA:
    case GL_LUMINANCE_ALPHA_INTEGER_EXT:
    case GL_HILO_NV:
    case GL_DSDT_NV:
        return 2;
    case GL_RGB:
    case GL_BGR:
    case GL_RGB_INTEGER:
    case GL_BGR_INTEGER:
    case GL_DSDT_MAG_NV:
        return 3;
    case GL_RGBA:
    case GL_BGRA:
    case GL_RGBA_INTEGER:
    case GL_BGRA_INTEGER:
    case GL_ABGR_EXT:
    case GL_CMYK_EXT:
    case GL_DSDT_MAG_VIB_NV:
        return 4;
    default:
        return 0;
    }
}

/// Bytes of what a type counts by: a component, or a whole pixel for packed types. 0 for one that
/// is none, and for GL_BITMAP.
struct PixelUnit {
    int bytes;
    bool wholePixel;
};
constexpr PixelUnit pixelUnit(GLenum type)
{
    switch (type) {
    case GL_BYTE:
    case GL_UNSIGNED_BYTE:
        return {1, false};
    case GL_SHORT:
    case GL_UNSIGNED_SHORT:
    case GL_HALF_FLOAT:
        return {2, false};
    case GL_INT:
    case GL_UNSIGNED_INT:
    case GL_FLOAT:
        return {4, false};
    case GL_UNSIGNED_BYTE_3_3_2:
    case GL_UNSIGNED_BYTE_2_3_3_REV:
        return {1, true};
    case GL_UNSIGNED_SHORT_5_6_5:
    case GL_UNSIGNED_SHORT_5_6_5_REV:
    case GL_UNSIGNED_SHORT_4_4_4_4:
    case GL_UNSIGNED_SHORT_4_4_4_4_REV:
    case GL_UNSIGNED_SHORT_5_5_5_1:
    case GL_UNSIGNED_SHORT_1_5_5_5_REV:
    case GL_UNSIGNED_SHORT_8_8_MESA:
    case GL_UNSIGNED_SHORT_8_8_REV_MESA:
        return {2, true};
    case GL_UNSIGNED_INT_8_8_8_8:
    case GL_UNSIGNED_INT_8_8_8_8_REV:
    case GL_UNSIGNED_INT_10_10_10_2:
    case GL_UNSIGNED_INT_2_10_10_10_REV:
    case GL_UNSIGNED_INT_24_8:
    case GL_UNSIGNED_INT_10F_11F_11F_REV:
    case GL_UNSIGNED_INT_5_9_9_9_REV:
        return {4, true};
    case GL_FLOAT_32_UNSIGNED_INT_24_8_REV:
        return {8, true};
    default:
        return {0, false};
    }
}

/// Bytes of a pixel; 0 for a format and type that are none, or bits.
constexpr int pixelBytes(GLenum format, GLenum type)
{
    const PixelUnit unit = pixelUnit(type);
    return unit.wholePixel ? (pixelComponents(format) ? unit.bytes : 0)
                           : unit.bytes * pixelComponents(format);
}

/// Bytes of an image in one of the formats of blocks of 4 x 4 pixels; 0 for another.
constexpr std::int64_t compressedBytes(GLenum format, std::int64_t width, std::int64_t height,
                                       std::int64_t depth)
{
    std::int64_t block = 0;
    switch (format) {
    case GL_COMPRESSED_RGB_S3TC_DXT1_EXT:
    case GL_COMPRESSED_RGBA_S3TC_DXT1_EXT:
    case GL_COMPRESSED_RED_RGTC1:
    case GL_COMPRESSED_SIGNED_RED_RGTC1:
        block = 8;
        break;
    case GL_COMPRESSED_RGBA_S3TC_DXT3_EXT:
    case GL_COMPRESSED_RGBA_S3TC_DXT5_EXT:
    case GL_COMPRESSED_RG_RGTC2:
    case GL_COMPRESSED_SIGNED_RG_RGTC2:
        block = 16;
        break;
    default:
        break;
    }
    if (block == 0 || width <= 0 || height <= 0 || depth <= 0)
        return 0;
    constexpr std::int64_t beyondAll = std::int64_t{1} << 40;
    const std::int64_t layer = (width + 3) / 4 * ((height + 3) / 4);
    return layer > beyondAll / depth ? beyondAll : layer * depth * block;
}

// Bytes of the parameter arrays whose length depends on the parameter's name.
#pragma once

#include "wire/prototypes.h"

struct ParamSize {
    GLenum pname;
    int bytes;
};

/// Sizes by name for one family of operations, and what a name that is not listed takes.
struct ParamSizes {
    const ParamSize* begin;
    const ParamSize* end;
    int otherwise;
};

template <int n>
constexpr ParamSizes paramSizes(const ParamSize (&sizes)[n], int otherwise = 0)
{
    return {sizes, sizes + n, otherwise};
}

/// The size of `pname`, or null when the table does not list it.
constexpr const ParamSize* findParam(const ParamSizes& sizes, GLenum pname)
{
    for (const ParamSize* size = sizes.begin; size != sizes.end; ++size)
        if (size->pname == pname)
            return size;
    return nullptr;
}

constexpr int paramBytes(const ParamSizes& sizes, GLenum pname)
{
    const ParamSize* size = findParam(sizes, pname);
    return size ? size->bytes : sizes.otherwise;
}

inline constexpr ParamSize lightSizes[] = {
    {GL_AMBIENT, 16},           {GL_DIFFUSE, 16},
    {GL_SPECULAR, 16},          {GL_POSITION, 16},
    {GL_SPOT_DIRECTION, 12},    {GL_SPOT_EXPONENT, 4},
    {GL_SPOT_CUTOFF, 4},        {GL_CONSTANT_ATTENUATION, 4},
    {GL_LINEAR_ATTENUATION, 4}, {GL_QUADRATIC_ATTENUATION, 4},
};
inline constexpr ParamSize lightModelSizes[] = {
    {GL_LIGHT_MODEL_LOCAL_VIEWER, 4},
    {GL_LIGHT_MODEL_TWO_SIDE, 4},
    {GL_LIGHT_MODEL_AMBIENT, 16},
};
inline constexpr ParamSize materialSizes[] = {
    {GL_AMBIENT, 16},       {GL_DIFFUSE, 16},  {GL_SPECULAR, 16},
    {GL_EMISSION, 16},      {GL_SHININESS, 4}, {GL_AMBIENT_AND_DIFFUSE, 16},
    {GL_COLOR_INDEXES, 12},
};
inline constexpr ParamSize texGenDoubleSizes[] = {
    {GL_TEXTURE_GEN_MODE, 8},
    {GL_OBJECT_PLANE, 32},
    {GL_EYE_PLANE, 32},
};
inline constexpr ParamSize texGenSizes[] = {
    {GL_TEXTURE_GEN_MODE, 4},
    {GL_OBJECT_PLANE, 16},
    {GL_EYE_PLANE, 16},
};
inline constexpr ParamSize texEnvSizes[] = {
    {GL_TEXTURE_ENV_MODE, 4},
    {GL_TEXTURE_LOD_BIAS, 4},
    {GL_TEXTURE_ENV_COLOR, 16},
};
inline constexpr ParamSize texParameterSizes[] = {
    {GL_TEXTURE_BORDER_COLOR, 16}, {GL_TEXTURE_MAG_FILTER, 4}, {GL_TEXTURE_MIN_FILTER, 4},
    {GL_TEXTURE_WRAP_S, 4},        {GL_TEXTURE_WRAP_T, 4},     {GL_TEXTURE_PRIORITY, 4},
    {GL_TEXTURE_WRAP_R, 4},        {GL_TEXTURE_MIN_LOD, 4},    {GL_TEXTURE_MAX_LOD, 4},
    {GL_TEXTURE_BASE_LEVEL, 4},    {GL_TEXTURE_MAX_LEVEL, 4},  {GL_GENERATE_MIPMAP, 4},
    {GL_TEXTURE_CUBE_MAP, 4},      {GL_DEPTH_TEXTURE_MODE, 4}, {GL_TEXTURE_COMPARE_MODE, 4},
    {GL_TEXTURE_COMPARE_FUNC, 4},
};
inline constexpr ParamSize fogSizes[] = {
    {GL_FOG_INDEX, 4}, {GL_FOG_DENSITY, 4},           {GL_FOG_START, 4},  {GL_FOG_END, 4},
    {GL_FOG_MODE, 4},  {GL_FOG_COORDINATE_SOURCE, 4}, {GL_FOG_COLOR, 16},
};
inline constexpr ParamSize convolutionSizes[] = {
    {GL_CONVOLUTION_BORDER_MODE, 4},
    {GL_CONVOLUTION_FILTER_SCALE, 16},
    {GL_CONVOLUTION_FILTER_BIAS, 16},
    {GL_CONVOLUTION_BORDER_COLOR, 16},
};
inline constexpr ParamSize pointSizes[] = {
    {GL_POINT_SIZE_MIN, 4},
    {GL_POINT_SIZE_MAX, 4},
    {GL_POINT_FADE_THRESHOLD_SIZE, 4},
    {GL_POINT_DISTANCE_ATTENUATION, 12},
};
inline constexpr ParamSize pixelTransformSizes[] = {
    {GL_PIXEL_MAG_FILTER_EXT, 4},
    {GL_PIXEL_MIN_FILTER_EXT, 4},
    {GL_PIXEL_CUBIC_WEIGHT_EXT, 4},
};
inline constexpr ParamSize combinerSizes[] = {
    {GL_NUM_GENERAL_COMBINERS_NV, 4},
    {GL_COLOR_SUM_CLAMP_NV, 4},
    {GL_CONSTANT_COLOR0_NV, 16},
    {GL_CONSTANT_COLOR1_NV, 16},
};

inline constexpr ParamSizes lightParameters = paramSizes(lightSizes);
inline constexpr ParamSizes lightModelParameters = paramSizes(lightModelSizes);
inline constexpr ParamSizes materialParameters = paramSizes(materialSizes);
inline constexpr ParamSizes texGenDoubleParameters = paramSizes(texGenDoubleSizes);
inline constexpr ParamSizes texGenParameters = paramSizes(texGenSizes);
inline constexpr ParamSizes texEnvParameters = paramSizes(texEnvSizes);
inline constexpr ParamSizes texParameters = paramSizes(texParameterSizes);
inline constexpr ParamSizes fogParameters = paramSizes(fogSizes);
inline constexpr ParamSizes convolutionParameters = paramSizes(convolutionSizes);
inline constexpr ParamSizes pointParameters = paramSizes(pointSizes);
inline constexpr ParamSizes pixelTransformParameters = paramSizes(pixelTransformSizes, 4);
inline constexpr ParamSizes combinerParameters = paramSizes(combinerSizes);

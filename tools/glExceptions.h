// What the types of OpenGL's headers do not tell of the names of values.
#pragma once

#include "tools/glNames.h"

/// Names that make up a vocabulary, or are more of it.
struct VocabularyNames {
    Vocabulary vocabulary;
    const char* names;
};
inline constexpr VocabularyNames vocabularyNames[] = {
    {Vocabulary::enumerants, "GL_NONE"},
    {Vocabulary::primitives,
     "GL_POINTS GL_LINES GL_LINE_LOOP GL_LINE_STRIP GL_TRIANGLES GL_TRIANGLE_STRIP "
     "GL_TRIANGLE_FAN GL_QUADS GL_QUAD_STRIP GL_POLYGON"},
    {Vocabulary::factors, "GL_ZERO GL_ONE"},
    {Vocabulary::booleans, "GL_FALSE GL_TRUE"},
    {Vocabulary::clearBits, "GL_COLOR_BUFFER_BIT GL_DEPTH_BUFFER_BIT GL_ACCUM_BUFFER_BIT "
                            "GL_STENCIL_BUFFER_BIT"},
    {Vocabulary::attributeBits,
     "GL_ALL_ATTRIB_BITS GL_CURRENT_BIT GL_POINT_BIT GL_LINE_BIT GL_POLYGON_BIT "
     "GL_POLYGON_STIPPLE_BIT GL_PIXEL_MODE_BIT GL_LIGHTING_BIT GL_FOG_BIT GL_DEPTH_BUFFER_BIT "
     "GL_ACCUM_BUFFER_BIT GL_STENCIL_BUFFER_BIT GL_VIEWPORT_BIT GL_TRANSFORM_BIT GL_ENABLE_BIT "
     "GL_COLOR_BUFFER_BIT GL_HINT_BIT GL_EVAL_BIT GL_LIST_BIT GL_TEXTURE_BIT GL_SCISSOR_BIT "
     "GL_MULTISAMPLE_BIT"},
    {Vocabulary::clientAttributeBits,
     "GL_CLIENT_ALL_ATTRIB_BITS GL_CLIENT_PIXEL_STORE_BIT GL_CLIENT_VERTEX_ARRAY_BIT"},
    {Vocabulary::renderTypeBits, "GLX_RGBA_BIT GLX_COLOR_INDEX_BIT GLX_RGBA_FLOAT_BIT_ARB"},
    {Vocabulary::drawableTypeBits, "GLX_WINDOW_BIT GLX_PIXMAP_BIT GLX_PBUFFER_BIT"},
};

/// Parameters whose vocabulary is another than their type says. The first row that fits counts; a *
/// at the end stands for any rest.
struct ParameterException {
    const char* operation;
    const char* parameter;
    Vocabulary vocabulary;
};
inline constexpr ParameterException parameterExceptions[] = {
    {"glBegin", "mode", Vocabulary::primitives},
    {"glDrawArrays*", "mode", Vocabulary::primitives},
    {"glDrawElement*", "mode", Vocabulary::primitives},
    {"glDrawRangeElement*", "mode", Vocabulary::primitives},
    {"glDrawMeshArrays*", "mode", Vocabulary::primitives},
    {"glBlendFunc*", "*", Vocabulary::factors},
    {"glStencilOp", "*", Vocabulary::factors},
    {"glCombinerInputNV", "input", Vocabulary::factors},
    {"glFinalCombinerInputNV", "input", Vocabulary::factors},
    {"glTexImage*", "internal*", Vocabulary::formats}, // a GLint
    {"glHintPGI", "mode", Vocabulary::enumerants},     // a GLint
    {"glXCreateNewContext", "renderType", Vocabulary::glxNames},
    {"glWriteMaskEXT", "out*", Vocabulary::booleans},
    {"glClear", "mask", Vocabulary::clearBits},
    {"glPushAttrib", "mask", Vocabulary::attributeBits},
    {"glXCopyContext", "mask", Vocabulary::attributeBits},
    {"glPushClientAttrib", "mask", Vocabulary::clientAttributeBits},
    {"glIndexMask", "mask", Vocabulary::bits}, // GLuints
    {"glStencil*", "mask", Vocabulary::bits},
    {"glTbufferMask3DFX", "mask", Vocabulary::bits},
    {"glLineStipple", "pattern", Vocabulary::bits}, // a GLushort
};

/// Pnames and attributes whose values are no numbers.
struct ValueException {
    Vocabulary vocabulary; // of the names
    const char* names;
    Vocabulary behind;
};
inline constexpr ValueException valueExceptions[] = {
    {Vocabulary::enumerants,
     "GL_TEXTURE_MIN_FILTER GL_TEXTURE_MAG_FILTER GL_TEXTURE_WRAP_S GL_TEXTURE_WRAP_T "
     "GL_TEXTURE_WRAP_R GL_DEPTH_TEXTURE_MODE GL_TEXTURE_COMPARE_MODE GL_TEXTURE_COMPARE_FUNC "
     "GL_TEXTURE_GEN_MODE GL_TEXTURE_ENV_MODE GL_COMBINE_RGB GL_COMBINE_ALPHA GL_SOURCE0_RGB "
     "GL_SOURCE1_RGB GL_SOURCE2_RGB GL_SOURCE3_RGB_NV GL_SOURCE0_ALPHA GL_SOURCE1_ALPHA "
     "GL_SOURCE2_ALPHA GL_SOURCE3_ALPHA_NV GL_OPERAND0_RGB GL_OPERAND1_RGB GL_OPERAND2_RGB "
     "GL_OPERAND3_RGB_NV GL_OPERAND0_ALPHA GL_OPERAND1_ALPHA GL_OPERAND2_ALPHA "
     "GL_OPERAND3_ALPHA_NV GL_FOG_MODE GL_FOG_COORDINATE_SOURCE GL_FOG_DISTANCE_MODE_NV "
     "GL_LIGHT_MODEL_COLOR_CONTROL GL_CONVOLUTION_BORDER_MODE GL_POINT_SPRITE_COORD_ORIGIN "
     "GL_POINT_SPRITE_R_MODE_NV GL_PN_TRIANGLES_POINT_MODE_ATI GL_PN_TRIANGLES_NORMAL_MODE_ATI "
     "GL_PIXEL_MIN_FILTER_EXT GL_PIXEL_MAG_FILTER_EXT",
     Vocabulary::enumerants},
    {Vocabulary::glxNames, "GLX_CONFIG_CAVEAT GLX_X_VISUAL_TYPE GLX_TRANSPARENT_TYPE",
     Vocabulary::glxNames},
    {Vocabulary::glxNames, "GLX_RENDER_TYPE", Vocabulary::renderTypeBits},
    {Vocabulary::glxNames, "GLX_DRAWABLE_TYPE", Vocabulary::drawableTypeBits},
    {Vocabulary::glxNames, "GLX_VISUAL_ID GLX_FBCONFIG_ID", Vocabulary::bits}, // handles
    {Vocabulary::glxNames, "GLX_USE_GL GLX_RGBA GLX_DOUBLEBUFFER GLX_STEREO", Vocabulary::nothing},
};

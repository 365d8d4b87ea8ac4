// Setting client arrays: what the program says of them is kept, and nothing sent.
#include "capture/arrays.h"
#include "capture/contexts.h"
#include "capture/entries.h"

#include <algorithm>

namespace {

ClientVertexState& client() { return currentContext().client.now; }

void setArray(int kind, GLint size, GLenum type, GLsizei stride, const void* pointer)
{
    ClientArrayState& array = client().arrays[kind];
    array = {array.enabled, false, size, type, stride, pointer, client().arrayBuffer};
}

template <Op op>
void pointer(GLint size, GLenum type, GLsizei stride, const void* at)
{
    if constexpr (op == Op::glNormalPointer || op == Op::glIndexPointer ||
                  op == Op::glFogCoordPointer)
        callNative<op>(type, stride, at);
    else if constexpr (op == Op::glEdgeFlagPointer)
        callNative<op>(stride, at);
    else
        callNative<op>(size, type, stride, at);
    constexpr int kind = op == Op::glVertexPointer     ? vertexArray
                         : op == Op::glNormalPointer   ? normalArray
                         : op == Op::glColorPointer    ? colorArray
                         : op == Op::glIndexPointer    ? indexArray
                         : op == Op::glEdgeFlagPointer ? edgeFlagArray
                         : op == Op::glFogCoordPointer ? fogCoordArray
                         : op == Op::glTexCoordPointer ? texCoordArray
                                                       : secondaryColorArray;
    setArray(kind == texCoordArray ? texCoordArray + client().activeUnit : kind, size, type, stride,
             at);
}

template <Op op>
void sizedPointer(GLint size, GLenum type, GLsizei stride, const void* at)
{
    pointer<op>(size, type, stride, at);
}
template <Op op, int size>
void typedPointer(GLenum type, GLsizei stride, const void* at)
{
    pointer<op>(size, type, stride, at);
}
void edgeFlagPointer(GLsizei stride, const void* at)
{
    pointer<Op::glEdgeFlagPointer>(1, GL_UNSIGNED_BYTE, stride, at);
}
// The extension's forms have a count, which says nothing that the draws do not say.
template <Op op>
void sizedPointerEXT(GLint size, GLenum type, GLsizei stride, GLsizei, const void* at)
{
    pointer<op>(size, type, stride, at);
}
template <Op op, int size>
void typedPointerEXT(GLenum type, GLsizei stride, GLsizei, const void* at)
{
    pointer<op>(size, type, stride, at);
}
void edgeFlagPointerEXT(GLsizei stride, GLsizei, const GLboolean* at)
{
    edgeFlagPointer(stride, at);
}

void vertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized,
                         GLsizei stride, const void* at)
{
    callNative<Op::glVertexAttribPointerARB>(index, size, type, normalized, stride, at);
    if (index < vertexAttributes) {
        ClientArrayState& array = client().attributes[index];
        array = {array.enabled, normalized != 0, size, type, stride, at, client().arrayBuffer};
    }
}

template <Op op>
void enableAttribute(GLuint index)
{
    callNative<op>(index);
    if (index < vertexAttributes)
        client().attributes[index].enabled = op == Op::glEnableVertexAttribArrayARB;
}

int kindOf(GLenum array)
{
    switch (array) {
    case GL_VERTEX_ARRAY:
        return vertexArray;
    case GL_NORMAL_ARRAY:
        return normalArray;
    case GL_COLOR_ARRAY:
        return colorArray;
    case GL_INDEX_ARRAY:
        return indexArray;
    case GL_EDGE_FLAG_ARRAY:
        return edgeFlagArray;
    case GL_FOG_COORD_ARRAY:
        return fogCoordArray;
    case GL_SECONDARY_COLOR_ARRAY:
        return secondaryColorArray;
    case GL_TEXTURE_COORD_ARRAY:
        return texCoordArray + client().activeUnit;
    default:
        return -1;
    }
}

template <Op op>
void enableArray(GLenum array)
{
    callNative<op>(array);
    if (const int kind = kindOf(array); kind >= 0)
        client().arrays[kind].enabled = op == Op::glEnableClientState;
}

template <Op op>
void activeUnit(GLenum texture)
{
    callNative<op>(texture);
    if (texture - GL_TEXTURE0 < textureUnits)
        client().activeUnit = static_cast<int>(texture - GL_TEXTURE0);
}

void pushClientAttrib(GLbitfield mask)
{
    callNative<Op::glPushClientAttrib>(mask);
    currentContext().client.stack.push_back({mask, client()});
}

void popClientAttrib()
{
    callNative<Op::glPopClientAttrib>();
    auto& stack = currentContext().client.stack;
    if (stack.empty())
        return;
    if (stack.back().mask & GL_CLIENT_VERTEX_ARRAY_BIT)
        client() = stack.back().state;
    stack.pop_back();
}

// What a format of glInterleavedArrays has, and where; sizes of 0: not there.
struct Interleaved {
    GLenum format;
    int texCoords, colors, normals, vertices; // sizes
    GLenum colorType;
    int colorAt, normalAt, vertexAt, stride;
};
constexpr int f = sizeof(float);
constexpr int c = 4; // four bytes of a colour, rounded up to floats
constexpr Interleaved interleavedFormats[] = {
    {GL_V2F, 0, 0, 0, 2, 0, 0, 0, 0, 2 * f},
    {GL_V3F, 0, 0, 0, 3, 0, 0, 0, 0, 3 * f},
    {GL_C4UB_V2F, 0, 4, 0, 2, GL_UNSIGNED_BYTE, 0, 0, c, c + 2 * f},
    {GL_C4UB_V3F, 0, 4, 0, 3, GL_UNSIGNED_BYTE, 0, 0, c, c + 3 * f},
    {GL_C3F_V3F, 0, 3, 0, 3, GL_FLOAT, 0, 0, 3 * f, 6 * f},
    {GL_N3F_V3F, 0, 0, 3, 3, 0, 0, 0, 3 * f, 6 * f},
    {GL_C4F_N3F_V3F, 0, 4, 3, 3, GL_FLOAT, 0, 4 * f, 7 * f, 10 * f},
    {GL_T2F_V3F, 2, 0, 0, 3, 0, 0, 0, 2 * f, 5 * f},
    {GL_T4F_V4F, 4, 0, 0, 4, 0, 0, 0, 4 * f, 8 * f},
    {GL_T2F_C4UB_V3F, 2, 4, 0, 3, GL_UNSIGNED_BYTE, 2 * f, 0, c + 2 * f, c + 5 * f},
    {GL_T2F_C3F_V3F, 2, 3, 0, 3, GL_FLOAT, 2 * f, 0, 5 * f, 8 * f},
    {GL_T2F_N3F_V3F, 2, 0, 3, 3, 0, 0, 2 * f, 5 * f, 8 * f},
    {GL_T2F_C4F_N3F_V3F, 2, 4, 3, 3, GL_FLOAT, 2 * f, 6 * f, 9 * f, 12 * f},
    {GL_T4F_C4F_N3F_V4F, 4, 4, 3, 4, GL_FLOAT, 4 * f, 8 * f, 11 * f, 15 * f},
};

void interleavedArrays(GLenum format, GLsizei stride, const void* data)
{
    callNative<Op::glInterleavedArrays>(format, stride, data);
    const auto* found = std::find_if(std::begin(interleavedFormats), std::end(interleavedFormats),
                                     [=](const Interleaved& i) { return i.format == format; });
    if (found == std::end(interleavedFormats) || stride < 0)
        return;
    const auto set = [&](int kind, int size, GLenum type, int at) {
        client().arrays[kind].enabled = size > 0;
        if (size > 0)
            setArray(kind, size, type, stride ? stride : found->stride,
                     static_cast<const char*>(data) + at);
    };
    set(texCoordArray + client().activeUnit, found->texCoords, GL_FLOAT, 0);
    set(colorArray, found->colors, found->colorType, found->colorAt);
    set(normalArray, found->normals, GL_FLOAT, found->normalAt);
    set(vertexArray, found->vertices, GL_FLOAT, found->vertexAt);
    client().arrays[edgeFlagArray].enabled = client().arrays[indexArray].enabled = false;
}

} // namespace

void installArrays()
{
    install("glVertexPointer", sizedPointer<Op::glVertexPointer>);
    install("glColorPointer", sizedPointer<Op::glColorPointer>);
    install("glTexCoordPointer", sizedPointer<Op::glTexCoordPointer>);
    install("glSecondaryColorPointer", sizedPointer<Op::glSecondaryColorPointer>);
    install("glSecondaryColorPointerEXT", sizedPointer<Op::glSecondaryColorPointer>);
    install("glNormalPointer", typedPointer<Op::glNormalPointer, 3>);
    install("glIndexPointer", typedPointer<Op::glIndexPointer, 1>);
    install("glFogCoordPointer", typedPointer<Op::glFogCoordPointer, 1>);
    install("glFogCoordPointerEXT", typedPointer<Op::glFogCoordPointer, 1>);
    install("glEdgeFlagPointer", edgeFlagPointer);
    install("glVertexPointerEXT", sizedPointerEXT<Op::glVertexPointer>);
    install("glColorPointerEXT", sizedPointerEXT<Op::glColorPointer>);
    install("glTexCoordPointerEXT", sizedPointerEXT<Op::glTexCoordPointer>);
    install("glNormalPointerEXT", typedPointerEXT<Op::glNormalPointer, 3>);
    install("glIndexPointerEXT", typedPointerEXT<Op::glIndexPointer, 1>);
    install("glEdgeFlagPointerEXT", edgeFlagPointerEXT);
    install("glVertexAttribPointerARB", vertexAttribPointer);
    install("glEnableVertexAttribArrayARB", enableAttribute<Op::glEnableVertexAttribArrayARB>);
    install("glDisableVertexAttribArrayARB", enableAttribute<Op::glDisableVertexAttribArrayARB>);
    install("glEnableClientState", enableArray<Op::glEnableClientState>);
    install("glDisableClientState", enableArray<Op::glDisableClientState>);
    install("glClientActiveTexture", activeUnit<Op::glClientActiveTexture>);
    install("glClientActiveTextureARB", activeUnit<Op::glClientActiveTextureARB>);
    install("glPushClientAttrib", pushClientAttrib);
    install("glPopClientAttrib", popClientAttrib);
    install("glInterleavedArrays", interleavedArrays);
}

// Setting client arrays: what the program says of them is kept, and nothing sent.
#include "capture/arrays.h"
#include "capture/contexts.h"
#include "capture/entries.h"
#include "wire/clientArrays.h"

#include <algorithm>

namespace {

ClientVertexState& client() { return currentContext().client.now; }

// Types and sizes whose elements can be read here.
bool isReadable(GLint size, GLenum type)
{
    return size >= 1 && size <= 4 && ((type >= GL_BYTE && type <= GL_FLOAT) || type == GL_DOUBLE);
}

void setArray(ClientArrayState& array, GLint size, GLenum type, GLsizei stride, const void* pointer,
              bool normalized = false)
{
    const bool bgra = size == GL_BGRA;
    size = bgra ? 4 : size;
    array = {.normalized = normalized,
             .bgra = bgra,
             .readable = isReadable(size, type),
             .size = size,
             .type = type,
             .stride = stride,
             .pointer = pointer,
             .buffer = client().arrayBuffer};
}

constexpr Memory kindsOf[] = {Memory::vertex,         Memory::normal,   Memory::color,
                              Memory::index,          Memory::edgeFlag, Memory::fogCoord,
                              Memory::secondaryColor, Memory::texCoord};

// Whether the library has taken a pointer call of which not every library would take all.
bool isTaken(const ArrayNames& names, GLint size, GLenum type, GLsizei stride, const void* at)
{
    using GetPointer = decltype(::glGetPointerv);
    static auto* const getPointer = reinterpret_cast<GetPointer*>(nativeByName("glGetPointerv"));
    void* now = nullptr;
    getPointer(names.pointer, &now);
    return now == at && stateOf(names.stride) == stride &&
           (!names.size || stateOf(names.size) == size) &&
           (!names.type || static_cast<GLenum>(stateOf(names.type)) == type);
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
    if (!canAsk())
        return;
    constexpr Memory memory = kindsOf[kind];
    constexpr bool sized = op == Op::glVertexPointer || op == Op::glColorPointer ||
                           op == Op::glTexCoordPointer || op == Op::glSecondaryColorPointer;
    if ((isUsualArray(memory, sized ? size : 3, type) && stride >= 0) ||
        isTaken(namesOf(memory), size, type, stride, at))
        setArray(
            client().arrays[kind == texCoordArray ? texCoordArray + client().activeUnit : kind],
            size, type, stride, at);
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
    if (!canAsk() || index >= vertexAttributes)
        return;
    const auto isTaken = [=] {
        using GetPointer = decltype(::glGetVertexAttribPointerv);
        static auto* const getPointer =
            reinterpret_cast<GetPointer*>(nativeByName("glGetVertexAttribPointerv"));
        void* now = nullptr;
        if (getPointer)
            getPointer(index, GL_VERTEX_ATTRIB_ARRAY_POINTER, &now);
        return now == at;
    };
    if ((isUsualArray(Memory::vertexAttrib, size, type) && stride >= 0) || isTaken())
        setArray(client().arrays[attributeArray + static_cast<int>(index)], size, type, stride, at,
                 normalized != 0);
}

template <Op op>
void enableAttribute(GLuint index)
{
    callNative<op>(index);
    if (canAsk() && index < vertexAttributes)
        enable(client(), attributeArray + static_cast<int>(index),
               op == Op::glEnableVertexAttribArrayARB);
}

template <Op op>
void enableArray(GLenum array)
{
    callNative<op>(array);
    const Memory memory = kindOfArray(array);
    const auto kind = std::find(std::begin(kindsOf), std::end(kindsOf), memory) - kindsOf;
    if (canAsk() && kind < std::ssize(kindsOf))
        enable(client(),
               kind == texCoordArray ? texCoordArray + client().activeUnit : static_cast<int>(kind),
               op == Op::glEnableClientState);
}

template <Op op>
void activeUnit(GLenum texture)
{
    callNative<op>(texture);
    if (canAsk() && texture - GL_TEXTURE0 < textureUnits)
        client().activeUnit = static_cast<int>(texture - GL_TEXTURE0);
}

// The stacks are the library's: what it refuses is not followed.
void pushClientAttrib(GLbitfield mask)
{
    const bool ask = canAsk();
    const GLint depth = ask ? stateOf(GL_CLIENT_ATTRIB_STACK_DEPTH) : 0;
    callNative<Op::glPushClientAttrib>(mask);
    if (ask && stateOf(GL_CLIENT_ATTRIB_STACK_DEPTH) > depth)
        currentContext().client.stack.push_back(
            {mask, client(), currentContext().client.unpackBuffer});
}

void popClientAttrib()
{
    const bool ask = canAsk();
    const GLint depth = ask ? stateOf(GL_CLIENT_ATTRIB_STACK_DEPTH) : 0;
    callNative<Op::glPopClientAttrib>();
    auto& stack = currentContext().client.stack;
    if (!ask || stack.empty() || stateOf(GL_CLIENT_ATTRIB_STACK_DEPTH) >= depth)
        return;
    if (stack.back().mask & GL_CLIENT_VERTEX_ARRAY_BIT)
        client() = stack.back().state;
    if (stack.back().mask & GL_CLIENT_PIXEL_STORE_BIT)
        currentContext().client.unpackBuffer = stack.back().unpackBuffer;
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
    if (found == std::end(interleavedFormats) || stride < 0 || !canAsk())
        return;
    const auto set = [&](int kind, int size, GLenum type, int at) {
        enable(client(), kind, size > 0);
        if (size > 0)
            setArray(client().arrays[kind], size, type, stride ? stride : found->stride,
                     static_cast<const char*>(data) + at);
    };
    set(texCoordArray + client().activeUnit, found->texCoords, GL_FLOAT, 0);
    set(colorArray, found->colors, found->colorType, found->colorAt);
    set(normalArray, found->normals, GL_FLOAT, found->normalAt);
    set(vertexArray, found->vertices, GL_FLOAT, found->vertexAt);
    for (const int kind : {edgeFlagArray, indexArray})
        enable(client(), kind, false);
}

} // namespace

void installArrays()
{
    install<Op::glVertexPointer>(sizedPointer<Op::glVertexPointer>);
    install<Op::glColorPointer>(sizedPointer<Op::glColorPointer>);
    install<Op::glTexCoordPointer>(sizedPointer<Op::glTexCoordPointer>);
    install<Op::glSecondaryColorPointer>(sizedPointer<Op::glSecondaryColorPointer>);
    install<Op::glSecondaryColorPointerEXT>(sizedPointer<Op::glSecondaryColorPointer>);
    install<Op::glNormalPointer>(typedPointer<Op::glNormalPointer, 3>);
    install<Op::glIndexPointer>(typedPointer<Op::glIndexPointer, 1>);
    install<Op::glFogCoordPointer>(typedPointer<Op::glFogCoordPointer, 1>);
    install<Op::glFogCoordPointerEXT>(typedPointer<Op::glFogCoordPointer, 1>);
    install<Op::glEdgeFlagPointer>(edgeFlagPointer);
    install<Op::glVertexPointerEXT>(sizedPointerEXT<Op::glVertexPointer>);
    install<Op::glColorPointerEXT>(sizedPointerEXT<Op::glColorPointer>);
    install<Op::glTexCoordPointerEXT>(sizedPointerEXT<Op::glTexCoordPointer>);
    install<Op::glNormalPointerEXT>(typedPointerEXT<Op::glNormalPointer, 3>);
    install<Op::glIndexPointerEXT>(typedPointerEXT<Op::glIndexPointer, 1>);
    install<Op::glEdgeFlagPointerEXT>(edgeFlagPointerEXT);
    install<Op::glVertexAttribPointerARB>(vertexAttribPointer);
    // By the core's names too, whose functions are the same: then nobody may have asked for the
    // extension's.
    for (const auto& [op, name] :
         {std::pair{Op::glVertexAttribPointerARB, "glVertexAttribPointerARB"},
          {Op::glEnableVertexAttribArrayARB, "glEnableVertexAttribArrayARB"},
          {Op::glDisableVertexAttribArrayARB, "glDisableVertexAttribArrayARB"}})
        if (!nativeTable[indexOf(op)])
            nativeTable[indexOf(op)] = nativeByName(name);
    installOther<vertexAttribPointer>("glVertexAttribPointer");
    installOther<enableAttribute<Op::glEnableVertexAttribArrayARB>>("glEnableVertexAttribArray");
    installOther<enableAttribute<Op::glDisableVertexAttribArrayARB>>("glDisableVertexAttribArray");
    install<Op::glEnableVertexAttribArrayARB>(enableAttribute<Op::glEnableVertexAttribArrayARB>);
    install<Op::glDisableVertexAttribArrayARB>(enableAttribute<Op::glDisableVertexAttribArrayARB>);
    install<Op::glEnableClientState>(enableArray<Op::glEnableClientState>);
    install<Op::glDisableClientState>(enableArray<Op::glDisableClientState>);
    install<Op::glClientActiveTexture>(activeUnit<Op::glClientActiveTexture>);
    install<Op::glClientActiveTextureARB>(activeUnit<Op::glClientActiveTextureARB>);
    install<Op::glPushClientAttrib>(pushClientAttrib);
    install<Op::glPopClientAttrib>(popClientAttrib);
    install<Op::glInterleavedArrays>(interleavedArrays);
}

// Draws from client arrays: the elements that a draw uses are read now, packed and sent before it.
#include "capture/bufferObjects.h"
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/keptDraws.h"

#include <algorithm>
#include <array>
#include <limits>

namespace {

const ClientVertexState& client() { return currentContext().client.now; }

// ---- Elements ----------------------------------------------------------------------------------

int bytesOf(const ClientArrayState& array) { return array.size * elementBytes(array.type); }

const unsigned char* elementAt(const ClientArrayState& array, std::int64_t index)
{
    const auto* base = static_cast<const unsigned char*>(array.pointer);
    if (array.buffer) {
        const BufferObject& object = *array.buffer;
        const std::int64_t offset = std::int64_t(reinterpret_cast<std::intptr_t>(base)) +
                                    index * (array.stride ? array.stride : bytesOf(array));
        static constexpr unsigned char beyond[4 * sizeof(double)] = {};
        if (offset < 0 || offset + bytesOf(array) > std::int64_t(object.bytes.size()))
            return beyond; // OpenGL's affair
        return object.bytes.data() + offset;
    }
    return base + index * (array.stride ? array.stride : bytesOf(array));
}

// A value of an array as a float, in its own range or, where colours are meant, from -1 or 0 to 1.
double valueAt(const unsigned char* at, GLenum type, int i, bool normalized)
{
    const auto scaled = [normalized]<class T>(T value) {
        using Limits = std::numeric_limits<T>;
        if (!normalized)
            return static_cast<double>(value);
        if constexpr (std::is_signed_v<T>)
            return (2.0 * value + 1) / (2.0 * Limits::max() + 1);
        else
            return 1.0 * value / Limits::max();
    };
    switch (type) {
    case GL_BYTE:
        return scaled(load<GLbyte>(at + i));
    case GL_UNSIGNED_BYTE:
        return scaled(load<GLubyte>(at + i));
    case GL_SHORT:
        return scaled(load<GLshort>(at + 2 * i));
    case GL_UNSIGNED_SHORT:
        return scaled(load<GLushort>(at + 2 * i));
    case GL_INT:
        return scaled(load<GLint>(at + 4 * i));
    case GL_UNSIGNED_INT:
        return scaled(load<GLuint>(at + 4 * i));
    case GL_DOUBLE:
        return load<GLdouble>(at + 8 * i);
    default:
        return load<GLfloat>(at + 4 * i);
    }
}

using Values = std::array<float, 4>;

Values valuesAt(const ClientArrayState& array, std::int64_t index, bool normalized)
{
    Values values{0, 0, 0, 1};
    const unsigned char* at = elementAt(array, index);
    for (int i = 0; i < array.size && i < 4; ++i)
        values[static_cast<std::size_t>(i)] =
            static_cast<float>(valueAt(at, array.type, i, normalized));
    if (array.bgra)
        std::swap(values[0], values[2]);
    return values;
}

template <Op op, class... A>
void draw(const A&... a)
{
    record<op, Effect::draws>(a...);
}

// One element of all arrays that are enabled, as calls; the vertex last.
void recordElement(std::int64_t index)
{
    const ClientVertexState& now = client();
    const auto enabled = [&now](int kind) { return isEnabled(now, kind); };
    if (enabled(edgeFlagArray))
        draw<Op::glEdgeFlag>(*elementAt(now.arrays[edgeFlagArray], index));
    if (enabled(indexArray))
        draw<Op::glIndexf>(valuesAt(now.arrays[indexArray], index, false)[0]);
    if (enabled(normalArray)) {
        const Values v = valuesAt(now.arrays[normalArray], index, true);
        draw<Op::glNormal3f>(v[0], v[1], v[2]);
    }
    if (enabled(colorArray)) {
        const Values v = valuesAt(now.arrays[colorArray], index, true);
        draw<Op::glColor4f>(v[0], v[1], v[2], v[3]);
    }
    if (enabled(secondaryColorArray)) {
        const Values v = valuesAt(now.arrays[secondaryColorArray], index, true);
        draw<Op::glSecondaryColor3f>(v[0], v[1], v[2]);
    }
    if (enabled(fogCoordArray))
        draw<Op::glFogCoordf>(valuesAt(now.arrays[fogCoordArray], index, false)[0]);
    for (int unit = 0; unit < textureUnits; ++unit)
        if (enabled(texCoordArray + unit)) {
            const Values v = valuesAt(now.arrays[texCoordArray + unit], index, false);
            if (unit == 0)
                draw<Op::glTexCoord4f>(v[0], v[1], v[2], v[3]);
            else
                draw<Op::glMultiTexCoord4f>(GL_TEXTURE0 + static_cast<GLenum>(unit), v[0], v[1],
                                            v[2], v[3]);
        }
    for (int i = vertexAttributes - 1; i > 0; --i)
        if (enabled(attributeArray + i)) {
            const ClientArrayState& array = now.arrays[attributeArray + i];
            const Values v = valuesAt(array, index, array.normalized);
            draw<Op::glVertexAttrib4fARB>(static_cast<GLuint>(i), v[0], v[1], v[2], v[3]);
        }
    const int kind = enabled(attributeArray) ? attributeArray : vertexArray;
    if (enabled(kind)) {
        const ClientArrayState& position = now.arrays[kind];
        const Values v = valuesAt(position, index, position.normalized);
        draw<Op::glVertex4f>(v[0], v[1], v[2], v[3]);
    }
}

// ---- Draws -------------------------------------------------------------------------------------

// The servers have one memory for the coordinates of all units, and one for all attributes; blue
// comes last in colours on the wire.
bool fitsTheWall()
{
    constexpr std::uint32_t first = (std::uint32_t{1} << (texCoordArray + 1)) - 1;
    const ClientVertexState& now = client();
    const auto hasBlueFirst = [&now](int kind) {
        return isEnabled(now, kind) && now.arrays[kind].bgra;
    };
    return (now.enabled & ~first) == 0 && !hasBlueFirst(colorArray) &&
           !hasBlueFirst(secondaryColorArray);
}

// Where the elements of a draw come from: so many from the first on, or those of an index list.
struct Elements {
    std::int64_t first;
    GLsizei count;
    const std::int64_t* indices = nullptr;
};

void gather(unsigned char* to, const ClientArrayState& array, const Elements& elements)
{
    const auto bytes = static_cast<std::size_t>(bytesOf(array));
    if (elements.indices) {
        for (GLsizei i = 0; i < elements.count; ++i, to += bytes)
            std::memcpy(to, elementAt(array, elements.indices[i]), bytes);
        return;
    }
    if (!array.buffer && (array.stride == 0 || array.stride == bytesOf(array))) {
        std::memcpy(to, elementAt(array, elements.first),
                    bytes * static_cast<std::size_t>(elements.count));
        return;
    }
    if (array.buffer) {
        for (GLsizei i = 0; i < elements.count; ++i, to += bytes)
            std::memcpy(to, elementAt(array, elements.first + i), bytes);
        return;
    }
    const unsigned char* from = elementAt(array, elements.first);
    const auto copyAll = [&]<std::size_t n>(std::integral_constant<std::size_t, n>) {
        for (GLsizei i = 0; i < elements.count; ++i, to += bytes, from += array.stride)
            std::memcpy(to, from, n ? n : bytes);
    };
    switch (bytes) { // of a known size a copy is a few loads and stores
    case 4:
        return copyAll(std::integral_constant<std::size_t, 4>{});
    case 8:
        return copyAll(std::integral_constant<std::size_t, 8>{});
    case 12:
        return copyAll(std::integral_constant<std::size_t, 12>{});
    case 16:
        return copyAll(std::integral_constant<std::size_t, 16>{});
    default:
        return copyAll(std::integral_constant<std::size_t, 0>{});
    }
}

// A pointer operation: its parameters before the stride, the number of elements, the elements.
template <Op op, class... Scalars>
void recordArray(const ClientArrayState& array, const Elements& elements, Scalars... scalars)
{
    using F = Prototype<op>;
    using S = Signature<F>;
    constexpr int head = opcodeBytes + S::offsets[S::count - 1];
    const std::int64_t bytes = head + std::int64_t{elements.count} * bytesOf(array);
    Tape& tape = *currentTape;
    if (!hasRoomForBlock<Effect::draws>(tape, bytes))
        return;
    store(tape.at, static_cast<std::uint16_t>(op));
    encoding::storeScalars<F, S::count - 1>(tape.at + opcodeBytes,
                                            std::tuple(scalars..., elements.count));
    gather(tape.at + head, array, elements);
    tape.at += bytes;
}

constexpr GLenum clientStates[] = {
    GL_VERTEX_ARRAY,    GL_NORMAL_ARRAY,         GL_COLOR_ARRAY,           GL_INDEX_ARRAY,
    GL_EDGE_FLAG_ARRAY, GL_FOG_COORDINATE_ARRAY, GL_SECONDARY_COLOR_ARRAY, GL_TEXTURE_COORD_ARRAY};

void recordEnables()
{
    unsigned& onWall = currentContext().client.enabledOnWall;
    unsigned& isKnown = currentContext().client.knownOnWall;
    for (int kind = 0; kind <= texCoordArray; ++kind) {
        const unsigned bit = 1U << kind;
        const bool enabled = isEnabled(client(), kind);
        if ((isKnown & bit) && enabled == ((onWall & bit) != 0))
            continue;
        isKnown |= bit;
        onWall = enabled ? onWall | bit : onWall & ~bit;
        if (enabled)
            draw<Op::glEnableClientState>(clientStates[kind]);
        else
            draw<Op::glDisableClientState>(clientStates[kind]);
    }
}

void recordArrays(const Elements& elements)
{
    recordEnables();
    for (int kind = 0; kind <= texCoordArray; ++kind) {
        const ClientArrayState& a = client().arrays[kind];
        if (!isEnabled(client(), kind))
            continue;
        switch (kind) {
        case vertexArray:
            recordArray<Op::glVertexPointer>(a, elements, a.size, a.type);
            break;
        case normalArray:
            recordArray<Op::glNormalPointer>(a, elements, a.type);
            break;
        case colorArray:
            recordArray<Op::glColorPointer>(a, elements, a.size, a.type);
            break;
        case indexArray:
            recordArray<Op::glIndexPointer>(a, elements, a.type);
            break;
        case edgeFlagArray:
            recordArray<Op::glEdgeFlagPointer>(a, elements);
            break;
        case fogCoordArray:
            recordArray<Op::glFogCoordPointer>(a, elements, a.type);
            break;
        case secondaryColorArray:
            recordArray<Op::glSecondaryColorPointer>(a, elements, a.size, a.type);
            break;
        default:
            recordArray<Op::glTexCoordPointer>(a, elements, a.size, a.type);
        }
    }
}

void recordAsCalls(GLenum mode, const Elements& elements)
{
    tell(Reason::asCalls);
    draw<Op::glBegin>(mode);
    for (GLsizei i = 0; i < elements.count; ++i)
        recordElement(elements.indices ? elements.indices[i] : elements.first + i);
    draw<Op::glEnd>();
}

// Makes the enabled arrays ready to be read. False where one is of a type that the wire lacks.
bool areReadable()
{
    bool ready = true;
    eachEnabled(client(), [&ready](const ClientArrayState& array, int) {
        if (array.buffer)
            contentsOf(array.buffer);
        ready &= array.readable;
    });
    if (!ready)
        tell(Reason::unknownArray);
    return ready;
}

// Nothing is drawn without positions.
bool drawsAnything(GLsizei count)
{
    return count > 0 && isRecorded<Effect::draws>() && canAsk() &&
           (isEnabled(client(), vertexArray) || isEnabled(client(), attributeArray)) &&
           areReadable();
}

void drawRow(const DrawCall& call)
{
    const Elements elements{call.first, call.count};
    if (!fitsTheWall())
        return recordAsCalls(call.mode, elements);
    recordArrays(elements);
    draw<Op::glDrawArrays>(call.mode, 0, call.count);
}

void recordDrawArrays(GLenum mode, GLint first, GLsizei count)
{
    if (drawsAnything(count) && first >= 0)
        recordKeptDraw({mode, first, count}, !fitsTheWall(), drawRow);
}

template <class Index>
void recordIndexed(GLenum mode, GLsizei count, GLenum type, const Index* indices)
{
    const auto [least, most] = std::minmax_element(indices, indices + count);
    const std::int64_t first = *least;
    const std::int64_t range = std::int64_t{*most} - first + 1;
    static thread_local std::vector<std::int64_t> wide;
    constexpr std::int64_t few = 64;
    const bool sparse = range > 2 * std::int64_t{count} + few;
    if (sparse || !fitsTheWall()) {
        wide.assign(indices, indices + count);
        const Elements elements{0, count, wide.data()};
        if (!fitsTheWall())
            return recordAsCalls(mode, elements);
        recordArrays(elements);
        draw<Op::glDrawArrays>(mode, 0, count);
        return;
    }
    recordArrays({first, static_cast<GLsizei>(range)});
    if (first == 0)
        return draw<Op::glDrawElements>(mode, count, type, Block{indices, count});
    static thread_local std::vector<Index> rebased;
    rebased.resize(static_cast<std::size_t>(count));
    std::transform(indices, indices + count, rebased.begin(),
                   [first](Index i) { return static_cast<Index>(i - first); });
    draw<Op::glDrawElements>(mode, count, type, Block{rebased.data(), count});
}

void drawIndexed(const DrawCall& call)
{
    const auto& [mode, first, count, type, at] = call;
    const void* indices = at;
    if (client().elementBuffer) {
        const std::vector<unsigned char>& contents = contentsOf(client().elementBuffer);
        const auto offset = reinterpret_cast<std::uintptr_t>(indices);
        const auto bytes =
            static_cast<std::size_t>(count) * static_cast<std::size_t>(elementBytes(type));
        if (offset > contents.size() || bytes > contents.size() - offset)
            return tell(Reason::beyondBuffer);
        indices = contents.data() + offset;
    }
    if (!indices)
        return;
    if (type == GL_UNSIGNED_BYTE)
        recordIndexed(mode, count, type, static_cast<const GLubyte*>(indices));
    else if (type == GL_UNSIGNED_SHORT)
        recordIndexed(mode, count, type, static_cast<const GLushort*>(indices));
    else if (type == GL_UNSIGNED_INT)
        recordIndexed(mode, count, type, static_cast<const GLuint*>(indices));
}

void recordDrawElements(GLenum mode, GLsizei count, GLenum type, const void* indices)
{
    if (!drawsAnything(count))
        return;
    if (client().elementBuffer)
        contentsOf(client().elementBuffer); // which decides whether it is the same draw
    recordKeptDraw({mode, 0, count, type, indices}, !fitsTheWall(), drawIndexed);
}

// ---- Entries -----------------------------------------------------------------------------------

void arrayElement(GLint i)
{
    bool readable = true;
    eachEnabled(client(),
                [&readable](const ClientArrayState& array, int) { readable &= array.readable; });
    if (!readable)
        tell(Reason::unknownArray);
    else if (isRecorded<Effect::draws>() && i >= 0)
        recordElement(i);
    callNative<Op::glArrayElement>(i);
}

template <Op op>
void drawArrays(GLenum mode, GLint first, GLsizei count)
{
    recordDrawArrays(mode, first, count);
    callNative<op>(mode, first, count);
}

void drawElements(GLenum mode, GLsizei count, GLenum type, const void* indices)
{
    recordDrawElements(mode, count, type, indices);
    callNative<Op::glDrawElements>(mode, count, type, indices);
}

template <Op op>
void drawRangeElements(GLenum mode, GLuint start, GLuint end, GLsizei count, GLenum type,
                       const void* indices)
{
    recordDrawElements(mode, count, type, indices);
    callNative<op>(mode, start, end, count, type, indices);
}

template <Op op>
void multiDrawArrays(GLenum mode, const GLint* first, const GLsizei* count, GLsizei primitives)
{
    for (int i = 0; i < primitives; ++i)
        recordDrawArrays(mode, first[i], count[i]);
    callNative<op>(mode, first, count, primitives);
}

template <Op op>
void multiDrawElements(GLenum mode, const GLsizei* count, GLenum type, const void* const* indices,
                       GLsizei primitives)
{
    for (int i = 0; i < primitives; ++i)
        recordDrawElements(mode, count[i], type, indices[i]);
    callNative<op>(mode, count, type, indices, primitives);
}

} // namespace

void installDraws()
{
    install<Op::glArrayElement>(arrayElement);
    install<Op::glArrayElementEXT>(arrayElement);
    install<Op::glDrawArrays>(drawArrays<Op::glDrawArrays>);
    install<Op::glDrawArraysEXT>(drawArrays<Op::glDrawArraysEXT>);
    install<Op::glDrawElements>(drawElements);
    install<Op::glDrawRangeElements>(drawRangeElements<Op::glDrawRangeElements>);
    install<Op::glDrawRangeElementsEXT>(drawRangeElements<Op::glDrawRangeElementsEXT>);
    install<Op::glMultiDrawArrays>(multiDrawArrays<Op::glMultiDrawArrays>);
    install<Op::glMultiDrawArraysEXT>(multiDrawArrays<Op::glMultiDrawArraysEXT>);
    install<Op::glMultiDrawElements>(multiDrawElements<Op::glMultiDrawElements>);
    install<Op::glMultiDrawElementsEXT>(multiDrawElements<Op::glMultiDrawElementsEXT>);
}

#include "coding/clientMemory.h"
#include "coding/server_overload/system.h"
#include "wire/clientArrays.h"

#include <algorithm>
#include <bitset>
#include <cstdio>
#include <unordered_map>

namespace {

// ---- What is known of a context's arrays -------------------------------------------------------

// The kinds, then coordinates by unit, then attributes. More than any library has.
constexpr int units = 32;
constexpr int attributes = 64;
constexpr int firstUnit = static_cast<int>(Memory::vertexAttrib);
constexpr int firstAttribute = firstUnit + units;
using Arrays = std::bitset<firstAttribute + attributes>;
constexpr int notKnown = -1;

struct Context {
    Arrays enabled;      // or may be
    Arrays everEnabled;  // what a pop may bring back
    Arrays addressed;    // certainly has an address, that of its kind's memory
    int unit = 0;        // that coordinates concern
    bool pushed = false; // a pop may bring arrays back
    bool inside = false;
    bool unpackChanged = false;
};

std::unordered_map<GLXContext, Context> contexts;
Context none; // without a context OpenGL does nothing
Context* current = &none;
Arrays enabledByServer; // arrays that a glEnable named: it may stand in lists
std::int64_t reach;

void findDrawable()
{
    clientMemory::inside = &current->inside;
    const bool reads = current != &none && current->enabled.any();
    clientMemory::drawable = !reads ? std::numeric_limits<std::int64_t>::max()
                             : (current->enabled & ~current->addressed).any() ? 0
                                                                              : reach;
}

bool everyLibraryTakes(Memory kind, GLuint attribute, GLint size, GLenum type)
{
    constexpr GLuint attributesOfAll = 16;
    return isUsualArray(kind, size, type) && attribute < attributesOfAll;
}

GLint numberOf(GLenum name, GLint otherwise)
{
    GLint value = otherwise;
    if (name)
        callSystem<Op::glGetIntegerv>(name, &value);
    return value;
}

// All arrays of a kind.
Arrays allOf(Memory kind)
{
    const bool several = kind == Memory::texCoord || kind == Memory::vertexAttrib;
    const int count = kind == Memory::texCoord ? units : attributes;
    Arrays all;
    if (!several)
        return all.set(static_cast<std::size_t>(kind) - 1);
    for (int i = 0; i < count; ++i)
        all.set(
            static_cast<std::size_t>((kind == Memory::texCoord ? firstUnit : firstAttribute) + i));
    return all;
}

// The array that an operation on a kind concerns, where that needs no question.
int arrayOf(const Context& c, Memory kind, GLuint attribute = 0)
{
    switch (kind) {
    case Memory::texCoord:
        return c.unit == notKnown ? notKnown : firstUnit + c.unit;
    case Memory::vertexAttrib:
        return attribute < attributes ? firstAttribute + static_cast<int>(attribute) : notKnown;
    default:
        return static_cast<int>(kind) - 1;
    }
}

bool isAmong(const Arrays& arrays, int array)
{
    return array != notKnown && arrays[static_cast<std::size_t>(array)];
}

// The arrays that an operation on a kind may concern: one, or all of which it may be one.
Arrays arraysOf(Context& c, Memory kind)
{
    if (kind != Memory::texCoord)
        return allOf(kind);
    if (c.unit == notKnown && &c != &none) {
        const GLint unit = numberOf(GL_CLIENT_ACTIVE_TEXTURE, GL_TEXTURE0) - GL_TEXTURE0;
        if (!c.inside && unit >= 0 && unit < units)
            c.unit = unit;
    }
    return c.unit == notKnown ? allOf(kind)
                              : Arrays().set(static_cast<std::size_t>(firstUnit + c.unit));
}

Arrays attributeOf(GLuint attribute)
{
    Arrays concerned;
    if (attribute < attributes)
        concerned.set(firstAttribute + attribute);
    return concerned;
}

void enable(Context& c, const Arrays& concerned)
{
    if ((concerned & ~c.enabled).none())
        return;
    c.enabled |= concerned;
    c.everEnabled |= concerned;
    findDrawable();
}

// Disabled for certain only outside, and where it is known which.
void disable(Context& c, const Arrays& concerned)
{
    if (!c.inside && concerned.count() == 1)
        c.enabled &= ~concerned;
    findDrawable();
}

// ---- Asking ------------------------------------------------------------------------------------

constexpr char unanswered = 0; // its address is what a question leaves that is not answered

// True where the address is not that of memory in which elements arrive.
bool mustBeSet(Memory kind, const void* address)
{
    return !address || address == &unanswered || hasMoved(kind, address);
}

// Points an enabled array at its kind's memory if it must be, with the size and type that it has.
// Where nothing is answered they are those of the start.
void giveAddress(Memory kind)
{
    const ArrayNames& names = namesOf(kind);
    void* address = const_cast<char*>(&unanswered);
    callSystem<Op::glGetPointerv>(names.pointer, &address);
    if (!mustBeSet(kind, address))
        return;
    const GLint size = numberOf(names.size, kind == Memory::secondaryColor ? 3 : 4);
    const auto type = static_cast<GLenum>(numberOf(names.type, GL_FLOAT));
    const void* const memory = zerosFor(kind);
    switch (kind) {
    case Memory::vertex:
        return callSystem<Op::glVertexPointer>(size, type, 0, memory);
    case Memory::normal:
        return callSystem<Op::glNormalPointer>(type, 0, memory);
    case Memory::color:
        return callSystem<Op::glColorPointer>(size, type, 0, memory);
    case Memory::index:
        return callSystem<Op::glIndexPointer>(type, 0, memory);
    case Memory::texCoord:
        return callSystem<Op::glTexCoordPointer>(size, type, 0, memory);
    case Memory::edgeFlag:
        return callSystem<Op::glEdgeFlagPointer>(0, memory);
    case Memory::fogCoord:
        return callSystem<Op::glFogCoordPointer>(type, 0, memory);
    case Memory::secondaryColor:
        return callSystem<Op::glSecondaryColorPointer>(size, type, 0, memory);
    case Memory::weight:
        return callSystem<Op::glWeightPointerARB>(size, type, 0, memory);
    case Memory::matrixIndex:
        return callSystem<Op::glMatrixIndexPointerARB>(size, type, 0, memory);
    default:
        return;
    }
}

void giveAttributeAddress(GLuint attribute)
{
    const auto number = [attribute](GLenum name, GLint otherwise) {
        GLint value = otherwise;
        callSystem<Op::glGetVertexAttribivARB>(attribute, name, &value);
        return value;
    };
    void* address = const_cast<char*>(&unanswered);
    callSystem<Op::glGetVertexAttribPointervARB>(
        attribute, GLenum{GL_VERTEX_ATTRIB_ARRAY_POINTER_ARB}, &address);
    if (mustBeSet(Memory::vertexAttrib, address))
        callSystem<Op::glVertexAttribPointerARB>(
            attribute, number(GL_VERTEX_ATTRIB_ARRAY_SIZE_ARB, 4),
            static_cast<GLenum>(number(GL_VERTEX_ATTRIB_ARRAY_TYPE_ARB, GL_FLOAT)),
            static_cast<GLboolean>(number(GL_VERTEX_ATTRIB_ARRAY_NORMALIZED_ARB, GL_FALSE)), 0,
            zerosFor(Memory::vertexAttrib));
}

// Asks for one array. Within glBegin and glEnd, where no answer can be told from "not enabled", it
// counts as enabled.
template <class IsEnabled, class Give>
void settleOne(Context& c, std::size_t array, IsEnabled isEnabled, Give give)
{
    if (!c.enabled[array] || c.addressed[array])
        return;
    if (!c.inside && !isEnabled()) {
        c.enabled.reset(array);
        return;
    }
    give();
    c.addressed[array] = !c.inside;
}

} // namespace

std::int64_t clientMemory::drawable = std::numeric_limits<std::int64_t>::max();
bool* clientMemory::inside = &none.inside;
bool clientMemory::openLists = false;

void clientMemory::settle()
{
    Context& c = *current;
    const auto ask = [&c](Memory kind, std::size_t array) {
        settleOne(
            c, array, [kind] { return callSystem<Op::glIsEnabled>(namesOf(kind).array) != 0; },
            [kind] { giveAddress(kind); });
    };
    for (int kind = static_cast<int>(Memory::vertex); kind < static_cast<int>(Memory::vertexAttrib);
         ++kind)
        ask(static_cast<Memory>(kind), static_cast<std::size_t>(kind) - 1);
    for (int unit = 0; unit < units; ++unit) {
        const auto array = static_cast<std::size_t>(firstUnit + unit);
        if (!c.enabled[array] || c.addressed[array])
            continue;
        const GLint active = numberOf(GL_CLIENT_ACTIVE_TEXTURE, GL_TEXTURE0);
        const bool elsewhere = active != GL_TEXTURE0 + unit;
        if (elsewhere)
            callSystem<Op::glClientActiveTexture>(static_cast<GLenum>(GL_TEXTURE0 + unit));
        ask(Memory::texCoord, array);
        if (elsewhere)
            callSystem<Op::glClientActiveTexture>(static_cast<GLenum>(active));
    }
    for (GLuint attribute = 0; attribute < attributes; ++attribute)
        settleOne(
            c, firstAttribute + attribute,
            [attribute] {
                GLint enabled = 0;
                callSystem<Op::glGetVertexAttribivARB>(
                    attribute, GLenum{GL_VERTEX_ATTRIB_ARRAY_ENABLED_ARB}, &enabled);
                return enabled != 0;
            },
            [attribute] { giveAttributeAddress(attribute); });
    findDrawable();
}

bool clientMemory::mayDraw(const char* operation, std::int64_t elements)
{
    if (drawable == 0)
        settle();
    if (elements <= drawable || elements <= reach)
        return true;
    std::fprintf(stderr,
                 "Attention MOSA: %s: element %lld lies too far behind those that arrived\n",
                 operation, static_cast<long long>(elements - 1));
    return false;
}

std::int64_t clientMemory::elementsIn(const char* indices, GLsizei count, GLenum type,
                                      std::int64_t enough)
{
    const auto largest = [&]<class Index>(Index) -> std::int64_t {
        constexpr std::int64_t possible = std::int64_t{std::numeric_limits<Index>::max()} + 1;
        if (possible <= enough)
            return possible;
        Index most = 0;
        for (GLsizei i = 0; i < count; ++i)
            most = std::max(most, load<Index>(indices + i * std::ptrdiff_t{sizeof(Index)}));
        return std::int64_t{most} + 1;
    };
    if (count <= 0)
        return 0;
    switch (type) {
    case GL_UNSIGNED_BYTE:
        return largest(GLubyte{});
    case GL_UNSIGNED_SHORT:
        return largest(GLushort{});
    case GL_UNSIGNED_INT:
        return largest(GLuint{});
    default:
        return 0;
    }
}

// ---- Changes -----------------------------------------------------------------------------------

void clientMemory::use(GLXContext context)
{
    none = {};
    current = context ? &contexts[context] : &none;
    findDrawable();
}

void clientMemory::create(GLXContext context)
{
    contexts[context] = {};
    findDrawable();
}

void clientMemory::reset()
{
    use(nullptr);
    contexts.clear();
    enabledByServer.reset();
    openLists = false;
    noteReach();
}

void clientMemory::noteReach()
{
    reach = elementsInReach();
    findDrawable();
}

void clientMemory::noteArray(Memory kind, GLuint attribute, GLint size, GLenum type)
{
    Context& c = *current;
    const Arrays concerned =
        kind == Memory::vertexAttrib ? attributeOf(attribute) : arraysOf(c, kind);
    if ((concerned & ~c.addressed).none() && arrayMemory(kind)) [[likely]]
        return;             // it had one already
    if (!arrayMemory(kind)) // nothing has ever arrived: it may have got a null pointer
        c.addressed &= ~concerned;
    else if (!c.inside && concerned.count() == 1 && everyLibraryTakes(kind, attribute, size, type))
        c.addressed |= concerned;
    findDrawable();
}

void clientMemory::noteMoved(Memory kind)
{
    for (auto& [handle, c] : contexts)
        c.addressed &= ~allOf(kind);
    findDrawable();
}

void clientMemory::noteEnabled(GLenum array, bool enabled)
{
    if (current == &none)
        return;
    const Memory kind = kindOfArray(array);
    if (kind == Memory::none || (enabled && isAmong(current->enabled, arrayOf(*current, kind))))
        return;
    (enabled ? enable : disable)(*current, arraysOf(*current, kind));
}

void clientMemory::noteAttributeEnabled(GLuint attribute, bool enabled)
{
    (enabled ? enable : disable)(*current, attributeOf(attribute));
}

void clientMemory::noteServerEnable(GLenum array)
{
    if (const Memory kind = kindOfArray(array); kind != Memory::none) {
        enabledByServer |= allOf(kind); // in a list it will concern the unit of that time
        noteEnabled(array, true);
    }
}

void clientMemory::noteUnit(GLenum unit)
{
    constexpr GLenum unitsOfAll = 2;
    current->unit = !current->inside && unit - GL_TEXTURE0 < unitsOfAll
                        ? static_cast<int>(unit - GL_TEXTURE0)
                        : notKnown;
}

bool clientMemory::unpackChanged() { return current->unpackChanged; }

void clientMemory::noteUnpack(GLenum name)
{
    if (current->unpackChanged) [[likely]]
        return;
    switch (name) {
    case GL_UNPACK_ALIGNMENT:
    case GL_UNPACK_ROW_LENGTH:
    case GL_UNPACK_SKIP_ROWS:
    case GL_UNPACK_SKIP_PIXELS:
    case GL_UNPACK_IMAGE_HEIGHT:
    case GL_UNPACK_SKIP_IMAGES:
    case GL_UNPACK_COMPRESSED_BLOCK_WIDTH:
    case GL_UNPACK_COMPRESSED_BLOCK_HEIGHT:
    case GL_UNPACK_COMPRESSED_BLOCK_DEPTH:
    case GL_UNPACK_COMPRESSED_BLOCK_SIZE:
        current->unpackChanged = true;
        break;
    default:
        break;
    }
}

void clientMemory::notePush(GLbitfield mask)
{
    current->pushed |= (mask & GL_CLIENT_VERTEX_ARRAY_BIT) != 0;
}

void clientMemory::notePop()
{
    Context& c = *current;
    if (!c.pushed)
        return;
    c.unit = notKnown;
    c.addressed.reset();
    c.enabled |= c.everEnabled;
    findDrawable();
}

void clientMemory::noteListsCalled()
{
    *inside |= openLists;
    if (enabledByServer.any()) [[unlikely]]
        enable(*current, enabledByServer);
}

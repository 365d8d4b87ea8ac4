#include "tests/fuzz/standInMemory.h"

#include "wire/sizes.h"

#include <array>
#include <cstdlib>
#include <deque>
#include <map>
#include <vector>

namespace {

constexpr unsigned units = 8, attributes = 16;
constexpr std::size_t stackDepth = 16;

struct HeldArray {
    bool enabled = false;
    GLint size = 4;
    GLenum type = GL_FLOAT;
    const char* pointer = nullptr;
};
struct ClientState {
    std::map<unsigned, HeldArray> arrays; // by kind, behind the kinds by unit and attribute
    unsigned unit = 0;
    std::map<GLenum, GLint> store;
};
struct Context {
    ClientState state;
    std::vector<std::pair<GLbitfield, ClientState>> stack;
    bool inside = false, compiling = false, executing = false, destroyed = false;
    GLuint list = 0;
};
enum class Event { begin, end, call };
using Events = std::vector<std::pair<Event, GLuint>>;

std::deque<Context> contexts; // handles are addresses
Context* current;
std::map<GLuint, Events> lists;
bool refuses;

volatile char sink;

bool refused() { return !current || (refuses && current->inside); }

unsigned keyOf(Memory kind, unsigned index) { return static_cast<unsigned>(kind) + 100 * index; }

// By which names an array is enabled and asked for.
struct HeldNames {
    Memory kind;
    GLenum array, pointer, size, type;
};
constexpr HeldNames heldNames[] = {
    {Memory::vertex, GL_VERTEX_ARRAY, GL_VERTEX_ARRAY_POINTER, GL_VERTEX_ARRAY_SIZE,
     GL_VERTEX_ARRAY_TYPE},
    {Memory::normal, GL_NORMAL_ARRAY, GL_NORMAL_ARRAY_POINTER, 0, GL_NORMAL_ARRAY_TYPE},
    {Memory::color, GL_COLOR_ARRAY, GL_COLOR_ARRAY_POINTER, GL_COLOR_ARRAY_SIZE,
     GL_COLOR_ARRAY_TYPE},
    {Memory::index, GL_INDEX_ARRAY, GL_INDEX_ARRAY_POINTER, 0, GL_INDEX_ARRAY_TYPE},
    {Memory::texCoord, GL_TEXTURE_COORD_ARRAY, GL_TEXTURE_COORD_ARRAY_POINTER,
     GL_TEXTURE_COORD_ARRAY_SIZE, GL_TEXTURE_COORD_ARRAY_TYPE},
    {Memory::edgeFlag, GL_EDGE_FLAG_ARRAY, GL_EDGE_FLAG_ARRAY_POINTER, 0, 0},
    {Memory::fogCoord, GL_FOG_COORD_ARRAY, GL_FOG_COORD_ARRAY_POINTER, 0, GL_FOG_COORD_ARRAY_TYPE},
    {Memory::secondaryColor, GL_SECONDARY_COLOR_ARRAY, GL_SECONDARY_COLOR_ARRAY_POINTER,
     GL_SECONDARY_COLOR_ARRAY_SIZE, GL_SECONDARY_COLOR_ARRAY_TYPE},
};

unsigned arrayKey(GLenum array)
{
    for (const HeldNames& names : heldNames)
        if (names.array == array)
            return keyOf(names.kind, names.kind == Memory::texCoord ? current->state.unit : 0);
    return 0;
}

bool takes(Memory kind, unsigned index, GLint size, GLenum type)
{
    const bool signedType =
        type == GL_SHORT || type == GL_INT || type == GL_FLOAT || type == GL_DOUBLE;
    const bool any = (type >= GL_BYTE && type <= GL_FLOAT) || type == GL_DOUBLE;
    switch (kind) {
    case Memory::vertex:
        return size >= 2 && size <= 4 && signedType;
    case Memory::normal:
        return signedType || type == GL_BYTE;
    case Memory::color:
        return size >= 3 && size <= 4 && any;
    case Memory::index:
        return signedType || type == GL_UNSIGNED_BYTE;
    case Memory::texCoord:
        return size >= 1 && size <= 4 && signedType;
    case Memory::edgeFlag:
        return true;
    case Memory::fogCoord:
        return type == GL_FLOAT || type == GL_DOUBLE;
    case Memory::secondaryColor:
        return size == 3 && any;
    case Memory::vertexAttrib:
        return index < attributes && size >= 1 && size <= 4 && any;
    default:
        return false; // not there
    }
}

void happen(Event event, GLuint list, int depth);

void run(const Events& events, int depth)
{
    for (const auto& [event, list] : events)
        happen(event, list, depth);
}

void happen(Event event, GLuint list, int depth)
{
    if (event != Event::call)
        current->inside = event == Event::begin;
    else if (const auto found = lists.find(list); found != lists.end() && depth < 8)
        run(Events(found->second), depth + 1);
}

// Performed, or compiled, or both.
void happenOrCompile(Event event, GLuint list = 0)
{
    if (!current)
        return;
    if (current->compiling)
        lists[current->list].push_back({event, list});
    if (!current->compiling || current->executing)
        happen(event, list, 0);
}

} // namespace

int standIn::use(GLXContext context)
{
    if (!context) {
        current = nullptr;
        return 1;
    }
    for (Context& one : contexts)
        if (reinterpret_cast<GLXContext>(&one) == context && !one.destroyed) {
            current = &one;
            return 1;
        }
    return 0;
}

GLXContext standIn::create() { return reinterpret_cast<GLXContext>(&contexts.emplace_back()); }

void standIn::destroy(GLXContext context)
{
    for (Context& one : contexts)
        if (reinterpret_cast<GLXContext>(&one) == context)
            one.destroyed = true;
}

void standIn::reset(bool refusing)
{
    current = nullptr;
    contexts.clear();
    lists.clear();
    refuses = refusing;
}

void standIn::setPointer(Memory kind, unsigned index, GLint size, GLenum type, const void* pointer)
{
    if (refused() || !takes(kind, index, size, type))
        return;
    if (kind == Memory::texCoord)
        index = current->state.unit;
    if (kind == Memory::normal || kind == Memory::secondaryColor)
        size = 3;
    if (kind == Memory::index || kind == Memory::fogCoord || kind == Memory::edgeFlag)
        size = 1;
    if (kind == Memory::edgeFlag)
        type = GL_UNSIGNED_BYTE;
    HeldArray& array = current->state.arrays[keyOf(kind, index)];
    array = {array.enabled, size, type, static_cast<const char*>(pointer)};
}

void standIn::setEnabled(GLenum array, bool enabled)
{
    if (refused())
        return;
    if (const unsigned key = arrayKey(array))
        current->state.arrays[key].enabled = enabled;
}

void standIn::setAttributeEnabled(GLuint index, bool enabled)
{
    if (!refused() && index < attributes)
        current->state.arrays[keyOf(Memory::vertexAttrib, index)].enabled = enabled;
}

void standIn::setUnit(GLenum unit)
{
    if (!refused() && unit - GL_TEXTURE0 < units)
        current->state.unit = unit - GL_TEXTURE0;
}

void standIn::setPixelStore(GLenum name, GLint value)
{
    const bool alignment = name == GL_UNPACK_ALIGNMENT;
    if (refused() || value < 0 ||
        (alignment && value != 1 && value != 2 && value != 4 && value != 8))
        return;
    current->state.store[name] = value;
}

namespace {

GLint storeParameter(GLenum name)
{
    const auto found = current->state.store.find(name);
    return found != current->state.store.end() ? found->second
                                               : (name == GL_UNPACK_ALIGNMENT ? 4 : 0);
}

// The array of which a query asks for the pointer, size or type; null where it is no such name.
const HeldArray* arrayAsked(GLenum name, GLenum HeldNames::*which)
{
    for (const HeldNames& names : heldNames)
        if (name && names.*which == name)
            return &current->state.arrays[arrayKey(names.array)];
    return nullptr;
}

} // namespace

std::optional<GLint> standIn::parameter(GLenum name)
{
    const bool unpack = (name >= GL_UNPACK_SWAP_BYTES && name <= GL_UNPACK_ALIGNMENT) ||
                        name == GL_UNPACK_SKIP_IMAGES || name == GL_UNPACK_IMAGE_HEIGHT;
    if (!current)
        return {};
    if (unpack)
        return storeParameter(name);
    if (name == GL_CLIENT_ACTIVE_TEXTURE)
        return static_cast<GLint>(GL_TEXTURE0 + current->state.unit);
    if (const HeldArray* array = arrayAsked(name, &HeldNames::size))
        return name == GL_SECONDARY_COLOR_ARRAY_SIZE ? 3 : array->size;
    if (const HeldArray* array = arrayAsked(name, &HeldNames::type))
        return static_cast<GLint>(array->type);
    return {};
}

bool standIn::answers() { return current && !current->inside; }

GLboolean standIn::isEnabled(GLenum name)
{
    const unsigned key = !current || current->inside ? 0 : arrayKey(name);
    return key && current->state.arrays[key].enabled;
}

void standIn::getPointer(GLenum name, void** pointer)
{
    if (current && !current->inside)
        if (const HeldArray* array = arrayAsked(name, &HeldNames::pointer))
            *pointer = const_cast<char*>(array->pointer);
}

void standIn::getAttribute(GLuint index, GLenum name, GLint* value)
{
    if (!current || current->inside || index >= attributes)
        return;
    const HeldArray& array = current->state.arrays[keyOf(Memory::vertexAttrib, index)];
    if (name == GL_VERTEX_ATTRIB_ARRAY_ENABLED)
        *value = array.enabled;
    else if (name == GL_VERTEX_ATTRIB_ARRAY_SIZE)
        *value = array.size;
    else if (name == GL_VERTEX_ATTRIB_ARRAY_TYPE)
        *value = static_cast<GLint>(array.type);
}

void standIn::getAttributePointer(GLuint index, GLenum, void** pointer)
{
    if (current && !current->inside && index < attributes)
        *pointer =
            const_cast<char*>(current->state.arrays[keyOf(Memory::vertexAttrib, index)].pointer);
}

void standIn::push(GLbitfield mask)
{
    if (!refused() && current->stack.size() < stackDepth)
        current->stack.push_back({mask, current->state});
}

void standIn::pop()
{
    if (refused() || current->stack.empty())
        return;
    auto& [mask, saved] = current->stack.back();
    if (mask & GL_CLIENT_VERTEX_ARRAY_BIT) {
        current->state.arrays = saved.arrays;
        current->state.unit = saved.unit;
    }
    if (mask & GL_CLIENT_PIXEL_STORE_BIT)
        current->state.store = saved.store;
    current->stack.pop_back();
}

void standIn::begin() { happenOrCompile(Event::begin); }
void standIn::end() { happenOrCompile(Event::end); }
void standIn::callList(GLuint list) { happenOrCompile(Event::call, list); }

void standIn::newList(GLuint list, GLenum mode)
{
    if (!current || current->inside || current->compiling || list == 0 ||
        (mode != GL_COMPILE && mode != GL_COMPILE_AND_EXECUTE))
        return;
    current->compiling = true;
    current->executing = mode == GL_COMPILE_AND_EXECUTE;
    current->list = list;
    lists[list].clear();
}

void standIn::endList()
{
    if (current && !current->inside)
        current->compiling = false;
}

void standIn::readElement(std::int64_t index)
{
    if (!current)
        return;
    for (const auto& [key, array] : current->state.arrays)
        if (array.enabled) {
            const int bytes = array.size * elementBytes(array.type);
            sink = array.pointer[index * bytes];
            sink = array.pointer[index * bytes + bytes - 1];
        }
}

void standIn::readRange(GLint first, GLsizei count)
{
    if (count > 0) {
        readElement(first);
        readElement(std::int64_t{first} + count - 1);
    }
}

void standIn::readElements(GLsizei count, GLenum type, const void* indices)
{
    const auto* at = static_cast<const char*>(indices);
    for (GLsizei i = 0; i < count; ++i)
        if (type == GL_UNSIGNED_BYTE)
            readElement(load<GLubyte>(at + i));
        else if (type == GL_UNSIGNED_SHORT)
            readElement(load<GLushort>(at + 2 * std::ptrdiff_t{i}));
        else if (type == GL_UNSIGNED_INT)
            readElement(load<GLuint>(at + 4 * std::ptrdiff_t{i}));
}

// The address of the last pixel, as OpenGL defines it.
void standIn::readImage(int dimensions, GLsizei width, GLsizei height, GLsizei depth, GLenum format,
                        GLenum type, const void* pixels)
{
    if (!current || !pixels || width <= 0 || height <= 0 || depth <= 0)
        return;
    const auto value = [](GLenum name) { return std::int64_t{storeParameter(name)}; };
    const bool bits = type == GL_BITMAP;
    const int bytes = pixelBytes(format, type);
    if (!bits && bytes == 0)
        return; // refused
    const std::int64_t length =
        value(GL_UNPACK_ROW_LENGTH) > 0 ? value(GL_UNPACK_ROW_LENGTH) : width;
    const std::int64_t alignment = value(GL_UNPACK_ALIGNMENT);
    const std::int64_t tight = bits ? (length + 7) / 8 : length * bytes;
    const std::int64_t row = (tight + alignment - 1) / alignment * alignment;
    const std::int64_t rows = dimensions == 3 && value(GL_UNPACK_IMAGE_HEIGHT) > 0
                                  ? value(GL_UNPACK_IMAGE_HEIGHT)
                                  : height;
    const std::int64_t images = dimensions == 3 ? value(GL_UNPACK_SKIP_IMAGES) : 0;
    const std::int64_t x = value(GL_UNPACK_SKIP_PIXELS) + width - 1;
    // In 128 bits, for the stream's numbers may be any.
    __extension__ using Large = __int128;
    const Large at =
        (Large{images + depth - 1} * rows + value(GL_UNPACK_SKIP_ROWS) + height - 1) * row +
        (bits ? x / 8 : x * bytes + bytes - 1);
    if (at > Large{1} << 40)
        std::abort(); // no buffer has so many
    sink = static_cast<const char*>(pixels)[static_cast<std::int64_t>(at)];
}

// OpenGL refuses maps of more points in a direction than these before it reads any.
template <class T>
void standIn::readPoints(GLenum target, std::int64_t stride, std::int64_t order,
                         std::int64_t secondStride, std::int64_t secondOrder, const T* points)
{
    constexpr std::int64_t mostOrder = 64;
    const int values = pointValues(target);
    if (!values || !points || order < 1 || order > mostOrder || secondOrder < 1 ||
        secondOrder > mostOrder || stride < values || secondStride < values)
        return;
    const T* const last = points + (order - 1) * stride + (secondOrder - 1) * secondStride;
    sink = static_cast<char>(load<unsigned char>(last + values - 1));
}
template void standIn::readPoints(GLenum, std::int64_t, std::int64_t, std::int64_t, std::int64_t,
                                  const GLfloat*);
template void standIn::readPoints(GLenum, std::int64_t, std::int64_t, std::int64_t, std::int64_t,
                                  const GLdouble*);

#include "coding/clientMemory.h"
#include "coding/server_overload/system.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <unordered_map>
#include <vector>

namespace {

constexpr std::int64_t veryMany = std::numeric_limits<std::int64_t>::max();

// ---- What is followed of a context -------------------------------------------------------------

constexpr int units = 32;      // of texture coordinates
constexpr int attributes = 64; // of vertices
constexpr int firstUnit = static_cast<int>(Memory::vertexAttrib) + 1;
constexpr int firstAttribute = firstUnit + units;

struct Array {
    bool enabled = false;      // or may be
    std::int64_t elements = 0; // 0 too while the library may hold no address
};

// A parameter of the unpack state: the latest, and the largest that may be in force in its stead.
struct Parameter {
    GLint now = 0, most = 0;
};

struct Unpack {
    Parameter rowLength, imageHeight, skipRows, skipPixels, skipImages, alignment{4, 4};
};

struct Saved {
    GLbitfield mask;
    std::array<Array, firstAttribute + attributes> arrays;
    int unit;
    Unpack unpack;
};

struct Client {
    std::array<Array, firstAttribute + attributes> arrays{};
    int unitsThere = 0;            // 0: not asked for yet
    int unit = 0;                  // that texture coordinate arrays concern; -1: not known
    std::int64_t there = veryMany; // elements of the shortest enabled array
    Unpack unpack{};
    std::vector<Saved> stack{};
    bool lost = false; // the stack may be another than the library's
    bool used = false; // some array has been enabled
    clientMemory::Nesting nesting{};
};

std::unordered_map<GLXContext, Client> clients;
Client* client;   // of the current context
bool unevenLists; // some list ends what it has not begun, or the other way round

constexpr std::size_t stackDepth = 16; // that every library has

clientMemory::Nesting noNesting; // without a context

void findShortest(Client& c)
{
    c.there = c.lost && c.used ? 0 : veryMany;
    for (const Array& array : c.arrays)
        if (array.enabled)
            c.there = std::min(c.there, array.elements);
}

void lose(Client& c)
{
    c.lost = true;
    findShortest(c);
}

// The array of a kind that a pointer call or an enable concerns; null when there may be none such.
Array* arrayOf(Client& c, Memory kind)
{
    if (kind == Memory::texCoord)
        return c.unit < 0 ? nullptr : &c.arrays[static_cast<std::size_t>(firstUnit + c.unit)];
    return &c.arrays[static_cast<std::size_t>(kind)];
}

bool isAmong(GLenum type, std::initializer_list<int> types)
{
    return std::any_of(types.begin(), types.end(),
                       [type](int one) { return static_cast<GLenum>(one) == type; });
}

// Whether every library takes a pointer call with such parameters.
bool isAccepted(Memory kind, GLuint attribute, GLint size, GLenum type)
{
    const auto sizes = [size](int from, int to) { return from <= size && size <= to; };
    const bool any = type >= GL_BYTE && type <= GL_FLOAT;
    const bool anyOrDouble = any || type == GL_DOUBLE;
    const bool wide = isAmong(type, {GL_SHORT, GL_INT, GL_FLOAT, GL_DOUBLE});
    constexpr GLuint attributesOfAll = 16;
    switch (kind) {
    case Memory::vertex:
        return sizes(2, 4) && wide;
    case Memory::normal:
        return wide || type == GL_BYTE;
    case Memory::color:
        return sizes(3, 4) && anyOrDouble;
    case Memory::index:
        return wide || type == GL_UNSIGNED_BYTE;
    case Memory::texCoord:
        return sizes(1, 4) && wide;
    case Memory::edgeFlag:
        return true;
    case Memory::fogCoord:
        return isAmong(type, {GL_FLOAT, GL_DOUBLE});
    case Memory::secondaryColor:
        return sizes(3, 3) && anyOrDouble;
    case Memory::vertexAttrib:
        return attribute < attributesOfAll && sizes(1, 4) && anyOrDouble;
    case Memory::weight:
        return sizes(1, 4) && anyOrDouble;
    case Memory::matrixIndex:
        return sizes(1, 4) && isAmong(type, {GL_UNSIGNED_BYTE, GL_UNSIGNED_SHORT, GL_UNSIGNED_INT});
    default:
        return false;
    }
}

Memory kindOf(GLenum array)
{
    switch (array) {
    case GL_VERTEX_ARRAY:
        return Memory::vertex;
    case GL_NORMAL_ARRAY:
        return Memory::normal;
    case GL_COLOR_ARRAY:
        return Memory::color;
    case GL_INDEX_ARRAY:
        return Memory::index;
    case GL_TEXTURE_COORD_ARRAY:
        return Memory::texCoord;
    case GL_EDGE_FLAG_ARRAY:
        return Memory::edgeFlag;
    case GL_FOG_COORDINATE_ARRAY:
        return Memory::fogCoord;
    case GL_SECONDARY_COLOR_ARRAY:
        return Memory::secondaryColor;
    case GL_WEIGHT_ARRAY_ARB:
        return Memory::weight;
    case GL_MATRIX_INDEX_ARRAY_ARB:
        return Memory::matrixIndex;
    default:
        return Memory::none;
    }
}

// ---- Images ------------------------------------------------------------------------------------

// Products and sums of what the stream says, no larger than can be held.
std::int64_t times(std::int64_t a, std::int64_t b)
{
    std::int64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? veryMany : product;
}
std::int64_t plus(std::int64_t a, std::int64_t b)
{
    std::int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? veryMany : sum;
}

// Bits of a pixel, and bytes of what the alignment of rows compares itself with. No bits where
// there is no such format or type: the library refuses the image and reads nothing.
struct PixelSize {
    int bits, unit;
};
PixelSize pixelSize(GLenum format, GLenum type)
{
    if (type == GL_BITMAP)
        return {1, 1};
    return {8 * pixelBytes(format, type), pixelUnit(type).bytes};
}

std::int64_t roundUp(std::int64_t value, std::int64_t to)
{
    return value > veryMany - to ? veryMany : (value + to - 1) / to * to;
}

} // namespace

clientMemory::Nesting* clientMemory::nesting = &noNesting;

std::int64_t clientMemory::bytesOf(const ImageSize& image)
{
    if (!client || image.width <= 0 || image.height <= 0 || image.depth <= 0)
        return 0;
    const auto [bits, unit] = pixelSize(image.format, image.type);
    if (bits == 0)
        return 0;
    if (client->lost)
        return veryMany;
    const Unpack& u = client->unpack;
    // A length of 0 is that of the image.
    const auto longest = [](const Parameter& p, std::int64_t own) {
        return std::max<std::int64_t>(p.now > 0 ? p.now : own, p.most > 0 ? p.most : 0);
    };
    const auto most = [](const Parameter& p) { return std::int64_t{std::max(p.now, p.most)}; };
    const std::int64_t bytes = roundUp(times(longest(u.rowLength, image.width), bits), 8) / 8;
    const std::int64_t row = image.type == GL_BITMAP || unit < most(u.alignment)
                                 ? roundUp(bytes, most(u.alignment))
                                 : bytes;
    std::int64_t needed = times(plus(most(u.skipRows), image.height - 1), row);
    if (image.volume)
        needed = plus(needed, times(times(row, longest(u.imageHeight, image.height)),
                                    plus(most(u.skipImages), image.depth - 1)));
    return plus(needed, roundUp(times(plus(most(u.skipPixels), image.width), bits), 8) / 8);
}

// ---- Draws -------------------------------------------------------------------------------------

std::int64_t clientMemory::elementsThere() { return client ? client->there : veryMany; }

bool clientMemory::elementsArrived(const char* operation, std::int64_t needed)
{
    const std::int64_t there = elementsThere();
    if (needed <= there) [[likely]]
        return true;
    std::fprintf(stderr,
                 "Attention MOSA: %s: %lld elements of the enabled arrays are needed, %lld "
                 "arrived\n",
                 operation, static_cast<long long>(needed), static_cast<long long>(there));
    return false;
}

std::int64_t clientMemory::elementsIn(const char* indices, GLsizei count, GLenum type)
{
    const auto largest = [&]<class Index>(Index) {
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
    client = context ? &clients[context] : nullptr;
    nesting = client ? &client->nesting : &noNesting;
}

void clientMemory::reset()
{
    use(nullptr);
    clients.clear();
    unevenLists = false;
}

void clientMemory::create(GLXContext context)
{
    if (context && client != &clients[context])
        clients[context] = {};
}

void clientMemory::noteArray(Memory kind, GLuint attribute, GLint size, GLenum type,
                             std::int64_t elements)
{
    if (!client || (kind == Memory::vertexAttrib && attribute >= attributes))
        return;
    Array* const array = kind == Memory::vertexAttrib
                             ? &client->arrays[firstAttribute + static_cast<std::size_t>(attribute)]
                             : arrayOf(*client, kind);
    const bool accepted = !client->nesting.inside && isAccepted(kind, attribute, size, type);
    // However large the library takes an element for, it stays within the memory.
    const bool many = kind == Memory::weight || kind == Memory::matrixIndex;
    elements = std::min(elements, scratchOf(kind).room / (many ? 256 : 32));
    if (array)
        array->elements = accepted ? elements : std::min(array->elements, elements);
    else
        for (int unit = 0; unit < units; ++unit) { // one of them
            Array& one = client->arrays[static_cast<std::size_t>(firstUnit + unit)];
            one.elements = std::min(one.elements, elements);
        }
    findShortest(*client);
}

void clientMemory::noteEnabled(GLenum name, bool enabled)
{
    if (!client)
        return;
    const Memory kind = kindOf(name);
    if (kind == Memory::none || (!enabled && client->nesting.inside))
        return;
    client->used |= enabled;
    if (Array* const array = arrayOf(*client, kind))
        array->enabled = enabled;
    else if (enabled)
        for (int unit = 0; unit < units; ++unit)
            client->arrays[static_cast<std::size_t>(firstUnit + unit)].enabled = true;
    findShortest(*client);
}

void clientMemory::noteAttributeEnabled(GLuint attribute, bool enabled)
{
    if (!client || attribute >= attributes || (!enabled && client->nesting.inside))
        return;
    client->used |= enabled;
    client->arrays[firstAttribute + static_cast<std::size_t>(attribute)].enabled = enabled;
    findShortest(*client);
}

void clientMemory::noteUnit(GLenum unit)
{
    if (!client)
        return;
    const GLenum number = unit - GL_TEXTURE0;
    if (client->nesting.inside) {
        if (client->unit != static_cast<int>(number))
            client->unit = -1;
        return;
    }
    // Every library has two units.
    if (number >= 2 && client->unitsThere == 0) {
        client->unitsThere = systemInteger(GL_MAX_TEXTURE_COORDS);
        if (client->unitsThere <= 0)
            client->unitsThere = units;
    }
    if (number < 2 || number < static_cast<GLenum>(std::min(client->unitsThere, units)))
        client->unit = static_cast<int>(number);
}

void clientMemory::noteUnpack(GLenum name, double value)
{
    if (!client)
        return;
    Unpack& u = client->unpack;
    Parameter* const parameter = name == GL_UNPACK_ROW_LENGTH     ? &u.rowLength
                                 : name == GL_UNPACK_IMAGE_HEIGHT ? &u.imageHeight
                                 : name == GL_UNPACK_SKIP_ROWS    ? &u.skipRows
                                 : name == GL_UNPACK_SKIP_PIXELS  ? &u.skipPixels
                                 : name == GL_UNPACK_SKIP_IMAGES  ? &u.skipImages
                                 : name == GL_UNPACK_ALIGNMENT    ? &u.alignment
                                                                  : nullptr;
    if (!parameter || value <= -1)
        return;
    const bool isAlignment = parameter == &u.alignment;
    constexpr double largest = std::numeric_limits<GLint>::max();
    if (!(value <= largest)) { // who knows what it becomes
        parameter->most = isAlignment ? 8 : std::numeric_limits<GLint>::max();
        return;
    }
    const auto rounded = static_cast<GLint>(std::max(std::lround(value), 0L));
    if (isAlignment && rounded != 1 && rounded != 2 && rounded != 4 && rounded != 8)
        return;
    // Libraries round a fraction as they like, and may refuse one below zero.
    const auto most = std::max(rounded, static_cast<GLint>(std::ceil(value)));
    const bool certain = !client->nesting.inside && value >= 0;
    parameter->most = certain ? most : std::max({parameter->most, parameter->now, most});
    parameter->now = rounded;
}

void clientMemory::notePush(GLbitfield mask)
{
    if (!client)
        return;
    if (client->nesting.inside || client->stack.size() == stackDepth)
        lose(*client);
    else
        client->stack.push_back({mask, client->arrays, client->unit, client->unpack});
}

void clientMemory::notePop()
{
    if (!client || client->stack.empty())
        return;
    if (client->nesting.inside)
        return lose(*client);
    const Saved& saved = client->stack.back();
    if (saved.mask & GL_CLIENT_VERTEX_ARRAY_BIT) {
        client->arrays = saved.arrays;
        client->unit = saved.unit;
    }
    if (saved.mask & GL_CLIENT_PIXEL_STORE_BIT)
        client->unpack = saved.unpack;
    client->stack.pop_back();
    findShortest(*client);
}

void clientMemory::forgetArrays(Memory kind)
{
    for (auto& [context, c] : clients) {
        const auto forget = [&c](int first, int count) {
            for (int i = first; i < first + count; ++i)
                c.arrays[static_cast<std::size_t>(i)].elements = 0;
        };
        if (kind == Memory::texCoord)
            forget(firstUnit, units);
        else if (kind == Memory::vertexAttrib)
            forget(firstAttribute, attributes);
        else
            forget(static_cast<int>(kind), 1);
        for (Saved& saved : c.stack)
            c.lost |= (saved.mask & GL_CLIENT_VERTEX_ARRAY_BIT) != 0;
        findShortest(c);
    }
}

// ---- Between glBegin and glEnd -----------------------------------------------------------------

void clientMemory::noteNewList(GLuint list, GLenum mode)
{
    if (!client)
        return;
    const bool accepted = list != 0 && !client->nesting.inside && !client->nesting.compiling &&
                          (mode == GL_COMPILE || mode == GL_COMPILE_AND_EXECUTE);
    // Of one that may have been refused all may be executed.
    client->nesting.certain = accepted;
    client->nesting.executing = mode == GL_COMPILE_AND_EXECUTE || !accepted;
    client->nesting.compiling = true;
    client->nesting.depth = client->nesting.lowest = 0;
}

void clientMemory::noteEndList()
{
    if (!client || !client->nesting.compiling)
        return;
    unevenLists |= client->nesting.depth != 0 || client->nesting.lowest < 0;
    client->nesting.compiling = false;
}

void clientMemory::noteListsCalled()
{
    if (client && unevenLists)
        client->nesting.inside = true;
}

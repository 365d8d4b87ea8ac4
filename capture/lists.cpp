#include "capture/lists.h"
#include "capture/contexts.h"
#include "capture/keptDraws.h"
#include "capture/locks.h"
#include "capture/native.h"
#include "capture/raster.h"
#include "capture/reasons.h"
#include "capture/rows.h"
#include "wire/sizes.h"

#include <algorithm>
#include <memory>

namespace {

using Records = std::shared_ptr<const std::vector<unsigned char>>;

constexpr int mostDepth = 64; // of calls, as OpenGL has it

struct Contents {
    bool placed = false, calls = false, bitmapsOnly = true;
};

Contents contentsOf(const std::vector<unsigned char>& records, bool projection)
{
    constexpr GLbitfield placing = GL_VIEWPORT_BIT | GL_CURRENT_BIT | GL_TRANSFORM_BIT;
    Contents contents;
    eachRecord(records, [&](int opcode, const char* at, std::int64_t) {
        const Op op{static_cast<std::uint16_t>(opcode)};
        const Placed placed = rowOf(op).placed;
        contents.placed |=
            placed == Placed::always || (projection && placed == Placed::onProjection);
        if (op == Op::glPushAttrib)
            contents.placed |= (load<GLbitfield>(at + opcodeBytes) & placing) != 0;
        contents.bitmapsOnly &= op == Op::glBitmap;
        contents.calls |= op == Op::glCallList || op == Op::glCallLists;
    });
    return contents;
}

// The names of a glCallLists. Those of several bytes have the highest first.
std::vector<GLuint> namesOf(GLuint base, GLsizei n, GLenum type, const void* lists)
{
    std::vector<GLuint> names;
    const auto* at = static_cast<const unsigned char*>(lists);
    for (GLsizei i = 0; i < n; ++i) {
        std::int64_t name = 0;
        switch (type) {
        case GL_BYTE:
            name = load<GLbyte>(at + i);
            break;
        case GL_UNSIGNED_BYTE:
            name = at[i];
            break;
        case GL_SHORT:
            name = load<GLshort>(at + 2 * i);
            break;
        case GL_UNSIGNED_SHORT:
            name = load<GLushort>(at + 2 * i);
            break;
        case GL_INT:
            name = load<GLint>(at + 4 * i);
            break;
        case GL_UNSIGNED_INT:
            name = load<GLuint>(at + 4 * i);
            break;
        case GL_FLOAT:
            name = static_cast<std::int64_t>(load<GLfloat>(at + 4 * i));
            break;
        case GL_2_BYTES:
        case GL_3_BYTES:
        case GL_4_BYTES: {
            const int bytes = 2 + static_cast<int>(type - GL_2_BYTES);
            for (int b = 0; b < bytes; ++b)
                name = name << 8 | at[bytes * i + b];
            break;
        }
        default:
            return {};
        }
        names.push_back(base + static_cast<GLuint>(name));
    }
    return names;
}

// The names that a record within a list calls, with the base at that time.
std::vector<GLuint> namesCalled(Op op, const char* at, GLuint base)
{
    const char* args = at + opcodeBytes;
    if (op == Op::glCallList)
        return {load<GLuint>(args)};
    using Places =
        DataBlockPlaces<Prototype<Op::glCallLists>, Count::behindScalars, Null::lastArrived>;
    return namesOf(base, load<GLsizei>(args), load<GLenum>(args + 4), args + Places::data);
}

GLuint listBase()
{
    const Context& c = currentContext();
    return c.inBegin ? c.listBase : static_cast<GLuint>(stateOf(GL_LIST_BASE));
}

// True when what a list consists of is to be sent in its place.
bool isExpanded(const KeptLists& lists, GLuint list, GLuint base, int depth = 0)
{
    const auto found = lists.find(list);
    if (found == lists.end() || depth >= mostDepth)
        return false;
    if (found->second.placed)
        return true;
    bool expanded = false;
    eachRecord(*found->second.records, [&](int opcode, const char* at, std::int64_t) {
        const Op op{static_cast<std::uint16_t>(opcode)};
        if (op == Op::glListBase)
            base = load<GLuint>(at + opcodeBytes);
        else if (!expanded && (op == Op::glCallList || op == Op::glCallLists))
            for (const GLuint name : namesCalled(op, at, base))
                expanded |= isExpanded(lists, name, base, depth + 1);
    });
    return expanded;
}

// What calls come to: parts of lists that are kept, and, without any, calls of others.
struct Part {
    Records of;
    const char* at = nullptr;
    std::int64_t bytes = 0;
    GLuint list = 0;
};
using Parts = std::vector<Part>;

// Adds one call of a list, in whichever way; the base is that of the moment.
void addCall(Parts& parts, const KeptLists& lists, GLuint list, GLuint& base, int depth = 0)
{
    if (!isExpanded(lists, list, base, depth)) {
        parts.push_back({.of = {}, .list = list});
        return;
    }
    if (depth >= mostDepth)
        return;
    const Records& records = lists.at(list).records;
    const char* from = reinterpret_cast<const char*>(records->data()); // not added yet
    const char* const end = from + records->size();
    eachRecord(*records, [&](int opcode, const char* at, std::int64_t bytes) {
        const Op op{static_cast<std::uint16_t>(opcode)};
        if (op == Op::glListBase)
            base = load<GLuint>(at + opcodeBytes);
        if (op != Op::glCallList && op != Op::glCallLists)
            return;
        parts.push_back({records, from, at - from});
        from = at + bytes;
        for (const GLuint name : namesCalled(op, at, base))
            addCall(parts, lists, name, base, depth + 1);
    });
    parts.push_back({records, from, end - from});
}

// Records them, without the lock, for the wall may have to be waited for.
void recordParts(const Parts& parts)
{
    for (const Part& part : parts) {
        Tape& tape = *currentTape;
        if (!part.of)
            record<Op::glCallList, Effect::draws>(part.list);
        else if (part.bytes > 0 && hasRoom<Effect::draws>(tape, part.bytes)) {
            std::memcpy(tape.at, part.at, static_cast<std::size_t>(part.bytes));
            tape.at += part.bytes;
        }
        if (part.of)
            currentContext().client.knownOnWall = 0;
    }
}

thread_local struct {
    GLuint list;
    GLenum mode;
    bool projection;
} compiled;

} // namespace

void recordList(GLuint list, const std::vector<unsigned char>& records)
{
    constexpr Effect defines = Effect::defines;
    const std::int64_t opening = recordBytes<Op::glNewList>(list, GLenum{GL_COMPILE});
    const auto bytes = static_cast<std::int64_t>(records.size());
    Tape& tape = *currentTape;
    if (!hasRoom<defines>(tape, opening + bytes + recordBytes<Op::glEndList>()))
        return;
    record<Op::glNewList, defines>(list, GLenum{GL_COMPILE});
    if (bytes > 0)
        std::memcpy(tape.at, records.data(), records.size());
    tape.at += bytes;
    record<Op::glEndList, defines>();
}

void beginList(GLuint list, GLenum mode)
{
    noteListNames(list, 1);
    compiled = {list, mode, stateOf(GL_MATRIX_MODE, GL_MODELVIEW) == GL_PROJECTION};
    beginListTape(list, mode);
    currentContext().client.knownOnWall = 0;
}

void endList()
{
    const bool executes = compiled.mode == GL_COMPILE_AND_EXECUTE;
    std::vector<unsigned char> records;
    const bool whole = endListTape(records);
    if (!whole) { // it became too large to be looked at: its beginning is on its way
        record<Op::glEndList, Effect::defines>();
        return;
    }
    currentContext().client.knownOnWall = 0;
    const Contents contents = contentsOf(records, compiled.projection);
    if (contents.placed)
        tell(Reason::placedList);
    else
        recordList(compiled.list, records);
    Parts parts;
    const bool calls = executes && isRecorded<Effect::draws>();
    GLuint base = calls ? listBase() : 0;
    {
        const std::lock_guard lock(listsLock);
        KeptLists& lists = keptLists();
        if (contents.placed || contents.calls)
            lists[compiled.list] = {
                std::make_shared<const std::vector<unsigned char>>(std::move(records)),
                contents.placed, contents.bitmapsOnly};
        else
            lists.erase(compiled.list);
        if (calls)
            addCall(parts, lists, compiled.list, base);
    }
    recordParts(parts);
}

namespace {

// Records calls of lists some of which are to be sent in their parts. False when none is.
bool recordKept(const std::vector<GLuint>& called, GLuint base)
{
    Parts parts;
    bool glyphs = true;
    {
        const std::lock_guard lock(listsLock);
        const KeptLists& lists = keptLists();
        if (std::ranges::none_of(called,
                                 [&](GLuint name) { return isExpanded(lists, name, base); }))
            return false;
        for (const GLuint name : called) {
            const auto found = lists.find(name);
            glyphs &= found == lists.end() || found->second.bitmapsOnly;
            addCall(parts, lists, name, base);
        }
    }
    if (glyphs)
        atRasterPosition(true, [&] { recordParts(parts); });
    else
        recordParts(parts);
    return true;
}

bool areKept()
{
    const std::lock_guard lock(listsLock);
    return !keptLists().empty();
}

bool isKept(GLuint list)
{
    const std::lock_guard lock(listsLock);
    return keptLists().contains(list);
}

} // namespace

void recordCallList(GLuint list)
{
    noteListNames(list, 1);
    if (!isRecorded<Effect::draws>())
        return;
    if (currentContext().inList || !isKept(list) || !recordKept({list}, listBase()))
        record<Op::glCallList, Effect::draws>(list);
}

void recordCallLists(GLsizei n, GLenum type, const void* lists)
{
    if (n <= 0 || !lists || !isRecorded<Effect::draws>())
        return;
    constexpr int near = 2; // bytes of names: then the base says whether they can be of kept draws
    if (listNameBytes(1, type) > near && !currentContext().inList && hasKeptDraws())
        for (const GLuint name : namesOf(listBase(), n, type, lists))
            noteListNames(name, 1);
    if (!currentContext().inList && areKept()) {
        const GLuint base = listBase();
        if (recordKept(namesOf(base, n, type, lists), base))
            return;
    }
    record<Op::glCallLists, Effect::draws>(n, type,
                                           Block{lists, static_cast<int>(listNameBytes(n, type))});
}

void recordDeleteLists(GLuint list, GLsizei range)
{
    record<Op::glDeleteLists, Effect::defines>(list, range);
    noteListNames(list, range);
    if (range <= 0 || !hasContext())
        return;
    const std::lock_guard lock(listsLock);
    std::erase_if(keptLists(), [=](const auto& kept) {
        return kept.first >= list && kept.first - list < static_cast<GLuint>(range);
    });
}

void keepList(GLuint list, std::vector<unsigned char> records)
{
    noteListNames(list, 1);
    const std::lock_guard lock(listsLock);
    keptLists()[list] = {std::make_shared<const std::vector<unsigned char>>(std::move(records)),
                         true, true};
}

#include "capture/lists.h"
#include "capture/contexts.h"
#include "capture/native.h"
#include "capture/raster.h"
#include "capture/rows.h"
#include "wire/sizes.h"

#include <mutex>

namespace {

// Held while lists are looked at; makeRoom's lock may be taken meanwhile, never the other way
// round.
std::mutex listsLock;

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
    eachRecord(found->second.records, [&](int opcode, const char* at, std::int64_t) {
        const Op op{static_cast<std::uint16_t>(opcode)};
        if (op == Op::glListBase)
            base = load<GLuint>(at + opcodeBytes);
        else if (!expanded && (op == Op::glCallList || op == Op::glCallLists))
            for (const GLuint name : namesCalled(op, at, base))
                expanded |= isExpanded(lists, name, base, depth + 1);
    });
    return expanded;
}

void recordBytes(const char* at, std::int64_t bytes)
{
    Tape& tape = *currentTape;
    if (bytes == 0 || !hasRoom<Effect::draws>(tape, bytes))
        return;
    std::memcpy(tape.at, at, static_cast<std::size_t>(bytes));
    tape.at += bytes;
}

// One call of a list, in whichever way; the base is that of the moment.
void call(const KeptLists& lists, GLuint list, GLuint& base, int depth)
{
    if (!isExpanded(lists, list, base, depth)) {
        record<Op::glCallList, Effect::draws>(list);
        return;
    }
    if (depth >= mostDepth)
        return;
    currentContext().client.knownOnWall = 0;
    const std::vector<unsigned char>& records = lists.at(list).records;
    const char* from = reinterpret_cast<const char*>(records.data()); // not recorded yet
    eachRecord(records, [&](int opcode, const char* at, std::int64_t bytes) {
        const Op op{static_cast<std::uint16_t>(opcode)};
        if (op == Op::glListBase)
            base = load<GLuint>(at + opcodeBytes);
        if (op != Op::glCallList && op != Op::glCallLists)
            return;
        recordBytes(from, at - from);
        from = at + bytes;
        for (const GLuint name : namesCalled(op, at, base))
            call(lists, name, base, depth + 1);
    });
    recordBytes(from, reinterpret_cast<const char*>(records.data()) + records.size() - from);
}

thread_local struct {
    GLuint list;
    GLenum mode;
    bool projection;
} compiled;

} // namespace

void beginList(GLuint list, GLenum mode)
{
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
    const std::lock_guard lock(listsLock);
    KeptLists& lists = keptLists();
    const Contents contents = contentsOf(records, compiled.projection);
    Tape& tape = *currentTape;
    if (!contents.placed) {
        const auto size = static_cast<std::int64_t>(records.size());
        record<Op::glNewList, Effect::defines>(compiled.list, GLenum{GL_COMPILE});
        if (size > 0 && hasRoom<Effect::defines>(tape, size)) {
            std::memcpy(tape.at, records.data(), records.size());
            tape.at += size;
        }
        record<Op::glEndList, Effect::defines>();
    }
    if (contents.placed || contents.calls)
        lists[compiled.list] = {std::move(records), contents.placed, contents.bitmapsOnly};
    else
        lists.erase(compiled.list);
    if (executes && isRecorded<Effect::draws>()) {
        GLuint base = listBase();
        call(lists, compiled.list, base, 0);
    }
}

void recordCallList(GLuint list)
{
    if (!isRecorded<Effect::draws>())
        return;
    if (currentContext().inList)
        return record<Op::glCallList, Effect::draws>(list);
    const std::lock_guard lock(listsLock);
    const KeptLists& lists = keptLists();
    if (!lists.contains(list))
        return record<Op::glCallList, Effect::draws>(list);
    GLuint base = listBase();
    const auto callIt = [&] { call(lists, list, base, 0); };
    if (lists.at(list).bitmapsOnly)
        atRasterPosition(true, callIt);
    else
        callIt();
}

void recordCallLists(GLsizei n, GLenum type, const void* lists)
{
    if (n <= 0 || !lists || !isRecorded<Effect::draws>())
        return;
    const Block names{lists, static_cast<int>(listNameBytes(n, type))};
    if (currentContext().inList)
        return record<Op::glCallLists, Effect::draws>(n, type, names);
    const std::lock_guard lock(listsLock);
    const KeptLists& kept = keptLists();
    if (kept.empty())
        return record<Op::glCallLists, Effect::draws>(n, type, names);
    GLuint base = listBase();
    const std::vector<GLuint> called = namesOf(base, n, type, lists);
    const bool any = std::any_of(called.begin(), called.end(), [&](GLuint name) {
        return kept.contains(name) && isExpanded(kept, name, base);
    });
    if (!any)
        return record<Op::glCallLists, Effect::draws>(n, type, names);
    const auto callAll = [&] {
        for (const GLuint name : called)
            call(kept, name, base, 0);
    };
    const bool glyphs = std::all_of(called.begin(), called.end(), [&kept](GLuint name) {
        const auto found = kept.find(name);
        return found == kept.end() || found->second.bitmapsOnly;
    });
    if (glyphs)
        atRasterPosition(true, callAll);
    else
        callAll();
}

void recordDeleteLists(GLuint list, GLsizei range)
{
    record<Op::glDeleteLists, Effect::defines>(list, range);
    if (range <= 0 || !hasContext())
        return;
    const std::lock_guard lock(listsLock);
    std::erase_if(keptLists(), [=](const auto& kept) {
        return kept.first >= list && kept.first - list < static_cast<GLuint>(range);
    });
}

void keepList(GLuint list, std::vector<unsigned char> records)
{
    const std::lock_guard lock(listsLock);
    keptLists()[list] = {std::move(records), true, true};
}

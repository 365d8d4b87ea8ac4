#include "capture/keptDraws.h"
#include "capture/contexts.h"
#include "capture/lists.h"
#include "capture/locks.h"
#include "capture/native.h"
#include "capture/shareGroup.h"
#include "capture/stream.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

namespace {

constexpr std::size_t mostSeen = 1 << 14; // draws that are not kept

// The bytes of vertices, as servers have them, that the lists of a share group may have, and one.
std::size_t mostBytes() { return static_cast<std::size_t>(std::max(captureOptions.keep, 0)) << 20; }
constexpr std::size_t mostBytesOfDraw = 16 << 20;

const ClientVertexState& client() { return currentContext().client.now; }
KeptDraws& keptDraws() { return currentContext().group->keptDraws; }

// ---- Current values ----------------------------------------------------------------------------

// A draw from arrays leaves the current values alone, a list has those of its last vertex behind
// it. So each list sets those that the program had when it was made, and is of a draw with these.

using Values = std::array<GLfloat, 4>;

Values asked(GLenum name)
{
    Values values{};
    callNative<Op::glGetFloatv>(name, values.data());
    return values;
}

Values currentTexCoord(int unit)
{
    const auto active = static_cast<GLenum>(stateOf(GL_ACTIVE_TEXTURE, GL_TEXTURE0));
    const GLenum wanted = GL_TEXTURE0 + static_cast<GLenum>(unit);
    if (active == wanted)
        return asked(GL_CURRENT_TEXTURE_COORDS);
    callNative<Op::glActiveTexture>(wanted);
    const Values values = asked(GL_CURRENT_TEXTURE_COORDS);
    callNative<Op::glActiveTexture>(active);
    return values;
}

Values currentAttribute(GLuint index)
{
    using GetAttribute = decltype(::glGetVertexAttribfv);
    static auto* const getAttribute =
        reinterpret_cast<GetAttribute*>(nativeByName("glGetVertexAttribfv"));
    Values values{};
    if (getAttribute)
        getAttribute(index, GL_CURRENT_VERTEX_ATTRIB, values.data());
    return values;
}

Values currentOf(int kind)
{
    switch (kind) {
    case normalArray:
        return asked(GL_CURRENT_NORMAL);
    case colorArray:
        return asked(GL_CURRENT_COLOR);
    case indexArray:
        return asked(GL_CURRENT_INDEX);
    case edgeFlagArray:
        return asked(GL_EDGE_FLAG);
    case fogCoordArray:
        return asked(GL_CURRENT_FOG_COORD);
    case secondaryColorArray:
        return asked(GL_CURRENT_SECONDARY_COLOR);
    default:
        return kind < attributeArray ? currentTexCoord(kind - texCoordArray)
                                     : currentAttribute(static_cast<GLuint>(kind - attributeArray));
    }
}

void recordCurrent(int kind, const Values& v)
{
    constexpr Effect draws = Effect::draws;
    if (kind >= attributeArray)
        return record<Op::glVertexAttrib4fARB, draws>(static_cast<GLuint>(kind - attributeArray),
                                                      v[0], v[1], v[2], v[3]);
    switch (kind) {
    case normalArray:
        return record<Op::glNormal3f, draws>(v[0], v[1], v[2]);
    case colorArray:
        return record<Op::glColor4f, draws>(v[0], v[1], v[2], v[3]);
    case indexArray:
        return record<Op::glIndexf, draws>(v[0]);
    case edgeFlagArray:
        return record<Op::glEdgeFlag, draws>(GLboolean{v[0] != 0});
    case fogCoordArray:
        return record<Op::glFogCoordf, draws>(v[0]);
    case secondaryColorArray:
        return record<Op::glSecondaryColor3f, draws>(v[0], v[1], v[2]);
    case texCoordArray:
        return record<Op::glTexCoord4f, draws>(v[0], v[1], v[2], v[3]);
    default:
        return record<Op::glMultiTexCoord4f, draws>(
            GL_TEXTURE0 + static_cast<GLenum>(kind - texCoordArray), v[0], v[1], v[2], v[3]);
    }
}

// Positions have no current value.
bool hasCurrent(int kind) { return kind != vertexArray && kind != attributeArray; }

// ---- Keys --------------------------------------------------------------------------------------

// Whether a list of these elements draws the very same. Signed integers become floats by one
// formula in arrays and by another in calls; bytes do not where they are multiplied further.
bool drawsTheSame(const ClientArrayState& array, int kind)
{
    const bool scaled = kind == normalArray || kind == colorArray || kind == secondaryColorArray ||
                        array.normalized;
    if (!scaled || array.type == GL_FLOAT || array.type == GL_DOUBLE ||
        array.type == GL_UNSIGNED_SHORT)
        return true;
    return array.type == GL_UNSIGNED_BYTE && kind < attributeArray &&
           callNative<Op::glIsEnabled>(GLenum{GL_LIGHTING}) == 0 &&
           currentContext().used.program == 0;
}

bool isSteady(const BufferPointer& buffer)
{
    return buffer && buffer->name != 0 && !buffer->mapped && !buffer->alwaysChanging;
}

std::uint64_t pair(std::uint64_t high, std::uint64_t low)
{
    return high << 32 | (low & 0xffffffff);
}

// The key of a draw; empty when it cannot be kept. Stays until the thread's next.
std::span<const std::uint64_t> keyOf(const DrawCall& call)
{
    thread_local DrawKey key;
    key.clear();
    // Of quads in a row and in a list libraries choose different diagonals.
    if (call.mode > GL_POLYGON || (call.mode == GL_QUADS && call.indexType == 0))
        return {};
    const auto address = [](const void* at) { return reinterpret_cast<std::uintptr_t>(at); };
    key.push_back(pair(call.mode, static_cast<std::uint32_t>(call.count)));
    key.push_back(pair(call.indexType, static_cast<std::uint32_t>(call.first)));
    if (call.indexType != 0) {
        const BufferPointer& buffer = client().elementBuffer;
        if (!isSteady(buffer))
            return {};
        key.push_back(buffer->version);
        key.push_back(address(call.indices));
    }
    bool can = true;
    eachEnabled(client(), [&](const ClientArrayState& array, int kind) {
        can = can && isSteady(array.buffer) && drawsTheSame(array, kind);
        if (!can)
            return;
        const unsigned flags = unsigned{array.normalized} | unsigned{array.bgra} << 1;
        key.push_back(
            pair(static_cast<unsigned>(kind) << 8 | static_cast<unsigned>(array.size) << 4 | flags,
                 array.type));
        key.push_back(pair(0, static_cast<std::uint32_t>(array.stride)));
        key.push_back(array.buffer->version);
        key.push_back(address(array.pointer));
        if (!hasCurrent(kind))
            return;
        const auto values = std::bit_cast<std::array<std::uint64_t, 2>>(currentOf(kind));
        key.insert(key.end(), values.begin(), values.end());
    });
    if (!can)
        return {};
    return key;
}

std::size_t bytesAtServers(const DrawCall& call)
{
    std::size_t floats = 0;
    eachEnabled(client(), [&](const ClientArrayState& array, int) {
        floats += static_cast<std::size_t>(array.size);
    });
    return sizeof(float) * floats * static_cast<std::size_t>(call.count);
}

// ---- The table, under its lock -----------------------------------------------------------------

// Lets go what has not been drawn for two frames, the oldest first, until there is room.
bool makeRoom(KeptDraws& kept, std::size_t bytes, std::vector<GLuint>& dropped)
{
    const auto fits = [&] {
        return kept.bytes + bytes <= mostBytes() &&
               (!kept.freeLists.empty() || kept.lists < mostKeptDraws);
    };
    if (fits())
        return true;
    std::vector<KeptDraw*> old;
    for (auto& [key, draw] : kept.draws)
        if (draw.list != 0 && draw.lastUsed + 1 < kept.frame)
            old.push_back(&draw);
    std::ranges::sort(old, {}, &KeptDraw::lastUsed);
    for (KeptDraw* const draw : old) {
        if (fits())
            break;
        dropped.push_back(draw->list);
        kept.freeLists.push_back(std::exchange(draw->list, 0));
        kept.bytes -= std::exchange(draw->bytes, 0);
    }
    return fits();
}

// Takes a name for a draw that has come again; 0 where it is not to be kept.
GLuint nameFor(KeptDraws& kept, KeptDraw& draw, std::size_t bytes, std::vector<GLuint>& dropped)
{
    if (bytes > mostBytesOfDraw || kept.fullIn == kept.frame)
        return 0;
    if (!makeRoom(kept, bytes, dropped)) {
        kept.fullIn = kept.frame;
        return 0;
    }
    if (kept.freeLists.empty())
        draw.list = firstKeptDraw + kept.lists++;
    else {
        draw.list = kept.freeLists.back();
        kept.freeLists.pop_back();
    }
    draw.bytes = bytes;
    draw.sources.clear(); // it may have been kept before
    kept.bytes += bytes;
    eachEnabled(client(), [&draw](const ClientArrayState& array, int) {
        draw.sources.push_back({array.buffer, array.buffer->version});
        array.buffer->isKept = true;
    });
    return draw.list;
}

bool isStale(const KeptDraw& draw)
{
    return std::ranges::any_of(draw.sources, [](const KeptDraw::Source& source) {
        const auto buffer = source.buffer.lock();
        return !buffer || buffer->version != source.version;
    });
}

// What became of a draw that has come.
struct Found {
    GLuint list = 0;
    bool isNew = false; // the list is to be made
    std::vector<GLuint> dropped{};
};

Found find(const DrawCall& call, std::span<const std::uint64_t> key)
{
    KeptDraws& kept = keptDraws();
    const std::lock_guard lock(keptDrawsLock);
    if (kept.off)
        return {};
    const auto found = kept.draws.find(key);
    if (found == kept.draws.end()) {
        kept.draws.emplace(DrawKey(key.begin(), key.end()), KeptDraw{.lastUsed = kept.frame});
        return {};
    }
    KeptDraw& draw = found->second;
    draw.lastUsed = kept.frame;
    if (draw.list != 0) {
        ++kept.calls;
        kept.notSent += draw.streamBytes;
        return {.list = draw.list};
    }
    Found made{.isNew = true};
    made.list = nameFor(kept, draw, bytesAtServers(call), made.dropped);
    if (made.list != 0 && call.indexType != 0) {
        draw.sources.push_back({client().elementBuffer, client().elementBuffer->version});
        client().elementBuffer->isKept = true;
    }
    return made;
}

void noteSize(std::span<const std::uint64_t> key, std::size_t streamBytes)
{
    const std::lock_guard lock(keptDrawsLock);
    const auto found = keptDraws().draws.find(key);
    if (found != keptDraws().draws.end())
        found->second.streamBytes = streamBytes;
}

void recordDeletes(const std::vector<GLuint>& lists)
{
    for (const GLuint list : lists)
        record<Op::glDeleteLists, Effect::defines>(list, 1);
}

} // namespace

std::size_t DrawKeyHash::operator()(std::span<const std::uint64_t> key) const
{
    std::uint64_t hash = key.size();
    for (const std::uint64_t word : key) {
        hash = (hash ^ word) * 0x9e3779b97f4a7c15;
        hash ^= hash >> 32;
    }
    return hash;
}

bool DrawKeyEqual::operator()(std::span<const std::uint64_t> a,
                              std::span<const std::uint64_t> b) const
{
    return std::ranges::equal(a, b);
}

void recordCurrentValues()
{
    eachEnabled(client(), [](const ClientArrayState&, int kind) {
        if (hasCurrent(kind))
            recordCurrent(kind, currentOf(kind));
    });
}

void recordKeptDraw(const DrawCall& call, bool asCalls, void (*plain)(const DrawCall&))
{
    Context& c = currentContext();
    const std::span<const std::uint64_t> key =
        c.drawsOnWall && !c.inList ? keyOf(call) : std::span<const std::uint64_t>{};
    const Found found = key.empty() ? Found{} : find(call, key);
    recordDeletes(found.dropped);
    if (found.list == 0) {
        plain(call);
        if (asCalls && !c.inList)
            recordCurrentValues();
        return;
    }
    if (found.isNew) {
        c.used.keptDraws = std::max(c.used.keptDraws, found.list - firstKeptDraw + 1);
        beginListTape(found.list, GL_COMPILE);
        plain(call);
        recordCurrentValues();
        std::vector<unsigned char> records;
        if (endListTape(records)) {
            recordList(found.list, records);
            noteSize(key, records.size());
        } else
            record<Op::glEndList, Effect::defines>();
    }
    record<Op::glCallList, Effect::draws>(found.list);
}

void endFrameOfKeptDraws()
{
    std::vector<GLuint> dropped;
    {
        KeptDraws& kept = keptDraws();
        const std::lock_guard lock(keptDrawsLock);
        const std::uint64_t changes = kept.changes;
        const bool changed = std::exchange(kept.changesSeen, changes) != changes;
        const bool many = kept.draws.size() > mostSeen + kept.lists;
        if (changed || many)
            std::erase_if(kept.draws, [&](const auto& one) {
                const KeptDraw& draw = one.second;
                if (draw.list == 0)
                    return draw.lastUsed + 1 < kept.frame;
                if (!isStale(draw))
                    return false;
                dropped.push_back(draw.list);
                kept.freeLists.push_back(draw.list);
                kept.bytes -= draw.bytes;
                return true;
            });
        ++kept.frame;
        note(Figure::listCalls, std::exchange(kept.calls, 0));
        note(Figure::kept, std::exchange(kept.notSent, 0));
    }
    recordDeletes(dropped);
}

bool hasKeptDraws()
{
    if (!hasContext())
        return false;
    KeptDraws& kept = keptDraws();
    const std::lock_guard lock(keptDrawsLock);
    return kept.lists > 0;
}

void endKeepingDraws(KeptDraws& kept)
{
    const std::lock_guard lock(keptDrawsLock);
    kept.off = true;
    kept.draws.clear();
}

void noteListNames(GLuint list, GLsizei range)
{
    if (range <= 0 || !hasContext())
        return;
    const std::uint64_t end = std::uint64_t{list} + static_cast<GLuint>(range);
    if (end <= firstKeptDraw || list >= firstKeptDraw + mostKeptDraws)
        return;
    GLuint lists = 0;
    {
        KeptDraws& kept = keptDraws();
        const std::lock_guard lock(keptDrawsLock);
        kept.off = true;
        kept.draws.clear();
        lists = std::exchange(kept.lists, 0);
    }
    if (lists > 0)
        record<Op::glDeleteLists, Effect::defines>(GLuint{firstKeptDraw},
                                                   static_cast<GLsizei>(lists));
}

#include "capture/passOn.h"
#include "capture/reasons.h"
#include "capture/rows.h"
#include "capture/stream.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

unsigned long shownWindow;

using Bytes = std::span<const unsigned char>;

namespace {

constexpr std::size_t mostPending = 64 << 20;
constexpr std::size_t mostUndecided = 16 << 20; // while draws are kept back, too
constexpr std::size_t mostListRoom = 8 << 20;   // that a list is kept whole for

} // namespace

bool showsAll() { return captureOptions.window && !std::strcmp(captureOptions.window, "all"); }

const char* displayNameOf(const Context& c) { return c.dpy ? DisplayString(c.dpy) : nullptr; }

bool isShown(const Context& c)
{
    return c.window && c.group->onWall && c.group->window == c.window &&
           (c.window == shownWindow || showsAll());
}

AppContext contextHandle(const ShareGroup& group) { return AppContext(group.handle); }
AppVisual visualHandle(const ShareGroup& group) { return AppVisual(group.visual); }

ProgramWindow programWindow(const ShareGroup& group)
{
    const bool asPicture = group.main && group.main->asPicture;
    const Placement area = shownPlaceOf(group.size, asPicture).area;
    return {wallDisplay,          visualHandle(group), AppDrawable(group.wallWindow),
            contextHandle(group), area.width,          area.height};
}

void sendMakeCurrent(const ShareGroup& group)
{
    CommandBuffer out;
    encode<Op::glXMakeCurrent>(out, makeCurrentBlock(programWindow(group)));
    const Bytes pieces[] = {out};
    sendBuffer(pieces, false);
    wallCurrent = {&group, group.wallWindow};
}

namespace {

// What has to stand around a context's records.
struct Enclosure {
    CommandBuffer before, after;
};

Enclosure enclosureOf(const ShareGroup& group, bool ofMain)
{
    Enclosure around;
    auto& [before, after] = around;
    if (wallCurrent.group != &group || wallCurrent.window != group.wallWindow) {
        encode<Op::glXMakeCurrent>(before, makeCurrentBlock(programWindow(group)));
        wallCurrent = {&group, group.wallWindow};
    }
    if (!ofMain) {
        encode<Op::glPushAttrib>(before, GLbitfield{GL_ALL_ATTRIB_BITS});
        encode<Op::glPopAttrib>(after);
    }
    return around;
}

} // namespace

void sendRecords(const ShareGroup& group, bool ofMain, Bytes records, bool endsFrame)
{
    const Enclosure around = enclosureOf(group, ofMain);
    const Bytes pieces[] = {around.before, records, around.after};
    sendBuffer(pieces, endsFrame);
}

bool isUndecided(const Context& c)
{
    constexpr int few = 3;
    return !c.group->onWall && c.group->main == &c && c.window && c.hiddenFrames < few &&
           !c.asPicture;
}

void dropDraws(ShareGroup& group, const Context& c)
{
    bool inList = false;
    for (ShareGroup::Piece& piece : group.pending) {
        if (piece.of != &c || !piece.draws)
            continue;
        std::vector<unsigned char> kept;
        eachRecord(piece.records, [&](int opcode, const char* at, std::int64_t bytes) {
            const Op op{static_cast<std::uint16_t>(opcode)};
            inList |= op == Op::glNewList;
            if (inList || rowOf(op).effect != Effect::draws)
                kept.insert(kept.end(), at, at + bytes);
            inList &= op != Op::glEndList;
        });
        group.pendingBytes -= piece.records.size() - kept.size();
        piece = {&c, false, std::move(kept)};
    }
}

namespace {

void keepBack(Context& c, Bytes records)
{
    ShareGroup& group = *c.group;
    if (group.lost || records.empty())
        return;
    group.pendingBytes += records.size();
    if (group.pendingBytes > mostUndecided && isUndecided(c)) { // rather state than a frame
        tell(Reason::drawsDropped);
        c.hiddenFrames = INT_MAX;
        dropDraws(group, c);
    }
    if (group.pendingBytes > mostPending) {
        group.lost = true;
        group.pending.clear();
        tell(Reason::tooMuchState);
        return;
    }
    tell(Reason::keptBack);
    group.pending.push_back({&c, isUndecided(c), {records.begin(), records.end()}});
}

} // namespace

void setEnds(Context& c)
{
    Tape& tape = c.tape;
    unsigned char* const limit = tape.begin + tape.room;
    const ShareGroup& group = *c.group;
    tape.definesEnd = tape.stateEnd = tape.drawsEnd = nullptr;
    c.drawsOnWall = false;
    if (!capturing || (!group.onWall && group.lost) || (c.asPicture && !c.drawsPicture))
        return;
    tape.definesEnd = limit;
    if (c.inList || !group.onWall || group.main == &c)
        tape.stateEnd = limit;
    if (c.inList ||
        ((isShown(c) || isUndecided(c)) && group.main == &c && c.renderMode == GL_RENDER))
        tape.drawsEnd = limit;
    c.drawsOnWall = tape.drawsEnd && group.onWall && group.main == &c && !c.asPicture;
}

void passOnTape(Context& c, bool endsFrame)
{
    Tape& tape = c.tape;
    const Bytes records(tape.begin, static_cast<std::size_t>(tape.at - tape.begin));
    tape.at = tape.begin;
    if (c.group->members > 1) // the others' tapes change what the wall has enabled, too
        c.client.knownOnWall = 0;
    if (c.ownTape.begin) {
        const std::span<unsigned char> room(tape.begin, tape.room);
        tape = std::exchange(c.ownTape, {});
        setEnds(c);
        const Enclosure around =
            records.empty() ? Enclosure{} : enclosureOf(*c.group, c.group->main == &c);
        const Bytes before[] = {around.before}, after[] = {around.after};
        sendBuffer(before, false);
        sendReserved(room, records.size(), endsFrame);
        sendBuffer(after, false);
        return;
    }
    if (!capturing || (records.empty() && !endsFrame))
        return;
    if (c.group->onWall)
        sendRecords(*c.group, c.group->main == &c, records, endsFrame);
    else
        keepBack(c, records);
}

void resizeTape(Tape& tape, std::size_t room)
{
    std::free(tape.begin);
    tape.begin = tape.at = static_cast<unsigned char*>(std::malloc(room));
    tape.room = tape.begin ? room : 0;
}

void freeTape(Context& c)
{
    if (c.ownTape.begin)
        giveRoomBack({c.tape.begin, c.tape.room});
    std::free(c.ownTape.begin ? c.ownTape.begin : c.tape.begin);
    c.tape = c.ownTape = {};
}

bool reserveTape(Context& c, std::size_t bytes)
{
    if (c.ownTape.begin || !c.group->onWall || c.group->main != &c || c.inList)
        return false;
    const std::span<unsigned char> room = reserveRoom(std::max(bytes, tapeRoom));
    if (room.empty())
        return false;
    c.ownTape = c.tape;
    c.tape.begin = c.tape.at = room.data();
    c.tape.room = room.size();
    setEnds(c);
    return true;
}

bool growListTape(Context& c, std::size_t more)
{
    Tape& tape = c.tape;
    const auto used = static_cast<std::size_t>(tape.at - tape.begin);
    const std::size_t room = std::max(2 * tape.room, used + more);
    if (room > mostListRoom) {
        tell(Reason::largeList);
        c.listPassedOn = true;
        std::vector<unsigned char> records(tape.begin, tape.at);
        tape.at = tape.begin;
        CommandBuffer opening;
        encode<Op::glNewList>(opening, c.list, GLenum{GL_COMPILE});
        records.insert(records.begin(), opening.begin(), opening.end());
        if (c.group->onWall)
            sendRecords(*c.group, c.group->main == &c, records, false);
        else
            keepBack(c, records);
        return false;
    }
    auto* begin = static_cast<unsigned char*>(std::realloc(tape.begin, room));
    if (!begin)
        return false;
    tape.begin = begin;
    tape.at = begin + used;
    tape.room = room;
    setEnds(c);
    return true;
}

#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/stream.h"
#include "capture/windows.h"
#include "client/programWindow.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <unistd.h>

using Clock = std::chrono::steady_clock;

static constinit Tape idleTape;
constinit thread_local Tape* currentTape = &idleTape;

/// Contexts that share their lists, textures and programs: one context of the servers'.
struct ShareGroup {
    std::uint32_t handle; // of the context and its visual on the wall
    int members = 0;
    Context* main = nullptr; // the one whose state the wall has
    bool onWall = false;
    unsigned long window = 0; // in which the wall has the context current
    WindowSize size{};

    // What was called before the wall has the context.
    struct Piece {
        const Context* of; // perhaps gone
        std::vector<unsigned char> records;
    };
    std::vector<Piece> pending;
    std::size_t pendingBytes = 0;
    bool lost = false; // it became too much

    std::map<GLuint, BufferObject> buffers;
    KeptLists lists;
};

namespace {

constexpr std::size_t tapeRoom = 256 << 10;
constexpr std::size_t sharedTapeRoom = 1 << 20;
constexpr std::size_t mostTapeRoom = 8 << 20; // that is kept once a record needed it
constexpr std::size_t mostPending = 64 << 20;
constexpr std::size_t mostListRoom = 8 << 20; // that a list is kept whole for
constexpr std::uint32_t mostOnWall = 62;      // contexts that a server can have in its life
constexpr AppDisplay wallDisplay(1U);

thread_local Context* current;

std::mutex streamLock; // guards all below, and what stream.h and windows.h have
// Never destroyed, as all that this library keeps: threads may draw while the process exits.
auto& contexts = *new std::map<NativeContext, std::unique_ptr<Context>>;
auto& retired = *new std::vector<std::unique_ptr<Context>>; // destroyed, but current in some thread
std::uint32_t handles;
unsigned long shownWindow;

// What is current on the wall.
struct {
    const ShareGroup* group = nullptr;
    unsigned long window = 0;
} wall;

bool showsAll() { return captureOptions.window && !std::strcmp(captureOptions.window, "all"); }

const char* displayNameOf(const Context& c) { return c.dpy ? DisplayString(c.dpy) : nullptr; }

bool isShown(const Context& c)
{
    return c.window && c.group->onWall && c.group->window == c.window &&
           (c.window == shownWindow || showsAll());
}

AppContext contextHandle(const ShareGroup& group) { return AppContext(group.handle); }
AppVisual visualHandle(const ShareGroup& group) { return AppVisual(group.handle); }

// ---- Passing on --------------------------------------------------------------------------------

using Bytes = std::span<const unsigned char>;

ProgramWindow programWindow(const ShareGroup& group)
{
    const Placement area = placementOf(group.size);
    return {wallDisplay,          visualHandle(group), AppDrawable(group.window),
            contextHandle(group), area.width,          area.height};
}

void sendMakeCurrent(const ShareGroup& group)
{
    CommandBuffer out;
    encode<Op::glXMakeCurrent>(out, makeCurrentBlock(programWindow(group)));
    const Bytes pieces[] = {out};
    sendBuffer(pieces, false);
    wall = {&group, group.window};
}

// Sends records of one of a group's contexts, which is on the wall. Another than the one whose
// state the wall has leaves that as it was.
void sendRecords(const ShareGroup& group, bool ofMain, Bytes records, bool endsFrame,
                 bool reserved = false)
{
    CommandBuffer before;
    if (wall.group != &group || wall.window != group.window) {
        encode<Op::glXMakeCurrent>(before, makeCurrentBlock(programWindow(group)));
        wall = {&group, group.window};
    }
    CommandBuffer after;
    if (!ofMain) {
        encode<Op::glPushAttrib>(before, GLbitfield{GL_ALL_ATTRIB_BITS});
        encode<Op::glPopAttrib>(after);
    }
    if (reserved) {
        const Bytes piece[] = {before};
        sendBuffer(piece, false);
        sendReserved(records, endsFrame);
        return;
    }
    const Bytes pieces[] = {before, records, after};
    sendBuffer(pieces, endsFrame);
}

void keepBack(Context& c, Bytes records)
{
    ShareGroup& group = *c.group;
    if (group.lost || records.empty())
        return;
    group.pendingBytes += records.size();
    if (group.pendingBytes > mostPending) {
        group.lost = true;
        group.pending.clear();
        std::fprintf(stderr,
                     "MOSA: capture: a context that is not shown has too much state to keep; "
                     "if it is shown later, something will be missing\n");
        return;
    }
    group.pending.push_back({&c, {records.begin(), records.end()}});
}

void setEnds(Context& c)
{
    Tape& tape = c.tape;
    unsigned char* const limit = tape.begin + tape.room;
    const ShareGroup& group = *c.group;
    tape.definesEnd = tape.stateEnd = tape.drawsEnd = nullptr;
    if (!capturing || (!group.onWall && group.lost) || (c.asPicture && !c.drawsPicture))
        return;
    tape.definesEnd = limit;
    if (c.inList || !group.onWall || group.main == &c)
        tape.stateEnd = limit;
    if (c.inList || (isShown(c) && group.main == &c && c.renderMode == GL_RENDER))
        tape.drawsEnd = limit;
}

// Passes on what is on the tape, and rewinds it.
void passOnTape(Context& c, bool endsFrame)
{
    Tape& tape = c.tape;
    const Bytes records(tape.begin, static_cast<std::size_t>(tape.at - tape.begin));
    tape.at = tape.begin;
    if (const bool reserved = c.ownTape.begin) {
        tape = std::exchange(c.ownTape, {});
        setEnds(c);
        sendRecords(*c.group, c.group->main == &c, records, endsFrame, reserved);
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

// A large record, and what follows until there is no more room, is written where the wall's process
// reads it.
bool reserveTape(Context& c, std::size_t bytes)
{
    if (!c.group->onWall || c.group->main != &c || c.inList)
        return false;
    const std::span<unsigned char> room = reserveRoom(std::max(bytes, sharedTapeRoom));
    if (room.empty())
        return false;
    c.ownTape = c.tape;
    c.tape.begin = c.tape.at = room.data();
    c.tape.room = room.size();
    setEnds(c);
    return true;
}

// A list stays in one piece until it is too large. Then what there is of it is passed on, behind a
// glNewList.
bool growListTape(Context& c, std::size_t more)
{
    Tape& tape = c.tape;
    const auto used = static_cast<std::size_t>(tape.at - tape.begin);
    const std::size_t room = std::max(2 * tape.room, used + more);
    if (room > mostListRoom) {
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

// ---- The window that is shown ------------------------------------------------------------------

// What the wall has to know of a window that is new to it, or has another size: the size, and what
// depends on it. In the thread of the context.
void describeWindow(Context& c)
{
    const Placement area = placementOf(c.group->size);
    if (c.asPicture) {
        const auto& [width, height] = c.group->size;
        const CaptureOptions& options = captureOptions;
        describePicture(c.picture, width, height,
                        options.wallWidth != area.width || options.wallHeight != area.height);
        recordViewport(0, 0, width, height);
        return;
    }
    GLint viewport[4] = {};
    callNative<Op::glGetIntegerv>(GL_VIEWPORT, viewport);
    recordViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
    if (area.dx > 0 || area.dy > 0)
        record<Op::glEnable, Effect::state>(GLenum{GL_SCISSOR_TEST});
    recordScissor();
}

// Black around the picture, where it has another shape than the wall. Each buffer needs it once.
void recordMargins(const Context& c)
{
    const Placement area = placementOf(c.group->size);
    if ((area.dx == 0 && area.dy == 0) || c.inList)
        return;
    constexpr Effect always = Effect::draws;
    record<Op::glPushAttrib, always>(GLbitfield{GL_COLOR_BUFFER_BIT | GL_SCISSOR_BIT});
    record<Op::glScissor, always>(0, 0, area.width, area.height);
    record<Op::glColorMask, always>(GLboolean{1}, GLboolean{1}, GLboolean{1}, GLboolean{1});
    record<Op::glClearColor, always>(0.0F, 0.0F, 0.0F, 0.0F);
    record<Op::glClear, always>(GLbitfield{GL_COLOR_BUFFER_BIT});
    record<Op::glPopAttrib, always>();
}

thread_local int framesWithMargins; // still to be drawn
constexpr int buffersOfAWindow = 3; // at most

void sendOpening(const Context& c)
{
    CommandBuffer out;
    encodeOpening(out, programWindow(*c.group), c.attributes);
    encode<Op::glPixelStorei>(out, GLenum{GL_UNPACK_ALIGNMENT}, 1);
    const Bytes pieces[] = {out};
    sendBuffer(pieces, false);
}

// Shows the current context's window on the wall.
void show(Context& c, const WindowState& state)
{
    ShareGroup& group = *c.group;
    if (!group.onWall && group.handle >= mostOnWall) {
        std::fprintf(stderr, "MOSA: capture: the wall carries no more than %u contexts\n",
                     mostOnWall);
        return;
    }
    passOnTape(c, false);
    const bool known = group.onWall && group.window == c.window;
    group.main = &c;
    group.window = shownWindow = c.window;
    group.size = {state.width, state.height};
    if (!group.onWall) {
        if (group.handle == 0)
            group.handle = ++handles;
        sendOpening(c);
        group.onWall = true;
        wall = {&group, group.window};
        for (const ShareGroup::Piece& piece : group.pending)
            sendRecords(group, piece.of == &c, piece.records, false);
        group.pending.clear();
        group.pending.shrink_to_fit();
    } else {
        sendMakeCurrent(group);
        if (known) {
            CommandBuffer out;
            encode<Op::MWRaiseWindow>(out, Window{c.window});
            const Bytes pieces[] = {out};
            sendBuffer(pieces, false);
        }
    }
    setEnds(c);
    describeWindow(c);
    framesWithMargins = buffersOfAWindow;
    recordMargins(c);
}

void resize(Context& c, const WindowState& state)
{
    passOnTape(c, false);
    c.group->size = {state.width, state.height};
    sendMakeCurrent(*c.group);
    describeWindow(c);
    framesWithMargins = buffersOfAWindow;
    recordMargins(c);
}

bool isWanted(const Context& c, const WindowState& state)
{
    const char* wanted = captureOptions.window;
    if (showsAll())
        return true;
    if (wanted && *wanted && std::strcmp(wanted, "largest") != 0)
        return windowTitle(displayNameOf(c), c.window).find(wanted) != std::string::npos;
    if (!shownWindow)
        return true;
    const WindowState& shown = windowState(displayNameOf(c), shownWindow, true);
    return !shown.viewable ||
           std::int64_t{state.width} * state.height > std::int64_t{shown.width} * shown.height;
}

void considerWindow(Context& c)
{
    if (!capturing || !c.window || c.inList)
        return;
    if (isShown(c)) {
        const WindowState& state = windowState(displayNameOf(c), c.window, false);
        if (state.exists &&
            (state.width != c.group->size.width || state.height != c.group->size.height))
            resize(c, state);
        return;
    }
    // A window around it may have been mapped, which nobody tells.
    static Clock::time_point asked;
    constexpr auto often = std::chrono::milliseconds(20);
    const bool anew = Clock::now() - asked > often;
    if (anew)
        asked = Clock::now();
    const WindowState state = windowState(displayNameOf(c), c.window, anew);
    if (state.viewable && state.width > 0 && state.height > 0 && isWanted(c, state))
        show(c, state);
}

// What is recorded between the two belongs to the picture of a context that is shown by pictures.
void beginPicture(Context& c)
{
    c.drawsPicture = c.asPicture;
    setEnds(c);
}

void endPicture(Context& c)
{
    c.drawsPicture = false;
    setEnds(c);
}

void reconsider(Context& c)
{
    beginPicture(c);
    considerWindow(c);
    endPicture(c);
}

} // namespace

// ---- Contexts ----------------------------------------------------------------------------------

Context& currentContext()
{
    static Context none{};
    return current ? *current : none;
}

bool hasContext() { return current; }

void addContext(NewContext created)
{
    const std::lock_guard lock(streamLock);
    const auto found = contexts.find(created.shared);
    ShareGroup* group = found != contexts.end() ? found->second->group : new ShareGroup{};
    ++group->members;
    auto context = std::make_unique<Context>(Context{.native = created.native,
                                                     .group = group,
                                                     .dpy = created.dpy,
                                                     .visual = created.visual,
                                                     .attributes = std::move(created.attributes),
                                                     .doubleBuffered = created.doubleBuffered,
                                                     .asPicture = created.asPicture});
    if (capturing)
        resizeTape(context->tape, tapeRoom);
    if (!group->main)
        group->main = context.get();
    contexts[created.native] = std::move(context);
}

void endAttributes(std::vector<int>& list, int samples)
{
    // A server that has no such visual would end, and not every combination is there.
    const bool asAsked = std::find(list.begin(), list.end(), GLX_DOUBLEBUFFER) != list.end() &&
                         std::find(list.begin(), list.end(), GLX_ACCUM_RED_SIZE) == list.end();
    const int most = std::min(samples, captureOptions.samples);
    if (most > 1 && asAsked)
        list.insert(list.end(), {GLX_SAMPLE_BUFFERS, 1, GLX_SAMPLES, most});
    list.push_back(None);
}

namespace {

// Nothing of a context that was never shown reaches the wall once it is gone.
void forget(Context& c)
{
    ShareGroup* group = c.group;
    std::free(c.ownTape.begin ? c.ownTape.begin : c.tape.begin);
    if (group->main == &c)
        group->main = nullptr;
    if (--group->members > 0)
        return;
    if (wall.group == group)
        wall = {};
    if (shownWindow == group->window)
        shownWindow = 0;
    delete group;
}

} // namespace

void removeContext(NativeContext native)
{
    const std::lock_guard lock(streamLock);
    const auto found = contexts.find(native);
    if (found == contexts.end())
        return;
    if (found->second->window || found->second.get() == current) {
        found->second->destroyed = true; // it lives until it is released
        retired.push_back(std::move(found->second));
    } else
        forget(*found->second);
    contexts.erase(found);
}

void leaveContext(NativeContext next, unsigned long window)
{
    if (!current || (current->native == next && current->window == window))
        return;
    const std::lock_guard lock(streamLock);
    passOnTape(*current, false);
}

void contextIsCurrent(NativeContext native, unsigned long window)
{
    if (current && current->native == native && current->window == window && !current->destroyed) {
        reconsiderWindow();
        return;
    }
    const std::lock_guard lock(streamLock);
    if (Context* before = current) {
        before->window = 0;
        if (before->destroyed && before->native != native) {
            forget(*before);
            std::erase_if(retired, [before](const auto& c) { return c.get() == before; });
        }
    }
    const auto found = contexts.find(native);
    current = native && found != contexts.end() ? found->second.get() : nullptr;
    currentTape = current ? &current->tape : &idleTape;
    if (!current)
        return;
    current->window = window;
    reconsider(*current);
}

// ---- Tapes and frames --------------------------------------------------------------------------

bool makeRoom(Tape& tape, Effect effect, std::int64_t bytes)
{
    const auto wanted = [&] {
        return effect == Effect::defines ? tape.definesEnd
               : effect == Effect::state ? tape.stateEnd
                                         : tape.drawsEnd;
    };
    if (!wanted() || !current || bytes < 0)
        return false;
    const std::lock_guard lock(streamLock);
    const auto size = static_cast<std::size_t>(bytes);
    const bool fits = size <= tape.room - static_cast<std::size_t>(tape.at - tape.begin);
    if (fits && (current->ownTape.begin || current->inList))
        return true;
    if (current->inList && !current->listPassedOn && growListTape(*current, size))
        return true;
    passOnTape(*current, false);
    if (reserveTape(*current, size))
        return true;
    if (size > tape.room || (tape.room > mostTapeRoom && size <= mostTapeRoom))
        resizeTape(tape, std::max(size, tapeRoom));
    setEnds(*current);
    return wanted() && size <= tape.room;
}

void updateRecording()
{
    if (!current)
        return;
    const std::lock_guard lock(streamLock);
    setEnds(*current);
}

void endFrame(bool swap)
{
    if (!current || !capturing)
        return;
    reconsiderWindow();
    Context& c = *current;
    if (!isShown(c) || c.inList) {
        passOn();
        return;
    }
    beginPicture(c);
    if (c.asPicture)
        recordPicture(c.picture, !swap);
    if (swap || c.asPicture)
        record<Op::glXSwapBuffers, Effect::draws>(asParameter<Display*>(wallDisplay),
                                                  GLXDrawable{c.window});
    const std::lock_guard lock(streamLock);
    // A program that flushes after every stroke is not held back at each.
    static Clock::time_point last;
    constexpr auto shortest = std::chrono::milliseconds(15);
    const bool due = swap || Clock::now() - last > shortest;
    if (due)
        last = Clock::now();
    passOnTape(c, due && c.tape.at > c.tape.begin);
    waitForFrames();
    setEnds(c);
    if ((swap || c.asPicture) && framesWithMargins > 0) {
        --framesWithMargins;
        recordMargins(c);
    }
    endPicture(c);
}

void holdAfterLastFrame()
{
    if (!allFramesSent())
        return;
    callNative<Op::glFinish>();
    if (current && current->dpy)
        XSync(current->dpy, False);
    for (;;)
        pause();
}

void passOn()
{
    if (!current || !capturing || current->inList)
        return;
    const std::lock_guard lock(streamLock);
    if (contexts.size() > 1 || !isShown(*current))
        passOnTape(*current, false);
}

void reconsiderWindow()
{
    if (!current || !capturing)
        return;
    const std::lock_guard lock(streamLock);
    reconsider(*current);
}

bool isOnWall() { return current && isShown(*current); }

WindowSize currentWindowSize() { return current ? current->group->size : WindowSize{}; }

// ---- Lists -------------------------------------------------------------------------------------

void beginListTape(GLuint list)
{
    if (!current)
        return;
    const std::lock_guard lock(streamLock);
    passOnTape(*current, false);
    current->inList = true;
    current->list = list;
    current->listPassedOn = false;
    setEnds(*current);
}

bool endListTape(std::vector<unsigned char>& records)
{
    if (!current)
        return true;
    const std::lock_guard lock(streamLock);
    Context& c = *current;
    const bool whole = !c.listPassedOn;
    if (whole) {
        records.assign(c.tape.begin, c.tape.at);
        c.tape.at = c.tape.begin;
        c.inList = false;
    } else {
        c.inList = c.listPassedOn = false;
    }
    setEnds(c);
    return whole;
}

KeptLists& keptLists()
{
    static KeptLists none;
    return current ? current->group->lists : none;
}

// ---- Where the picture stands ------------------------------------------------------------------

Placement placementOf(WindowSize size)
{
    Placement area{0, 0, size.width, size.height};
    const char* const fit = captureOptions.fit;
    const int wallWidth = captureOptions.wallWidth, wallHeight = captureOptions.wallHeight;
    if (!fit || std::strcmp(fit, "middle") != 0 || wallWidth <= 0 || wallHeight <= 0 ||
        size.width <= 0 || size.height <= 0)
        return area;
    const std::int64_t across = std::int64_t{size.width} * wallHeight;
    const std::int64_t down = std::int64_t{size.height} * wallWidth;
    if (across < down) {
        area.width = static_cast<int>((down + wallHeight - 1) / wallHeight);
        area.dx = (area.width - size.width) / 2;
    } else if (down < across) {
        area.height = static_cast<int>((across + wallWidth - 1) / wallWidth);
        area.dy = (area.height - size.height) / 2;
    }
    return area;
}

void recordViewport(GLint x, GLint y, GLsizei width, GLsizei height)
{
    const Placement area = placementOf(currentWindowSize());
    record<Op::glViewport, Effect::state>(
        ViewportBlock{x + area.dx, y + area.dy, width, height, area.width, area.height});
}

void recordScissor()
{
    const WindowSize size = currentWindowSize();
    const Placement area = placementOf(size);
    GLint box[4] = {0, 0, size.width, size.height};
    const bool margins = area.dx > 0 || area.dy > 0;
    if (currentContext().scissorOn || !margins)
        callNative<Op::glGetIntegerv>(GL_SCISSOR_BOX, box);
    record<Op::glScissor, Effect::state>(box[0] + area.dx, box[1] + area.dy, box[2], box[3]);
}

// ---- Buffer objects ----------------------------------------------------------------------------

BufferObject& bufferObject(GLuint name)
{
    static BufferObject none;
    return current ? current->group->buffers[name] : none;
}

void deleteBufferObject(GLuint name)
{
    if (current)
        current->group->buffers.erase(name);
}

#include "capture/shownWindow.h"
#include "capture/entries.h"
#include "capture/keptDraws.h"
#include "capture/reasons.h"
#include "capture/stream.h"
#include "capture/windows.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

using Bytes = std::span<const unsigned char>;
using Clock = std::chrono::steady_clock;

namespace {

// What the wall has to know of a window that is new to it, or has another size: the size, and what
// depends on it. In the thread of the context.
void describeWindow(Context& c)
{
    const auto& [area, shown] = shownPlaceOf(c.group->size, c.asPicture);
    if (c.asPicture) {
        c.used.texture = std::max(c.used.texture, GLuint{1});
        const auto [width, height] = c.group->size.load();
        describePicture(c.picture, width, height, shown.width, shown.height);
        record<Op::glViewport, Effect::state>(
            ViewportBlock{area.dx, area.dy, shown.width, shown.height, area.width, area.height});
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
    const auto& [area, shown] = shownPlaceOf(c.group->size, c.asPicture);
    if ((shown.width >= area.width && shown.height >= area.height) || c.inList)
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

// Whether a window of the program's may still be shown.
bool isInUse(const Context& c, unsigned long window)
{
    return window == shownWindow || windowState(displayNameOf(c), window, true).exists;
}

// Gives the group a context on the wall, if it has none, and a window for the program's that it is
// current in. False when there is no room.
bool takeRoom(Context& c, std::optional<WallContext>& taken)
{
    ShareGroup& group = *c.group;
    if (!group.onWall) {
        taken = takeWallContext(c.attributes);
        if (!taken) {
            tell(Reason::noContextLeft);
            return false;
        }
        group.handle = taken->context;
        group.visual = taken->visual;
    }
    const std::uint32_t window =
        wallWindow(c.window, group.visual, [&c](unsigned long other) { return isInUse(c, other); });
    if (window == 0) {
        if (taken)
            giveWallContext(taken->context, taken->leftOver);
        tell(Reason::noWindowLeft);
        return false;
    }
    group.wallWindow = window;
    return true;
}

// The context as if it were new, its attributes on a stack from which they can be had again.
void sendOpening(const Context& c, const WallContext& taken)
{
    CommandBuffer out;
    const ProgramWindow window = programWindow(*c.group);
    if (taken.newVisual)
        encodeVisual(out, window, c.attributes);
    if (taken.newContext)
        encodeContext(out, window);
    encode<Op::glXMakeCurrent>(out, makeCurrentBlock(window));
    if (wallWindows().size() > 1) // it may have been another's, below others
        encode<Op::MWRaiseWindow>(out, Window{c.group->wallWindow});
    if (!taken.newContext)
        encodeReset(out, taken.leftOver);
    encode<Op::glPushAttrib>(out, GLbitfield{GL_ALL_ATTRIB_BITS});
    encodeViewport(out, window);
    encode<Op::glPixelStorei>(out, GLenum{GL_UNPACK_ALIGNMENT}, 1);
    const Bytes pieces[] = {out};
    sendBuffer(pieces, false);
}

// Shows the current context's window on the wall.
void show(Context& c, const WindowState& state)
{
    ShareGroup& group = *c.group;
    passOnTape(c, false);
    const bool known = group.onWall && group.window == c.window;
    std::optional<WallContext> taken;
    if (!known && !takeRoom(c, taken)) {
        c.hiddenFrames = INT_MAX;
        return;
    }
    if (group.main && group.main != &c && group.main->isCurrent)
        endKeepingDraws(group.keptDraws);
    group.main = &c;
    group.window = shownWindow = c.window;
    group.size = WindowSize{state.width, state.height};
    if (!group.onWall) {
        sendOpening(c, *taken);
        group.onWall = true;
        wallCurrent = {&group, group.wallWindow};
        // Before what has been drawn already, and, for sizes that were not known then, after it.
        setEnds(c);
        describeWindow(c);
        recordMargins(c);
        passOnTape(c, false);
        for (const ShareGroup::Piece& piece : group.pending)
            sendRecords(group, piece.of == &c, piece.records, false);
        const bool drawn = !group.pending.empty();
        group.pending.clear();
        group.pending.shrink_to_fit();
        group.pendingBytes = 0;
        framesWithMargins = buffersOfAWindow - 1;
        tellShown(c);
        if (drawn && !c.asPicture)
            describeWindow(c);
        return;
    } else {
        sendMakeCurrent(group);
        if (known || !showsAll()) { // it may be below those that were shown meanwhile
            CommandBuffer out;
            encode<Op::MWRaiseWindow>(out, Window{group.wallWindow});
            const Bytes pieces[] = {out};
            sendBuffer(pieces, false);
        }
    }
    tellShown(c);
    setEnds(c);
    describeWindow(c);
    framesWithMargins = buffersOfAWindow;
    recordMargins(c);
}

// What was shown is closed or hidden: the wall's process decides what is shown instead, until
// another draws.
void hide(Context& c)
{
    passOnTape(c, false);
    if (wallCurrent.group != c.group || wallCurrent.window != c.group->wallWindow)
        sendMakeCurrent(*c.group);
    shownWindow = 0;
    tellShown(c);
    setEnds(c);
}

void resize(Context& c, const WindowState& state)
{
    passOnTape(c, false);
    c.group->size = WindowSize{state.width, state.height};
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
    if (!shownWindow || shownWindow == c.window)
        return true;
    const WindowState& shown = windowState(displayNameOf(c), shownWindow, true);
    return !shown.viewable ||
           std::int64_t{state.width} * state.height > std::int64_t{shown.width} * shown.height;
}

// A window around it may have been mapped or hidden, which nobody tells: how often that is asked.
constexpr auto shownOften = std::chrono::milliseconds(250);
constexpr auto hiddenOften = std::chrono::milliseconds(20);

bool isDue(Clock::time_point& asked, Clock::duration often)
{
    if (Clock::now() - asked <= often)
        return false;
    asked = Clock::now();
    return true;
}

// False when the wall has to be connected before: the numbers of what it has depend on it.
bool considerWindow(Context& c)
{
    static Clock::time_point askedShown, askedHidden;
    if (!capturing || !c.window || c.inList)
        return true;
    if (isShown(c)) {
        const WindowState& state =
            windowState(displayNameOf(c), c.window, isDue(askedShown, shownOften));
        if (!state.viewable && !showsAll())
            hide(c);
        else if (const WindowSize size = c.group->size;
                 state.exists && (state.width != size.width || state.height != size.height))
            resize(c, state);
        return true;
    }
    const bool anew = isUndecided(c) || isDue(askedHidden, hiddenOften);
    const WindowState state = windowState(displayNameOf(c), c.window, anew);
    if (!c.group->onWall && state.exists) // what is kept back depends on it
        c.group->size = WindowSize{state.width, state.height};
    if (!state.exists)
        tell(Reason::windowNotKnown);
    if (!state.viewable || state.width <= 0 || state.height <= 0)
        return true;
    if (!isWanted(c, state)) {
        tell(Reason::otherWindow);
        return true;
    }
    if (!isConnected())
        return false;
    show(c, state);
    return true;
}

} // namespace

void tellShown(const Context& c)
{
    sendShown(static_cast<std::uint32_t>(shownWindow), c.group->wallWindow, c.doubleBuffered,
              displayNameOf(c));
}

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

bool reconsider(Context& c)
{
    beginPicture(c);
    const bool done = considerWindow(c);
    endPicture(c);
    return done;
}

void recordMarginsOfFrame(const Context& c)
{
    if (framesWithMargins <= 0)
        return;
    --framesWithMargins;
    recordMargins(c);
}

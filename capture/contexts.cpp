#include "capture/contexts.h"
#include "capture/connections.h"
#include "capture/entries.h"
#include "capture/keptDraws.h"
#include "capture/reasons.h"
#include "capture/shownWindow.h"
#include "capture/stream.h"
#include "capture/windows.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

#include <unistd.h>

using Clock = std::chrono::steady_clock;

static constinit Tape idleTape;
constinit thread_local Tape* currentTape = &idleTape;
constinit thread_local Context* threadsContext;

namespace {

// Never destroyed, as all that this library keeps: threads may draw while the process exits.
auto& contexts = *new std::map<NativeContext, std::unique_ptr<Context>>;
auto& retired = *new std::vector<std::unique_ptr<Context>>; // destroyed, but current in some thread

} // namespace

// ---- Contexts ----------------------------------------------------------------------------------

Context& noContext()
{
    thread_local Context* none; // never destroyed: it may be asked for until the thread is gone
    if (!none)
        none = new Context{};
    return *none;
}

void addContext(NewContext created)
{
    watchConnection(created.dpy);
    const StreamLock lock;
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

// A context belongs to its group no more; the last one takes it along.
void leaveGroup(Context& c)
{
    ShareGroup* const group = c.group;
    if (group->main == &c)
        group->main = nullptr;
    group->used = {std::max(group->used.texture, c.used.texture),
                   std::max(group->used.list, c.used.list),
                   std::max(group->used.program, c.used.program),
                   std::max(group->used.keptDraws, c.used.keptDraws)};
    noteContextLeft(group->keptImages);
    if (--group->members > 0)
        return;
    if (group->onWall && shownWindow == group->window) {
        shownWindow = 0;
        // Another context may draw into it next.
        if (capturing && !windowState(displayNameOf(c), group->window, true).viewable)
            tellShown(c);
    }
    if (wallCurrent.group == group)
        wallCurrent = {};
    if (group->onWall)
        giveWallContext(group->handle, group->used);
    delete group;
}

// Nothing of a context that was never shown reaches the wall once it is gone.
void forget(Context& c)
{
    freeTape(c);
    leaveGroup(c);
}

} // namespace

namespace {

// One that is current somewhere lives until it is released.
void retire(std::unique_ptr<Context> context)
{
    if (context->isCurrent) {
        context->destroyed = true;
        retired.push_back(std::move(context));
    } else
        forget(*context);
}

} // namespace

void connectionIsGone(const Display* dpy)
{
    const StreamLock lock;
    for (auto one = contexts.begin(); one != contexts.end();) {
        if (one->second->dpy != dpy) {
            ++one;
            continue;
        }
        retire(std::move(one->second));
        one = contexts.erase(one);
    }
    for (const auto& context : retired)
        if (context->dpy == dpy)
            context->dpy = nullptr;
}

void removeContext(NativeContext native)
{
    const StreamLock lock;
    const auto found = contexts.find(native);
    if (found == contexts.end())
        return;
    retire(std::move(found->second));
    contexts.erase(found);
}

void turnToPictures(const char* function)
{
    if (!threadsContext || threadsContext->asPicture || !capturing)
        return;
    Context& c = *threadsContext;
    {
        const StreamLock lock;
        tell(Reason::turnsToPictures, function);
        c.inList = false;
        passOnTape(c, false);
        // A new context on the wall, whose state nothing has changed.
        leaveGroup(c);
        c.group = new ShareGroup;
        c.group->members = 1;
        c.group->main = &c;
        c.asPicture = true;
        c.used = {};
        setEnds(c);
    }
    reconsiderWindow();
}

void leaveContext(NativeContext next, unsigned long window)
{
    if (!threadsContext || (threadsContext->native == next && threadsContext->window == window))
        return;
    if (threadsContext->inList) // what there is of the list waits for the rest
        return;
    const StreamLock lock;
    passOnTape(*threadsContext, false);
}

namespace {

// Decides anew whether the current context's window is shown, once the wall has answered where that
// is needed.
void reconsiderCurrent()
{
    for (;;) {
        {
            const StreamLock lock;
            if (reconsider(*threadsContext))
                return;
        }
        connectToWall();
    }
}

// What was current in this thread is so no more.
void release(Context& c, NativeContext next)
{
    c.window = 0;
    c.isCurrent = false;
    if (c.destroyed && c.native != next) {
        forget(c);
        std::erase_if(retired, [&c](const auto& other) { return other.get() == &c; });
    }
}

} // namespace

void contextIsCurrent(NativeContext native, unsigned long window)
{
    {
        const StreamLock lock;
        const bool same = threadsContext && threadsContext->native == native &&
                          threadsContext->window == window && !threadsContext->destroyed;
        if (!same) {
            if (threadsContext)
                release(*threadsContext, native);
            const auto found = contexts.find(native);
            threadsContext = native && found != contexts.end() ? found->second.get() : nullptr;
            currentTape = threadsContext ? &threadsContext->tape : &idleTape;
            if (threadsContext) {
                threadsContext->isCurrent = true;
                if (std::exchange(threadsContext->lastWindow, window) != window)
                    threadsContext->hiddenFrames = 0;
                threadsContext->window = window;
            }
        }
    }
    if (threadsContext)
        reconsiderCurrent();
}

// ---- Tapes and frames --------------------------------------------------------------------------

bool makeRoom(Tape& tape, Effect effect, std::int64_t bytes)
{
    const auto wanted = [&] {
        return effect == Effect::defines ? tape.definesEnd
               : effect == Effect::state ? tape.stateEnd
                                         : tape.drawsEnd;
    };
    if (!wanted() || !threadsContext || bytes < 0)
        return false;
    const StreamLock lock;
    const auto size = static_cast<std::size_t>(bytes);
    const bool fits = size <= tape.room - static_cast<std::size_t>(tape.at - tape.begin);
    if (fits && (threadsContext->ownTape.begin || threadsContext->inList))
        return true;
    if (threadsContext->inList && !threadsContext->listPassedOn &&
        growListTape(*threadsContext, size))
        return true;
    passOnTape(*threadsContext, false);
    if (reserveTape(*threadsContext, size))
        return true;
    if (size > tape.room || (tape.room > mostTapeRoom && size <= mostTapeRoom))
        resizeTape(tape, std::max(size, tapeRoom));
    setEnds(*threadsContext);
    return wanted() && size <= tape.room;
}

void updateRecording()
{
    if (!threadsContext)
        return;
    const StreamLock lock;
    setEnds(*threadsContext);
}

namespace {

// The connection of a context whose window may be about to be mapped; null: it is settled.
Display* undecidedConnection(const Context& c)
{
    const StreamLock lock;
    return isUndecided(c) && !isShown(c) ? c.dpy : nullptr;
}

// A frame that is not seen.
void leaveFrame(Context& c)
{
    const StreamLock lock;
    if (!c.inList && (contexts.size() > 1 || !isShown(c)))
        passOnTape(c, false);
    if (isUndecided(c)) {
        ++c.hiddenFrames;
        dropDraws(*c.group, c);
    }
    if (!isShown(c))
        tell(Reason::hiddenFrame);
    setEnds(c);
}

// Where the frame goes on the wall; 0: nowhere. Its picture is recorded from here on.
std::uint32_t beginFrame(Context& c)
{
    const StreamLock lock;
    if (!isShown(c) || c.inList)
        return 0;
    beginPicture(c);
    return c.group->wallWindow;
}

} // namespace

void endFrame(bool swap)
{
    if (!threadsContext || !capturing)
        return;
    Context& c = *threadsContext;
    if (Display* const connection = undecidedConnection(c))
        XSync(connection, False);
    reconsiderWindow();
    const std::uint32_t wallWindow = beginFrame(c);
    if (wallWindow == 0)
        return leaveFrame(c);
    if (c.asPicture)
        recordPicture(c.picture, !swap);
    else
        endFrameOfKeptDraws();
    if (swap || c.asPicture)
        record<Op::glXSwapBuffers, Effect::draws>(asParameter<Display*>(wallDisplay),
                                                  GLXDrawable{wallWindow});
    {
        const StreamLock lock;
        // A program that flushes after every stroke is not held back at each.
        static Clock::time_point last;
        constexpr auto shortest = std::chrono::milliseconds(15);
        const bool due = swap || Clock::now() - last > shortest;
        if (due)
            last = Clock::now();
        passOnTape(c, due && c.tape.at > c.tape.begin);
    }
    waitForFrames(); // without the lock: other threads draw on
    const StreamLock lock;
    reserveTape(c, tapeRoom);
    setEnds(c);
    if (swap || c.asPicture)
        recordMarginsOfFrame(c);
    endPicture(c);
}

void holdAfterLastFrame()
{
    if (!allFramesSent())
        return;
    callNative<Op::glFinish>();
    if (threadsContext && threadsContext->dpy)
        XSync(threadsContext->dpy, False);
    for (;;)
        pause();
}

void passOn()
{
    if (!threadsContext || !capturing || threadsContext->inList)
        return;
    const StreamLock lock;
    if (contexts.size() > 1 || !isShown(*threadsContext))
        passOnTape(*threadsContext, false);
}

void reconsiderWindow()
{
    if (threadsContext && capturing)
        reconsiderCurrent();
}

bool isOnWall()
{
    const StreamLock lock;
    return threadsContext && isShown(*threadsContext);
}

WindowSize currentWindowSize()
{
    return threadsContext ? threadsContext->group->size.load() : WindowSize{};
}

// ---- Lists -------------------------------------------------------------------------------------

void beginListTape(GLuint list, GLenum mode)
{
    if (!threadsContext)
        return;
    const StreamLock lock;
    passOnTape(*threadsContext, false);
    threadsContext->inList = true;
    threadsContext->list = list;
    threadsContext->listMode = mode;
    threadsContext->listPassedOn = false;
    setEnds(*threadsContext);
}

bool endListTape(std::vector<unsigned char>& records)
{
    if (!threadsContext)
        return true;
    const StreamLock lock;
    Context& c = *threadsContext;
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
    return threadsContext ? threadsContext->group->lists : none;
}

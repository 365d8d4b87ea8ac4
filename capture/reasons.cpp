#include "capture/reasons.h"
#include "capture/stream.h"

#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <utility>

constinit thread_local const char* enteredOperation = nullptr;

namespace {

enum class Told { once, onceEach, onlyVerbose }; // each: for every detail

struct Row {
    Reason reason;
    Told told;
    std::string_view text; // "%s": the detail
};

using enum Reason;
constexpr Row rows[] = {
    {pathTooLong, Told::once,
     "the socket's path is too long; the program goes on without the wall"},
    {noAnswer, Told::once,
     "the wall's socket does not answer; the program goes on without the wall"},
    {taken, Told::once,
     "another process of the program is on the wall already; the program goes on without the wall"},
    {standsStill, Told::once, "the wall stands still; the program goes on without the wall"},
    {gone, Told::once, "the wall is gone; the program goes on without the wall"},
    {closed, Told::once,
     "the program has closed the wall's socket; the program goes on without the wall"},
    {pictureContext, Told::once,
     "a context of %s is shown by its finished pictures: the wall carries the calls of OpenGL 1.5"},
    {refusedContext, Told::once,
     "a context of %s is refused: the wall carries the calls of OpenGL 1.5"},
    {turnsToPictures, Told::once,
     "the program uses %s, which the wall's calls do not have: it is shown by its finished "
     "pictures "
     "from here on"},
    {unseen, Told::onceEach, "%s: the wall does not see it"},
    {tooMuchState, Told::once,
     "a context that is not shown has too much state to keep; if it is shown later, something will "
     "be missing"},
    {noContextLeft, Told::once,
     "the wall has no room for more contexts at a time; what is drawn there is not on it"},
    {noWindowLeft, Told::once,
     "the wall has no room for more windows at a time; what is drawn there is not on it"},
    {unknownArray, Told::once,
     "an array of a type that the wall does not know: what is drawn from it is not on the wall"},
    {imageTooLarge, Told::once, "an image of more than 2 GB is not on the wall"},
    {copyInList, Told::once,
     "a list copies what is drawn: the wall's tiles copy each its own part of it"},
    {fontTooLarge, Told::once, "a font of more than 4096 glyphs is not on the wall"},
    {largeList, Told::once,
     "a list of more than 8 MB: images and viewports in it may stand elsewhere on the wall"},
    {noLibraries, Told::once, "the OpenGL libraries of this machine are not to be found: %s"},
    {onePiece, Told::once,
     "an OpenGL library of one piece is bound to itself; a program with an allocator of its own "
     "may "
     "not bear it"},
    {keptBack, Told::onlyVerbose, "what is called is kept back until its window is shown"},
    {hiddenFrame, Told::onlyVerbose, "a frame in a window that is not shown is left out"},
    {drawsDropped, Told::onlyVerbose, "a frame that is not shown yet is too large to keep"},
    {otherWindow, Told::onlyVerbose, "the wall shows another window"},
    {windowNotKnown, Told::onlyVerbose, "the X server does not answer for a window"},
    {noFont, Told::onlyVerbose, "the glyphs of a font are not followed here"},
    {placedList, Told::onlyVerbose, "a list is kept here, and sent in parts when it is called"},
    {asCalls, Told::onlyVerbose, "arrays are sent as calls, an element at a time"},
    {readBack, Told::onlyVerbose, "a buffer object is read back: it has changed unseen"},
    {beyondBuffer, Told::onlyVerbose, "what it reads lies beyond its buffer object"},
    {unknownParameter, Told::onlyVerbose, "a parameter that the wall does not know"},
    {notOnWire, Told::onlyVerbose, "%s: it stays here, servers do not perform it"},
    {slotUsedUp, Told::onlyVerbose, "a context on the wall has too many names to be used again"},
};
static_assert([] { // in the order of the reasons
    for (std::size_t i = 0; i < std::size(rows); ++i)
        if (static_cast<std::size_t>(rows[i].reason) != i)
            return false;
    return std::size(rows) == static_cast<std::size_t>(slotUsedUp) + 1;
}());

bool isNew(Reason reason, std::string_view detail)
{
    static auto& times = *new std::map<std::pair<Reason, std::string>, long>;
    const std::lock_guard lock(toldLock);
    return ++times[{reason, std::string(detail)}] == 1;
}

} // namespace

void tell(Reason reason, std::string_view detail)
{
    const Row& row = rows[static_cast<std::size_t>(reason)];
    const bool always = captureOptions.verbose;
    if (!always && (row.told == Told::onlyVerbose ||
                    !isNew(reason, row.told == Told::onceEach ? detail : std::string_view())))
        return;
    std::string line = "MOSA: capture: " + std::string(row.text);
    if (const std::size_t place = line.find("%s"); place != line.npos)
        line.replace(place, 2, detail);
    if (always && enteredOperation)
        line += std::string(" (") + enteredOperation + ")";
    line += "\n";
    std::fputs(line.c_str(), stderr);
}

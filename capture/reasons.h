// Why the wall does not follow what the program does, or follows it in another way: one line each,
// by one function. docs/messages.md explains them.
#pragma once

#include <string_view>

enum class Reason {
    // The program goes on without the wall.
    pathTooLong,
    noAnswer,
    taken,
    standsStill,
    gone,
    closed,
    // A context, or all that it draws.
    pictureContext,
    refusedContext,
    turnsToPictures,
    unseen,
    tooMuchState,
    noContextLeft,
    noWindowLeft,
    // A call.
    unknownArray,
    imageTooLarge,
    copyInList,
    fontTooLarge,
    largeList,
    // The node's libraries.
    noLibraries,
    onePiece,
    // What is not worth a line: the wall looks the same, or nothing of it is seen. Told where
    // MOSA_CAPTURE_VERBOSE asks for it.
    keptBack,
    hiddenFrame,
    drawsDropped,
    otherWindow,
    windowNotKnown,
    noFont,
    placedList,
    asCalls,
    readBack,
    beyondBuffer,
    unknownParameter,
    notOnWire,
    slotUsedUp,
};

/// Tells a reason once, or (MOSA_CAPTURE_VERBOSE) each time, with the operation that the program
/// has called. `detail` stands where the text has a place for it. Any thread, with any locks.
void tell(Reason reason, std::string_view detail = {});

/// The operation of the program's that is under way in this thread, where every time is told.
extern constinit thread_local const char* enteredOperation;

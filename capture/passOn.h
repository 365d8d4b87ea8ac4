// The way of a context's records: from its tape to the wall, or to where they are kept back until
// its window is shown. All of it under streamLock.
#pragma once

#include "capture/locks.h"
#include "capture/shareGroup.h"
#include "capture/stream.h"
#include "client/captureProtocol.h"
#include "client/programWindow.h"

#include <span>

/// The program's window that the wall shows; 0: none.
extern unsigned long shownWindow;

inline constexpr AppDisplay wallDisplay = capturedDisplay;
inline constexpr std::size_t tapeRoom = 256 << 10;
inline constexpr std::size_t mostTapeRoom = 8 << 20; // that is kept once a record needed it

/// The X display of the connection that a context was made for, by its name; null: none is known.
const char* displayNameOf(const Context& c);

/// Whether each window is shown, one over the other.
bool showsAll();
bool isShown(const Context& c);

/// Whether what a context draws is kept although its window is not shown: it may have been mapped
/// just now. One that stays hidden for a few frames waits until it is seen.
bool isUndecided(const Context& c);

/// A frame was not seen: of what is kept back of it what was drawn is dropped, but for lists.
void dropDraws(ShareGroup& group, const Context& c);

/// A group's window as servers know it.
ProgramWindow programWindow(const ShareGroup& group);
void sendMakeCurrent(const ShareGroup& group);

/// Sends records of one of a group's contexts, which is on the wall. Another than the one whose
/// state the wall has (`ofMain`) leaves that as it was.
void sendRecords(const ShareGroup& group, bool ofMain, std::span<const unsigned char> records,
                 bool endsFrame);

/// How much of a context's calls is recorded follows from its state anew.
void setEnds(Context& c);

/// Passes on what is on the tape, and rewinds it.
void passOnTape(Context& c, bool endsFrame);

void resizeTape(Tape& tape, std::size_t room);

/// From here on, until it is passed on, the tape of a context that is on the wall lies where the
/// wall's process reads it. False where it cannot.
bool reserveTape(Context& c, std::size_t bytes);

/// The context is gone, and its tape with it.
void freeTape(Context& c);

/// A list stays in one piece until it is too large. Then what there is of it is passed on, behind a
/// glNewList, and the result is false.
bool growListTape(Context& c, std::size_t more);

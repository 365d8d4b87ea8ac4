// The program's contexts and windows, and which of them the wall shows. Each context has a tape;
// what is on it goes to the wall in the order in which it is passed on. One window is shown at a
// time. Contexts that have never been current in it are kept back until they are.
#pragma once

#include "capture/arrays.h"
#include "capture/lists.h"
#include "capture/pictures.h"
#include "capture/tape.h"
#include "capture/wallSlots.h"
#include "client/placement.h"

#include <X11/Xlib.h>

/// What the node's library calls a context: a GLXContext or an EGLContext.
using NativeContext = const void*;

struct ShareGroup;

/// A context of the program.
struct Context {
    NativeContext native = nullptr;
    ShareGroup* group = nullptr;
    Tape tape{};
    Tape ownTape{}; // while the tape lies in the memory that is shared with the wall's process
    ClientState client{};
    Display* dpy = nullptr; // of the connection that it was made for
    unsigned long visual = 0;
    std::vector<int> attributes{}; // as the servers choose a visual by, ended by a 0
    bool doubleBuffered = true;
    bool asPicture = false;    // its finished pictures are shown, not its calls
    bool drawsPicture = false; // what is recorded just now is of a picture
    ShownPicture picture{};
    bool isCurrent = false;   // in some thread
    unsigned long window = 0; // in which it is current; 0: none, or no window
    unsigned long lastWindow = 0;
    int hiddenFrames = 0; // ended in that window while it was not shown
    GLenum renderMode = GL_RENDER;
    bool inList = false; // a list is being compiled
    GLuint list = 0;
    GLenum listMode = 0;
    bool inBegin = false; // between glBegin and glEnd, where nothing can be asked
    GLuint listBase = 0;  // as at the latest glBegin, where that had to be known
    bool listBaseKnown = true;
    bool listPassedOn = false; // a part of it, for its size
    bool drawsOnWall = false;  // what it draws is shown, not only kept back
    bool frontBuffer = false;
    bool scissorOn = false;
    UsedNames used{};
    bool destroyed = false; // but perhaps still current
};

/// The context that is current in this thread and known here, or null.
extern constinit thread_local Context* threadsContext [[gnu::tls_model("initial-exec")]];

/// One that no thread draws in.
[[gnu::cold]] Context& noContext();

/// The context that is current in this thread. There is one: OpenGL calls without are not recorded.
inline Context& currentContext() { return threadsContext ? *threadsContext : noContext(); }

/// True when a context is current that the library knows.
inline bool hasContext() { return threadsContext; }

/// True when the library answers: a question between glBegin and glEnd would be the program's
/// error.
inline bool canAsk() { return hasContext() && !currentContext().inBegin; }

/// A new context; `shared` is one that it shares with, or null.
struct NewContext {
    NativeContext native, shared;
    Display* dpy;
    unsigned long visual;
    std::vector<int> attributes;
    bool doubleBuffered = true;
    bool asPicture = false;
};
void addContext(NewContext created);

/// Ends a list of the attributes by which servers choose a visual; with as many samples of a pixel
/// as the program has, or the wall.
void endAttributes(std::vector<int>& list, int samples);

/// The context is not to be used again; its record goes when it is current nowhere.
void removeContext(NativeContext native);

/// The program has closed a connection, which takes its contexts along.
void connectionIsGone(const Display* dpy);

/// The node's library has made a context current in this thread, with a window or (0) something
/// that is none. A null context: none is.
void contextIsCurrent(NativeContext native, unsigned long window);

/// Before the calling thread's context changes: what is on its tape is passed on.
void leaveContext(NativeContext next, unsigned long window);

/// The program uses what calls cannot carry: from here on the current context is shown by its
/// finished pictures, which is said once.
void turnToPictures(const char* function);

/// The frame is complete: its window is swapped, or a single-buffered program says so.
void endFrame(bool swap);

/// Behind the node's own swap: holds the program with its last frame where it was to show only so
/// many.
void holdAfterLastFrame();

/// What has been called so far is to reach the wall.
void passOn();

/// The current window may have been mapped or resized, or is to be drawn into: decides anew whether
/// it is shown. `size` receives its size.
struct WindowSize {
    int width, height;
};
void reconsiderWindow();

/// True when the wall shows the current window.
bool isOnWall();
WindowSize currentWindowSize();

/// How much of the current context's calls is recorded follows from its state anew.
void updateRecording();

/// Where the window stands in the area that is stretched over the wall, in the program's pixels.
Placement placementOf(WindowSize size);

/// The same, and the window's size in that area: its own, but for finished pictures where the wall
/// is known. Their area is the wall itself, in the wall's pixels, so that a factor that is whole
/// stays so whatever the shapes are.
struct ShownPlace {
    Placement area;
    WindowSize size;
};
ShownPlace shownPlaceOf(WindowSize size, bool asPicture);

/// From here on the tape holds the records of a list; at its end they are moved from there. False
/// when there were too many, and some have been passed on behind a glNewList.
void beginListTape(GLuint list, GLenum mode);
bool endListTape(std::vector<unsigned char>& records);

/// The lists of the current context that are kept.
KeptLists& keptLists();

/// A viewport, or a scissor box that limits to the window while the program has none, as the wall
/// takes it.
void recordViewport(GLint x, GLint y, GLsizei width, GLsizei height);
void recordScissor();

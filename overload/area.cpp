// An overload library: gives the job an area of the wall, above what others show there.
//
// MOSA_AREA names it (areaVariables.h). To the server the area is the wall, and what its display
// shows of it a display of its own: it reads a wall file that says so. Its windows are children of
// one, the frame, that stands where that part of the area is on the display; so the area can be
// raised, and moved, without the server's knowing. One that may move, MOSA_AREA_MOVABLE=1, is drawn
// whole by every server: then all that a move changes is where the frame stands.
//
// Nobody has to draw again what lies under a frame that moves or goes.
#include "coding/display/banner.h"
#include "coding/serverProcess.h"
#include "coding/serverWindows.h"
#include "overload/areaVariables.h"
#include "overload/library.h"
#include "wire/areaMessages.h"

#include <X11/extensions/Xcomposite.h>

#include <cstdlib>
#include <fstream>

#include <sys/mman.h>
#include <unistd.h>

namespace {

struct Frame {
    Display* dpy = nullptr;     // a connection of its own: never used by two threads at once
    WallEntry entry;            // of the display
    PixelArea tile{};           // what the display shows of the wall
    PixelArea area{};           // wall pixels, y upward
    PixelArea drawn{};          // the part of the area that this server draws
    LocalDrawableInfo parent{}; // stands for the frame's window in the server's table
    bool isMovable = false, isMapped = false, hasBackground = false;
    int left = 0, top = 0; // as told last, from the wall's upper left
};
Frame frame;

[[noreturn]] void fail(const std::string& why)
{
    std::fprintf(stderr, "Error MOSA: area: %s\n", why.c_str());
    std::exit(1);
}

std::string asked(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

void readOwnEntry()
{
    const std::string name = asked("MOSA_DISPLAY");
    std::ifstream file(name);
    const std::size_t own = entryOf(static_cast<std::size_t>(serverID));
    const std::vector<WallLine> lines = readWallLines(file, own == SIZE_MAX ? 0 : own + 1);
    if (lines.size() <= own || !parseWallEntry(lines[own].text, frame.entry))
        fail(name + " has no entry for server " + std::to_string(serverID));
    if (!readArea(std::getenv(areaVariable), frame.entry.vHeight, frame.area))
        fail(std::string(areaVariable) + " should read like 960x540+480+270");
}

void openDisplay()
{
    const WallEntry& entry = frame.entry;
    frame.dpy = XOpenDisplay(entry.dpyName.c_str());
    if (!frame.dpy || entry.scrn < 0 || entry.scrn >= ScreenCount(frame.dpy))
        fail("unable to open display: " + entry.dpyName);
    frame.tile = areaOf(entry);
    if (entry.rect.w == 0) {
        frame.tile.w = DisplayWidth(frame.dpy, entry.scrn);
        frame.tile.h = DisplayHeight(frame.dpy, entry.scrn);
    }
}

// The server's wall file from here on, held in memory: the area is the wall.
void writeWallFile()
{
    const PixelArea& drawn = frame.drawn;
    std::ostringstream text;
    for (int server = 0; server <= serverID; ++server)
        text << frame.entry.dpyName << " " << frame.area.w << " " << frame.area.h << " "
             << drawn.x - frame.area.x << " " << drawn.y - frame.area.y << " " << drawn.w << " "
             << drawn.h << "\n";
    const std::string bytes = text.str();
    const int fd = memfd_create("mosa-area", MFD_CLOEXEC);
    if (fd < 0 || write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        fail("no memory for a file");
    setenv("MOSA_DISPLAY", ("/proc/self/fd/" + std::to_string(fd)).c_str(), 1);
}

// Where the frame stands on the display, as X counts.
struct Corner {
    int x, y;
};

Corner cornerOf(const PixelArea& part)
{
    return {part.x - frame.tile.x, frame.tile.y + frame.tile.h - (part.y + part.h)};
}

// What lies under a frame that moves or goes is kept by the X server. That needs a connection that
// is still there when the frame goes, however this process ends: it is opened before the frame's,
// and X servers close those last.
void keepWhatIsBeneath()
{
    static Display* const dpy = XOpenDisplay(frame.entry.dpyName.c_str());
    int event = 0, error = 0;
    if (!dpy || !XCompositeQueryExtension(dpy, &event, &error))
        return;
    XCompositeRedirectSubwindows(dpy, RootWindow(dpy, frame.entry.scrn),
                                 CompositeRedirectAutomatic);
    XSync(dpy, False);
}

// Without a background, so that what is beneath is seen until there is a picture.
void openFrame()
{
    const Window root = RootWindow(frame.dpy, frame.entry.scrn);
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    const Corner corner = cornerOf(frame.drawn);
    frame.parent.localDrawable =
        XCreateWindow(frame.dpy, root, corner.x, corner.y, static_cast<unsigned>(frame.drawn.w),
                      static_cast<unsigned>(frame.drawn.h), 0, CopyFromParent, InputOutput,
                      CopyFromParent, CWOverrideRedirect, &attributes);
    XSync(frame.dpy, False); // before the server makes windows in it
}

void showFrame()
{
    if (frame.isMapped)
        return;
    frame.isMapped = true;
    XMapRaised(frame.dpy, frame.parent.localDrawable);
    XSync(frame.dpy, False); // before anything is drawn, by another connection
}

// There is a picture: what it leaves free is black, as on a wall.
void showBackground()
{
    if (frame.hasBackground || !frame.isMapped)
        return;
    frame.hasBackground = true;
    XSetWindowBackground(frame.dpy, frame.parent.localDrawable,
                         BlackPixel(frame.dpy, frame.entry.scrn));
    XClearWindow(frame.dpy, frame.parent.localDrawable);
    XFlush(frame.dpy);
}

// ---- In place of the operations ----------------------------------------------------------------

int makeCurrent(Display* dpy, GLXDrawable drawable, GLXContext ctx)
{
    const int result = below<Op::glXMakeCurrent>(dpy, drawable, ctx);
    if (drawable)
        showFrame();
    return result;
}

int makeContextCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext ctx)
{
    const int result = below<Op::glXMakeContextCurrent>(dpy, draw, read, ctx);
    if (draw)
        showFrame();
    return result;
}

void swapBuffers(Display* dpy, GLXDrawable drawable)
{
    below<Op::glXSwapBuffers>(dpy, drawable);
    showBackground();
}

// Programs with a single buffer show what they have drawn so.
template <Op op>
void drawAll()
{
    below<op>();
    showBackground();
}

void moveFrame()
{
    PixelArea& area = frame.area;
    area.x = frame.left;
    area.y = frame.entry.vHeight - frame.top - area.h;
    const Corner corner = cornerOf(area);
    XMoveWindow(frame.dpy, frame.parent.localDrawable, corner.x, corner.y);
    XFlush(frame.dpy);
}

void raiseWindow(Window window)
{
    if (!isAreaMessage(window))
        return below<Op::MWRaiseWindow>(window);
    switch (wordOf(window)) {
    case AreaWord::left:
        frame.left = valueOf(window);
        break;
    case AreaWord::top:
        frame.top = valueOf(window);
        break;
    case AreaWord::move:
        if (frame.isMovable)
            moveFrame();
        break;
    case AreaWord::raise:
        XRaiseWindow(frame.dpy, frame.parent.localDrawable);
        XFlush(frame.dpy);
        break;
    case AreaWord::pointer:
        break;
    }
}

} // namespace

extern "C" void Overload(glOp* table)
{
    if (asked(areaVariable).empty())
        return;
    readOwnEntry();
    keepWhatIsBeneath();
    openDisplay();
    frame.drawn = frame.area;
    frame.isMovable = asked(areaMovableVariable) == "1";
    if (!frame.isMovable)
        frame.drawn = commonArea(frame.area, frame.tile);
    if (isEmpty(frame.drawn))
        fail("the display " + frame.entry.dpyName + " shows nothing of " + asked(areaVariable));
    writeWallFile();
    openFrame();
    showsBanner = 0; // it would cover what others show
    for (LocalDrawableInfo& record : LocalDrawableTable)
        record.parent = &frame.parent;
    replace<Op::glXMakeCurrent>(table, makeCurrent);
    replace<Op::glXMakeContextCurrent>(table, makeContextCurrent);
    replace<Op::glXSwapBuffers>(table, swapBuffers);
    replace<Op::glFlush>(table, drawAll<Op::glFlush>);
    replace<Op::glFinish>(table, drawAll<Op::glFinish>);
    replace<Op::MWRaiseWindow>(table, raiseWindow);
}

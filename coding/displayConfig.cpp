#include "coding/displayConfig.h"
#include "coding/display/banner.h"
#include "coding/display/wallFile.h"
#include "coding/display/xErrors.h"
#include "coding/invariant.h"
#include "coding/serverProcess.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>

namespace {

LocalDisplay* ldpyList; // newest first; grows only

[[noreturn]] void abortOnWallFile()
{
    std::fflush(nullptr);
    std::abort();
}

// Fills the record from this server's entry of the file. False, after a message, when the file
// cannot be opened.
bool readOwnEntry(const char* fileName, LocalDisplay& ldpy)
{
    std::ifstream file(fileName);
    if (!file) {
        std::fprintf(stderr, "MOSA: unable to open wall configuration file %s\n", fileName);
        return false;
    }
    const auto own = static_cast<std::size_t>(serverID);
    const std::vector<WallLine> lines = readWallLines(file, own + 1);
    if (lines.size() <= own) {
        std::fprintf(stderr, "MOSA: not enough entries in wall configuration file %s\n", fileName);
        abortOnWallFile();
    }
    WallEntry entry;
    if (!parseWallEntry(lines[own].text, entry)) {
        std::fprintf(stderr, "MOSA: invalid X display string in wall configuration file %s\n",
                     fileName);
        std::fprintf(stderr, "line was: %s\n", lines[own].text.c_str());
        abortOnWallFile();
    }
    ldpy.dpyName = strdup(entry.dpyName.c_str());
    require(ldpy.dpyName, "ldpy");
    ldpy.scrn = entry.scrn;
    ldpy.vWidth = entry.vWidth;
    ldpy.vHeight = entry.vHeight;
    ldpy.rect = entry.rect;
    std::fprintf(stderr, "MOSA: ================= using display %s\n", ldpy.dpyName);
    return true;
}

// Opens the display that the record names. False, after a message, when it is not to be had.
bool openDisplay(LocalDisplay& ldpy)
{
    handleXErrors();
    ldpy.dpy = XOpenDisplay(ldpy.dpyName);
    if (!ldpy.dpy) {
        std::fprintf(stderr, "MOSA: unable to open display: %s\n", ldpy.dpyName);
        return false;
    }
    if (ldpy.scrn < 0 || ldpy.scrn >= ScreenCount(ldpy.dpy)) {
        std::fprintf(stderr, "MOSA: unable to open display: %s\n", ldpy.dpyName);
        std::fprintf(stderr, "MOSA: it has no screen %d\n", ldpy.scrn);
        return false;
    }
    if (ldpy.rect.w == 0) {
        ldpy.rect.w = static_cast<float>(DisplayWidth(ldpy.dpy, ldpy.scrn));
        ldpy.rect.h = static_cast<float>(DisplayHeight(ldpy.dpy, ldpy.scrn));
    }
    return true;
}

} // namespace

LocalDisplay* GetLocalDisplay(AppDisplay appDisplay)
{
    for (LocalDisplay* ldpy = ldpyList; ldpy; ldpy = ldpy->next)
        if (AppDisplay(ldpy->appDpy) == appDisplay)
            return ldpy;

    const char* fileName = std::getenv("MOSA_DISPLAY");
    if (!fileName)
        return nullptr;
    auto* ldpy = new (std::nothrow) LocalDisplay{};
    require(ldpy, "ldpy");
    if (!readOwnEntry(fileName, *ldpy) || !openDisplay(*ldpy)) {
        _freeLocalDisplay(ldpy);
        return nullptr;
    }
    ldpy->appDpy = asParameter<Display*>(appDisplay);
    ldpy->next = ldpyList;
    ldpyList = ldpy;
    const MWRect& rect = ldpy->rect;
    if (showsBanner)
        mosa_banner(ldpy->dpy, ldpy->scrn, ldpy->vWidth, ldpy->vHeight, truncate(rect.x),
                    truncate(rect.y), truncate(rect.w), truncate(rect.h));
    return ldpy;
}

void _freeLocalDisplay(LocalDisplay* ldpy)
{
    if (!ldpy)
        return;
    if (ldpy->dpy)
        XCloseDisplay(ldpy->dpy);
    std::free(ldpy->dpyName);
    delete ldpy;
}

void CleanupLocalDisplays()
{
    while (LocalDisplay* ldpy = ldpyList) {
        ldpyList = ldpy->next;
        _freeLocalDisplay(ldpy);
    }
}

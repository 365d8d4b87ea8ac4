#include "coding/display/xErrors.h"

#include <X11/Xlib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

// A frame loop that fails fails in every frame: at most this many lines each second.
constexpr int linesPerSecond = 10;

/// The name of a request, from Xlib's database or else by its numbers.
std::string requestName(Display* dpy, const XErrorEvent& error)
{
    char name[128] = "";
    const std::string code = std::to_string(error.request_code);
    XGetErrorDatabaseText(dpy, "XRequest", code.c_str(), "", name, sizeof name);
    if (name[0])
        return name;
    return "request " + code + "." + std::to_string(error.minor_code);
}

int onError(Display* dpy, XErrorEvent* error)
{
    using Clock = std::chrono::steady_clock;
    static Clock::time_point second;
    static int printed;
    static long told; // of the errors that were not shown, how many a line has counted

    const Clock::time_point now = Clock::now();
    if (now - second >= std::chrono::seconds(1)) {
        second = now;
        printed = 0;
    }
    if (++printed > linesPerSecond) {
        ++xErrorsNotShown;
        return 0;
    }
    if (const long suppressed = xErrorsNotShown - told) {
        std::fprintf(stderr, "Attention MOSA: %ld more X errors were not shown\n", suppressed);
        told += suppressed;
    }
    char text[256] = "";
    XGetErrorText(dpy, error->error_code, text, sizeof text);
    std::fprintf(stderr, "Attention MOSA: X error on display %s: %s, in %s, resource 0x%lx\n",
                 DisplayString(dpy), text, requestName(dpy, *error).c_str(), error->resourceid);
    return 0;
}

int onLostConnection(Display* dpy)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    std::fprintf(stderr, "Error MOSA: lost the connection to display %s on %s\n",
                 DisplayString(dpy), host);
    std::fflush(nullptr);
    std::_Exit(1); // MPI then ends the job
}

} // namespace

void handleXErrors()
{
    XSetErrorHandler(onError);
    XSetIOErrorHandler(onLostConnection);
}

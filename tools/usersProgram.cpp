#include "tools/usersProgram.h"
#include "client/captureVariables.h"
#include "client/locations.h"
#include "tools/started.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <dlfcn.h>
#include <link.h>

namespace {

constexpr Timeout programGrace = std::chrono::seconds(2);

// The path of one of the node's own libraries, or nothing.
std::string libraryPath(const char* name)
{
    void* library = dlopen(name, RTLD_LAZY | RTLD_LOCAL);
    link_map* map = nullptr;
    if (!library || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0)
        return {};
    std::string path = map->l_name;
    dlclose(library);
    return path;
}

// Toolkits that draw through Wayland where there is one draw past the capture library. Those that
// the user has told what to use are left alone.
std::vector<std::string> waylandEnvironment()
{
    if (!std::getenv("WAYLAND_DISPLAY") && !std::getenv("WAYLAND_SOCKET"))
        return {};
    std::vector<std::string> environment;
    for (const char* variable : {"GDK_BACKEND=x11", "QT_QPA_PLATFORM=xcb", "SDL_VIDEODRIVER=x11",
                                 "SDL_VIDEO_DRIVER=x11", "CLUTTER_BACKEND=x11", "ELM_ENGINE=gl",
                                 "WINIT_UNIX_BACKEND=x11", "XDG_SESSION_TYPE=x11"}) {
        const std::string text = variable;
        const std::string name = text.substr(0, text.find('='));
        // The desk sets the session's type itself, everywhere.
        if (!std::getenv(name.c_str()) || name == "XDG_SESSION_TYPE")
            environment.push_back(text);
    }
    std::fputs("mosa-wall: this desk has Wayland: the program is told to use X11, which the wall "
               "can see\n",
               stderr);
    return environment;
}

std::vector<std::string> captureEnvironment(const LiveOptions& options, const std::string& socket,
                                            int ahead)
{
    namespace names = captureVariables;
    const char* before = std::getenv("LD_LIBRARY_PATH");
    std::vector<std::string> environment{
        "LD_LIBRARY_PATH=" + libraryFolder("capture", "libGL.so.1") +
        (before && *before ? ":" + std::string(before) : "")};
    const auto set = [&environment](const char* name, const std::string& value) {
        environment.push_back(name + ("=" + value));
    };
    set(names::socket, socket);
    set(names::ahead, std::to_string(ahead));
    set(names::frames, std::to_string(options.frames));
    set(names::window, options.window);
    set(names::fit, options.fit);
    set(names::enlarge, options.enlarge);
    set(names::patience, std::to_string(options.patience));
    set(names::showing, options.showing);
    set(names::samples, std::to_string(options.samples));
    for (const auto& [name, library] : {std::pair{names::glx, "libGLX.so.0"},
                                        {names::openGL, "libOpenGL.so.0"},
                                        {names::egl, "libEGL.so.1"}})
        if (const std::string path = libraryPath(library); !path.empty())
            set(name, path);
    return environment;
}

} // namespace

Desk::~Desk() { stopDisplays(displays); }

UsersProgram::~UsersProgram()
{
    if (process.pid > 0)
        stopUsersProgram(*this);
    restoreTerminal(terminal);
}

void openDesk(Desk& desk, bool wanted)
{
    if (!wanted && std::getenv("DISPLAY"))
        return;
    constexpr Size size{1280, 1024};
    desk.displays = startDisplays(1, size.w, size.h);
    desk.environment = {"DISPLAY=" + desk.displays[0].name, "LIBGL_ALWAYS_SOFTWARE=1"};
}

void requireProgram(const LiveOptions& options)
{
    if (findProgram(options.program.at(0)).empty())
        throw std::runtime_error(options.program[0] + ": there is no such program");
}

void startUsersProgram(UsersProgram& program, const LiveOptions& options, const std::string& socket,
                       int ahead, const std::vector<std::string>& more)
{
    std::vector<std::string> environment = captureEnvironment(options, socket, ahead);
    for (const auto& additions : {waylandEnvironment(), more})
        environment.insert(environment.end(), additions.begin(), additions.end());
    program.terminal = keepTerminal();
    program.process =
        startProcess({.argv = options.program, .environment = environment, .isUsers = true});
    program.end = options.seconds > 0
                      ? JobClock::now() + std::chrono::duration_cast<JobClock::duration>(
                                              std::chrono::duration<double>(options.seconds))
                      : JobClock::time_point::max();
}

bool hasEnded(UsersProgram& program, Timeout timeout)
{
    if (program.process.pid < 0)
        return true;
    if (!waitForEnd(program.process, timeout))
        return false;
    program.ending = finishProcess(program.process, Timeout{});
    if (users.wasTold) // to end: what it has left draws on for nobody
        endOrphans(Origin::program, programGrace);
    program.ended = true;
    program.endedAt = JobClock::now();
    return true;
}

bool mayStillDraw(UsersProgram& program, const Drawing& drawing)
{
    if (!hasEnded(program) || drawing.now)
        return true;
    // One that is late to begin, or the next of several that draw in turn.
    constexpr Timeout first = std::chrono::seconds(10), next = std::chrono::seconds(2);
    const auto since = std::max(program.endedAt, drawing.since);
    return programLeftSomething() && JobClock::now() < since + (drawing.begun ? next : first);
}

bool isHeld(UsersProgram& program, const LiveOptions& options, const Drawing& drawing)
{
    return options.frames > 0 && drawing.begun > 0 && !drawing.now &&
           drawing.frames >= options.frames && !hasEnded(program);
}

bool isTimeOver(const UsersProgram& program) { return JobClock::now() >= program.end; }

void stopUsersProgram(UsersProgram& program)
{
    if (program.process.pid > 0) {
        program.ending = stopProcess(program.process, programGrace);
        program.stopped = true;
    } else if (isTimeOver(program)) // what it has left would draw on
        endOrphans(Origin::program, programGrace);
}

void sayDrewNothing(const LiveOptions& options)
{
    if (options.window == "largest" || options.window == "all")
        std::fputs(
            "mosa-wall: the program has drawn nothing with OpenGL that the wall could show\n",
            stderr);
    else
        std::fprintf(stderr,
                     "mosa-wall: the program has drawn into no window with \"%s\" in its title\n",
                     options.window.c_str());
}

int statusOf(const UsersProgram& program, const LiveOptions& options, bool drew)
{
    if (!drew)
        sayDrewNothing(options);
    if (program.ending.signal)
        return -program.ending.signal;
    return program.ending.status == 0 && !drew ? 1 : program.ending.status;
}

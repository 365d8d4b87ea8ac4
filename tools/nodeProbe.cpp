#include "tools/nodeProbe.h"
#include "client/locations.h"
#include "client/programWindow.h"
#include "overload/areaVariables.h"
#include "tools/wallRun.h"

#include <GL/glx.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include <dlfcn.h>
#include <sys/sysinfo.h>
#include <unistd.h>
#include <zlib.h>

namespace {

// What keeps a library from being the servers' OpenGL; empty when nothing does.
std::string faultOfLibrary(const char* name)
{
    if (!name)
        return "no OpenGL library is named";
    void* library = dlopen(name, RTLD_LAZY);
    if (!library)
        return std::string("the OpenGL library ") + name + " cannot be loaded: " + dlerror();
    for (const char* function : {"glXChooseVisual", "glXMakeCurrent"})
        if (!dlsym(library, function))
            return std::string(name) + " is no OpenGL library: it has no " + function;
    return {};
}

// Why a display did not open: it is its screen alone that is missing, or all of it.
std::string faultOfDisplay(const WallEntry& entry)
{
    const std::size_t point = entry.dpyName.find('.', entry.dpyName.find(':'));
    const std::string display = entry.dpyName.substr(0, point);
    Display* dpy = point == std::string::npos ? nullptr : XOpenDisplay(display.c_str());
    if (!dpy)
        return "the display " + display + " cannot be opened";
    XCloseDisplay(dpy);
    return "the display " + display + " has no screen " + std::to_string(entry.scrn);
}

struct Answer {
    Finding finding;
    int samples = 0;
    Size screen = {};
};

// What is wrong with an open display, or worth knowing; empty when nothing is.
Finding judgeScreen(Display* dpy, const WallTile& tile, Size& screen)
{
    const WallEntry& entry = tile.entry;
    const auto fault = [&tile](const std::string& text) { return Finding{tile.line, true, text}; };
    int opcode = 0;
    int event = 0;
    int error = 0;
    if (!XQueryExtension(dpy, "GLX", &opcode, &event, &error))
        return fault("the display " + entry.dpyName + " has no GLX");
    const PixelArea area = areaOf(entry);
    screen = {DisplayWidth(dpy, entry.scrn), DisplayHeight(dpy, entry.scrn)};
    if (entry.rect.w == 0 || (area.w == screen.w && area.h == screen.h))
        return {tile.line, false, ""};
    const std::string text =
        "the tile is " + toText({area.w, area.h}) + ", its screen " + toText(screen);
    // A larger screen shows all of its tile, in its upper left corner.
    return {tile.line, area.w > screen.w || area.h > screen.h, text};
}

// What keeps the server's program from running here as it does there; empty when nothing does.
Finding judgeProgram(const std::string& sumThere)
{
    const std::string program = serverProgram();
    const Ending ending = runProcess(
        {.argv = {program, "--version"}, .environment = {}, .output = Output::capture}, probeTime);
    const auto firstLine = [](const std::string& text) { return text.substr(0, text.find('\n')); };
    if (ending.status != 0)
        return {0, true, program + " does not run: " + firstLine(ending.err)};
    if (firstLine(ending.out) != MOSA_VERSION)
        return {0, true,
                program + " is of version " + firstLine(ending.out) + ", not " + MOSA_VERSION};
    const char* overloads = std::getenv("MOSA_OVERLOAD_FILE");
    if (overloads && *overloads && access(overloads, R_OK) != 0)
        return {0, true, std::string(overloads) + ": " + std::strerror(errno)};
    if (sumOf(program) != sumThere)
        return {0, false, program + " is another build than here"};
    return {};
}

// What keeps MPI from beginning here: it would end with a bus error, or with many words and no
// node.
std::string faultOfMemory()
{
    constexpr char folder[] = "/dev/shm";
    constexpr std::uintmax_t perTask = std::uintmax_t{9} << 19; // 4.5 MiB: 4.2 as measured
    const char* here = std::getenv("MPI_LOCALNRANKS"); // set by mpiexec: tasks on this node
    const auto tasks = static_cast<unsigned>(std::max(here ? std::atoi(here) : 1, 1));
    std::error_code unknown;
    const std::uintmax_t room = std::filesystem::space(folder, unknown).available;
    if (unknown || room >= tasks * perTask)
        return {};
    return std::string(folder) + " has room for " + std::to_string(room >> 10) +
           " KiB only: " + std::to_string(tasks) +
           (tasks == 1 ? " MPI task needs " : " MPI tasks need ") +
           std::to_string((tasks * perTask) >> 10);
}

// A name of another machine that this one takes for itself: what is meant for that one never
// leaves.
std::string faultOfNames(const std::string& names)
{
    std::istringstream list(names);
    for (std::string name; std::getline(list, name, ',');)
        if (name != "." && name != "localhost" && name != ownHostName() && net::isLoopback(name))
            return "the name " + name + " leads to this node itself: see its /etc/hosts";
    return {};
}

// What keeps a server from showing its tile, or is worth knowing; empty when nothing is.
Answer judgeServer(const Wall& wall, std::size_t server, const SumsThere& sums)
{
    if (sumOf(wall.file) != sums.wall)
        return {{0, true, "the wall file is another one there: " + wall.file}};
    const std::size_t entry = entryOf(server);
    if (entry >= wall.tiles.size())
        return {{0, true, "the wall file has too few entries on this node"}};
    const WallTile& tile = wall.tiles[entry];
    const Finding program = judgeProgram(sums.server);
    if (program.fault)
        return {{tile.line, true, program.text}};
    for (const std::string& fault : {faultOfNames(sums.hosts), faultOfMemory(),
                                     faultOfLibrary(std::getenv("SYSTEM_OPENGL_LIB"))})
        if (!fault.empty())
            return {{tile.line, true, fault}};
    Display* dpy = XOpenDisplay(tile.entry.dpyName.c_str());
    if (!dpy)
        return {{tile.line, true, faultOfDisplay(tile.entry)}};
    Answer answer{};
    answer.finding = judgeScreen(dpy, tile, answer.screen);
    XCloseDisplay(dpy);
    if (!answer.finding.fault)
        answer.samples =
            mostSamples(tile.entry.dpyName, tile.entry.scrn, std::getenv("SYSTEM_OPENGL_LIB"));
    if (answer.finding.text.empty())
        answer.finding.text = program.text;
    return answer;
}

// Of memory, with what the kernel would give up for it.
long long freeBytes()
{
    std::ifstream file("/proc/meminfo");
    std::string name;
    long long kibibytes = 0;
    while (file >> name >> kibibytes && name != "MemAvailable:")
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    return file ? kibibytes << 10 : 0;
}

} // namespace

std::string sumOf(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    const std::string& all = bytes.str();
    const uLong sum = crc32_z(0, reinterpret_cast<const Bytef*>(all.data()), all.size());
    return std::to_string(all.size()) + "." + std::to_string(sum);
}

int mostSamples(const std::string& display, int screen, const std::string& library)
{
    Display* dpy = XOpenDisplay(display.c_str());
    void* const loaded = dpy ? dlopen(library.c_str(), RTLD_LAZY) : nullptr;
    auto* const choose =
        loaded ? reinterpret_cast<decltype(&glXChooseVisual)>(dlsym(loaded, "glXChooseVisual"))
               : nullptr;
    int samples = choose ? 16 : 0;
    for (; samples > 1; samples /= 2) {
        // As the capture library asks for at most.
        std::vector<int> wanted(std::begin(usualAttributes), std::end(usualAttributes));
        wanted.insert(wanted.end(), {GLX_ALPHA_SIZE, 1, GLX_DEPTH_SIZE, 1, GLX_STENCIL_SIZE, 1,
                                     GLX_SAMPLE_BUFFERS, 1, GLX_SAMPLES, samples, None});
        if (XVisualInfo* visual = choose(dpy, screen, wanted.data())) {
            XFree(visual);
            break;
        }
    }
    if (dpy)
        XCloseDisplay(dpy);
    return samples > 1 ? samples : 0;
}

int probeNode(const std::string& wallFile, const SumsThere& sums)
{
    const char* rank = std::getenv("PMI_RANK");
    const int server = (rank ? std::atoi(rank) : 0) - 1;
    Answer answer{};
    try {
        answer = judgeServer(readWall(wallFile), static_cast<std::size_t>(server), sums);
    } catch (const std::exception& trouble) {
        answer.finding = {0, true, trouble.what()};
    }
    struct sysinfo node {};
    sysinfo(&node);
    std::printf("%s %d %d %d %d %d %d %ld %lld %s\n", answerMark, server, answer.finding.fault,
                answer.samples, freePort(), answer.screen.w, answer.screen.h, node.uptime,
                freeBytes(), answer.finding.text.c_str());
    return 0;
}

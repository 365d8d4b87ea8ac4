#include "tools/wallRun.h"
#include "client/locations.h"
#include "tools/wallDrawing.h"

#include <GL/glx.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include <dlfcn.h>
#include <unistd.h>
#include <zlib.h>

namespace {

constexpr Timeout probeTime = std::chrono::seconds(60);
// Begins an answer: mark, server, whether it is a fault, samples of a pixel, a free port, what
// there is to say.
constexpr char answerMark[] = "mosa-wall-probe";

std::string openGLOf(const char* fromEnvironment)
{
    return fromEnvironment ? fromEnvironment : findSystemOpenGL();
}

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

// What is wrong with an open display, or worth knowing; empty when nothing is.
Finding judgeScreen(Display* dpy, const WallTile& tile)
{
    const WallEntry& entry = tile.entry;
    const auto fault = [&tile](const std::string& text) { return Finding{tile.line, true, text}; };
    int opcode = 0;
    int event = 0;
    int error = 0;
    if (!XQueryExtension(dpy, "GLX", &opcode, &event, &error))
        return fault("the display " + entry.dpyName + " has no GLX");
    const PixelArea area = areaOf(entry);
    const Size screen{DisplayWidth(dpy, entry.scrn), DisplayHeight(dpy, entry.scrn)};
    if (entry.rect.w == 0 || (area.w == screen.w && area.h == screen.h))
        return {tile.line, false, ""};
    const std::string text =
        "the tile is " + toText({area.w, area.h}) + ", its screen " + toText(screen);
    // A larger screen shows all of its tile, in its upper left corner.
    return {tile.line, area.w > screen.w || area.h > screen.h, text};
}

// Tells contents apart, not who made them.
std::string sumOf(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    const std::string& all = bytes.str();
    const uLong sum = crc32_z(0, reinterpret_cast<const Bytef*>(all.data()), all.size());
    return std::to_string(all.size()) + "." + std::to_string(sum);
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

// What keeps a server from showing its tile, or is worth knowing; empty when nothing is.
Finding judgeServer(const Wall& wall, std::size_t server, const SumsThere& sums, int& samples)
{
    if (sumOf(wall.file) != sums.wall)
        return {0, true, "the wall file is another one there: " + wall.file};
    if (server >= wall.tiles.size())
        return {0, true, "the wall file has too few entries on this node"};
    const WallTile& tile = wall.tiles[server];
    const Finding program = judgeProgram(sums.server);
    if (program.fault)
        return {tile.line, true, program.text};
    for (const std::string& fault :
         {faultOfMemory(), faultOfLibrary(std::getenv("SYSTEM_OPENGL_LIB"))})
        if (!fault.empty())
            return {tile.line, true, fault};
    Display* dpy = XOpenDisplay(tile.entry.dpyName.c_str());
    if (!dpy)
        return {tile.line, true, faultOfDisplay(tile.entry)};
    const Finding finding = judgeScreen(dpy, tile);
    XCloseDisplay(dpy);
    if (!finding.fault)
        samples =
            mostSamples(tile.entry.dpyName, tile.entry.scrn, std::getenv("SYSTEM_OPENGL_LIB"));
    return finding.text.empty() ? Finding{tile.line, false, program.text} : finding;
}

// Runs the job that asks the nodes, until it ends or one of them cannot be reached.
Ending askNodes(const Job& job)
{
    constexpr Timeout step = std::chrono::milliseconds(100);
    constexpr Timeout others = std::chrono::seconds(2); // those that can be reached answer by then
    Process process = startJob(job);
    closeInput(process);
    for (Timeout spent{}; spent < probeTime && !waitForEnd(process, step); spent += step)
        if (launcherFailed(process.pid)) {
            waitForEnd(process, others);
            break;
        }
    return waitForEnd(process, Timeout{}) ? finishProcess(process, step) : stopProcess(process);
}

// The task that a line of output begins with, when tasks are labelled: "[2] text"; the line is then
// what follows. -1 when it is mpiexec's own.
int takeTask(std::string& line)
{
    int task = -1;
    int length = 0;
    if (std::sscanf(line.c_str(), "[%d] %n", &task, &length) != 1 || length == 0)
        return -1;
    line.erase(0, static_cast<std::size_t>(length));
    return task;
}

std::string inLowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Takes out of what was said why a server's node is silent: its own words, else mpiexec's or ssh's.
// Empty when nobody says why.
std::string takeReason(std::string& words, int task, const std::string& host)
{
    std::istringstream lines(words);
    std::string reason, rest;
    for (std::string line; std::getline(lines, line);) {
        std::string text = line;
        const std::size_t program = line.find("execvp error on file ");
        if (program != line.npos && line.find("@" + host + "]") != line.npos)
            reason = line.substr(line.find("file ", program) + 5);
        else if (takeTask(text) == task)
            reason = text;
        else if (reason.empty() && !host.empty() && !isRemark(line) &&
                 inLowerCase(line).find(inLowerCase(host)) != line.npos)
            reason = line;
        else
            rest += line + "\n";
    }
    words = rest;
    while (!reason.empty() && std::isspace(static_cast<unsigned char>(reason.back())))
        reason.pop_back();
    return reason;
}

bool hasFault(const std::vector<Finding>& findings)
{
    return std::ranges::any_of(findings, &Finding::fault);
}

std::string withoutRemarks(const std::string& text)
{
    std::istringstream lines(text);
    std::string kept;
    for (std::string line; std::getline(lines, line);)
        if (!isRemark(line))
            kept += (kept.empty() ? "" : "\n") + line;
    return kept;
}

} // namespace

LastFrame lastFrameOn(const Wall& wall, const std::vector<Place>& places,
                      const PlayOptions& options, const std::string& picture)
{
    LastFrame last{.picture = {}, .then = options.then, .hold = options.hold};
    if (!picture.empty())
        last.picture = [=] { writePng(picture, snapshotWall(wall, places)); };
    return last;
}

Job playJob(const std::vector<std::string>& files, const PlayOptions& options,
            const LastFrame& last)
{
    Job job;
    job.inputPipe = last.picture || !last.then.empty() || last.hold > 0;
    job.client = {playProgram()};
    for (const auto& more : {files, playArguments(options, job.inputPipe)})
        job.client.insert(job.client.end(), more.begin(), more.end());
    job.server = {serverProgram()};
    return job;
}

Job liveJob(const PlayOptions& options)
{
    Job job;
    job.client = {playProgram()};
    if (options.loose)
        job.client.emplace_back("--loose");
    job.server = {serverProgram()};
    return job;
}

bool loadOverloads(Job& job, bool plain)
{
    const char* own = std::getenv("MOSA_OVERLOAD_FILE");
    if (own && *own)
        return false;
    const char* const list = plain ? "plain.list" : "exact.list";
    job.environment.push_back("MOSA_OVERLOAD_FILE=" + libraryFolder("overload", list) + "/" + list);
    return true;
}

void putOnWall(Job& job, const Wall& wall, const std::vector<Host>& hosts)
{
    job.servers = static_cast<int>(wall.tiles.size());
    job.environment = {"MOSA_DISPLAY=" + std::filesystem::absolute(wall.file).string(),
                       "SYSTEM_OPENGL_LIB=" + openGLOf(std::getenv("SYSTEM_OPENGL_LIB"))};
    if (!hosts.empty()) {
        for (const Place& place : placeServers(hosts, job.servers))
            job.hosts.push_back(place.host);
        std::string list = ownHostName() + ":1";
        for (const Host& host : hosts)
            list += "," + host.name + ":" + std::to_string(host.servers);
        job.options = {"-hosts", list};
        // Large messages at once, not when the other side asks for them: the line to the servers
        // would rest while they exchange what they have.
        if (!std::getenv("UCX_RNDV_THRESH"))
            job.environment.emplace_back("UCX_RNDV_THRESH=inf");
    }
}

StreamFile requireStream(const std::string& file)
{
    if (!std::filesystem::exists(file))
        throw std::runtime_error(file + ": no such file, and no scene of that name (a program "
                                        "stands behind --); mosa-wall demo "
                                        "--list names the scenes");
    return readStreamFile(file);
}

void requireWritable(const std::string& file)
{
    const std::string folder = std::filesystem::absolute(file).parent_path();
    if (access(folder.c_str(), W_OK) != 0)
        throw std::runtime_error(file + ": its folder: " + std::strerror(errno));
    if (std::filesystem::is_directory(file))
        throw std::runtime_error(file + " is a folder");
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
        int wanted[] = {GLX_RGBA,
                        GLX_DOUBLEBUFFER,
                        GLX_RED_SIZE,
                        1,
                        GLX_GREEN_SIZE,
                        1,
                        GLX_BLUE_SIZE,
                        1,
                        GLX_ALPHA_SIZE,
                        1,
                        GLX_DEPTH_SIZE,
                        1,
                        GLX_STENCIL_SIZE,
                        1,
                        GLX_SAMPLE_BUFFERS,
                        1,
                        GLX_SAMPLES,
                        samples,
                        None};
        if (XVisualInfo* visual = choose(dpy, screen, wanted)) {
            XFree(visual);
            break;
        }
    }
    if (dpy)
        XCloseDisplay(dpy);
    return samples > 1 ? samples : 0;
}

WallAnswers probeWall(const Wall& wall, const Job& job, const std::vector<Place>& places)
{
    Job probe = job;
    // Keeps the client's place, until mpiexec has handed it the end of its input: one that has gone
    // by then is mpiexec's own end (SIGPIPE).
    probe.client = {"cat"};
    probe.label = true;
    const std::string file = std::filesystem::absolute(wall.file);
    probe.server = {ownProgram(), "probe", file, sumOf(file), sumOf(serverProgram())};
    probe.output = Output::capture;
    probe.inputPipe = true;
    if (!job.options.empty())
        std::fputs("mosa-wall: asking the nodes ...\n", stderr);
    const Ending ending = askNodes(probe);

    std::map<std::size_t, Finding> answers;
    int samples = INT_MAX;
    int hubPort = 0;
    std::istringstream out(ending.out);
    for (std::string line; std::getline(out, line);) {
        takeTask(line);
        std::istringstream words(line);
        std::string mark;
        std::size_t server = 0;
        Finding answer{};
        int ofServer = 0;
        int port = 0;
        if (words >> mark >> server >> answer.fault >> ofServer >> port && mark == answerMark) {
            samples = std::min(samples, ofServer);
            if (server == 0)
                hubPort = port;
            std::getline(words >> std::ws, answer.text);
            answers[server] = answer;
        }
    }
    std::vector<Finding> findings;
    std::string said = ending.err;
    bool isExplained = true;
    for (std::size_t server = 0; server < wall.tiles.size(); ++server) {
        const auto answer = answers.find(server);
        const bool silent = answer == answers.end();
        if (!silent && answer->second.text.empty())
            continue;
        const int line = wall.tiles[server].line;
        const std::string& host = places.at(server).host;
        std::string text =
            silent ? takeReason(said, static_cast<int>(server) + 1, host) : answer->second.text;
        if (text.empty()) {
            text = "its node does not answer";
            isExplained = false;
        }
        findings.push_back({line, silent || answer->second.fault,
                            "server " + std::to_string(server) + " (line " + std::to_string(line) +
                                ")" + (host.empty() ? "" : " on " + host) + ": " + text});
    }
    if (ending.status != 0) { // the launcher's own words say why
        const std::string words = withoutRemarks(said);
        if (findings.empty() || !isExplained || (!words.empty() && !hasFault(findings)))
            findings.push_back({0, true,
                                words.empty()
                                    ? "mpiexec failed, status " + std::to_string(ending.status) +
                                          (ending.err.empty() ? "" : ": " + ending.err)
                                    : words});
    }
    return {findings, answers.size() == wall.tiles.size() ? samples : 0, hubPort};
}

int probeNode(const std::string& wallFile, const SumsThere& sums)
{
    const char* rank = std::getenv("PMI_RANK");
    const int server = (rank ? std::atoi(rank) : 0) - 1;
    Finding finding{};
    int samples = 0;
    try {
        finding = judgeServer(readWall(wallFile), static_cast<std::size_t>(server), sums, samples);
    } catch (const std::exception& trouble) {
        finding = {0, true, trouble.what()};
    }
    std::printf("%s %d %d %d %d %s\n", answerMark, server, finding.fault, samples, freePort(),
                finding.text.c_str());
    return 0;
}

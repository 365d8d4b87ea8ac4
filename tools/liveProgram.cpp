#include "tools/liveProgram.h"
#include "client/captureSocket.h"
#include "client/locations.h"
#include "client/playOptions.h"
#include "client/streamFile.h"
#include "tools/virtualDisplays.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <dlfcn.h>
#include <link.h>
#include <sys/resource.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr Timeout startTime = std::chrono::minutes(1); // for a job, until play is ready
constexpr Timeout endTime = std::chrono::minutes(1);
constexpr Timeout programGrace = std::chrono::seconds(2);
constexpr Timeout orphanGrace = std::chrono::seconds(10), orphanStep{50};

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

// ---- The program's environment -----------------------------------------------------------------

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

std::vector<std::string> captureEnvironment(const LiveOptions& options, const std::string& socket,
                                            int ahead)
{
    const char* before = std::getenv("LD_LIBRARY_PATH");
    std::vector<std::string> environment{
        "LD_LIBRARY_PATH=" + libraryFolder("capture", "libGL.so.1") +
            (before && *before ? ":" + std::string(before) : ""),
        "MOSA_CAPTURE=" + socket,
        "MOSA_CAPTURE_AHEAD=" + std::to_string(ahead),
        "MOSA_CAPTURE_FRAMES=" + std::to_string(options.frames),
        "MOSA_CAPTURE_WINDOW=" + options.window,
        "MOSA_CAPTURE_FIT=" + options.fit,
        "MOSA_CAPTURE_AS=" + options.showing,
        "MOSA_CAPTURE_SAMPLES=" + std::to_string(options.samples),
    };
    for (const auto& [variable, library] : {std::pair{"MOSA_CAPTURE_GLX=", "libGLX.so.0"},
                                            {"MOSA_CAPTURE_OPENGL=", "libOpenGL.so.0"},
                                            {"MOSA_CAPTURE_EGL=", "libEGL.so.1"}})
        if (const std::string path = libraryPath(library); !path.empty())
            environment.push_back(variable + path);
    return environment;
}

Process startProgram(const LiveOptions& options, const std::vector<std::string>& environment)
{
    return startProcess({.argv = options.program,
                         .environment = environment,
                         .output = Output::inherit,
                         .inputPipe = false,
                         .inheritInput = true});
}

// A desk for a program where there is none.
struct Desk {
    std::vector<VirtualDisplay> displays;
    std::vector<std::string> environment;
    ~Desk() { stopDisplays(displays); }
};

void openDesk(Desk& desk, bool wanted)
{
    if (!wanted && std::getenv("DISPLAY"))
        return;
    constexpr Size size{1280, 1024};
    desk.displays = startDisplays(1, size.w, size.h);
    desk.environment = {"DISPLAY=" + desk.displays[0].name, "LIBGL_ALWAYS_SOFTWARE=1"};
}

std::string sizeText(long bytes)
{
    char text[32];
    const bool isLarge = bytes >= 1'000'000;
    std::snprintf(text, sizeof text, "%.1f %s", static_cast<double>(bytes) / (isLarge ? 1e6 : 1e3),
                  isLarge ? "MB" : "KB");
    return text;
}

bool isTerminal() { return isatty(STDERR_FILENO) != 0; }

} // namespace

int runLive(Job job, const LiveOptions& options, Size wall, int ahead, const LastFrame& last,
            std::FILE* to, bool virtualDesk)
{
    const std::string program = findProgram(options.program.at(0));
    if (program.empty())
        throw std::runtime_error(options.program[0] + ": there is no such program");
    Desk desk;
    openDesk(desk, virtualDesk);
    const std::string socket = temporaryFile("");
    job.client.insert(job.client.end(), {"--live", socket, "--wait"});
    if (isTerminal())
        job.client.emplace_back("--progress");
    job.inputPipe = true;
    if (options.fit == "stretch")
        job.environment.emplace_back("MOSA_KEEP_ASPECT_RATIO=0");

    JobWatch watch = startWatch(job, to);
    bool jobEnded = passOutput(watch, JobClock::now() + startTime);
    if (!watch.out.ready) {
        const JobEnding ending = finishWatch(watch, Timeout{});
        std::fputs(ending.err.c_str(), stderr);
        reportEnding(ending);
        return 1; // the program was not started
    }

    std::vector<std::string> environment = captureEnvironment(options, socket, ahead);
    environment.push_back("MOSA_CAPTURE_WALL=" + toText(wall));
    environment.insert(environment.end(), desk.environment.begin(), desk.environment.end());
    Process running = startProgram(options, environment);
    const JobClock::time_point end =
        options.seconds > 0 ? JobClock::now() + std::chrono::duration_cast<JobClock::duration>(
                                                    std::chrono::duration<double>(options.seconds))
                            : JobClock::time_point::max();
    // Until the program or the job has ended, the time is over or the program's stream.
    jobEnded = passOutput(watch, end, running.pidFd);
    const bool timeIsOver = JobClock::now() >= end;
    if (timeIsOver) {
        stopProcess(running, programGrace);
        endWaiting(socket);
    } else if (waitForEnd(running, Timeout{})) {
        // One that it has left behind may be about to draw.
        const JobClock::time_point latest = JobClock::now() + orphanGrace;
        while (!jobEnded && !watch.out.draws && hasOrphans() && JobClock::now() < latest)
            jobEnded = passOutput(watch, JobClock::now() + orphanStep);
        endWaiting(socket); // if it has not connected by now
    }
    std::string trouble;
    if (!jobEnded && !watch.out.shown) {
        const auto until = timeIsOver ? JobClock::now() + endTime : JobClock::time_point::max();
        jobEnded = passOutput(watch, until);
    }
    if (!jobEnded && watch.out.shown)
        trouble = useLastFrame(watch, last);
    JobEnding ending = finishWatch(watch, endTime);
    ending.trouble = trouble;
    if (isTerminal())
        std::fputc('\n', stderr);
    std::fputs(ending.out.c_str(), stderr); // play's summary
    if (ending.status != 0)
        std::fputs(ending.err.c_str(), stderr);
    const int jobStatus = reportEnding(ending);
    const bool drew = watch.out.draws;
    if (timeIsOver && !drew)
        sayDrewNothing(options);
    if (timeIsOver)
        return jobStatus == 0 && !drew ? 1 : jobStatus;
    if (options.frames > 0 && !waitForEnd(running, Timeout{})) {
        stopProcess(running, programGrace);
        return jobStatus;
    }
    // A wall that fails does not take the program along, nor its time.
    while (!waitForEnd(running, orphanStep) && JobClock::now() < end) {
    }
    const int status = (waitForEnd(running, Timeout{}) ? finishProcess(running, Timeout{})
                                                       : stopProcess(running, programGrace))
                           .status;
    if (!drew)
        sayDrewNothing(options);
    return status == 0 && !drew ? 1 : status;
}

int recordProgram(const LiveOptions& options, const std::string& file)
{
    if (findProgram(options.program.at(0)).empty())
        throw std::runtime_error(options.program[0] + ": there is no such program");
    Desk desk;
    openDesk(desk, false);
    const std::string path = temporaryFile("");
    CaptureSocket socket;
    listenForProgram(socket, path);
    std::FILE* const out = std::fopen(file.c_str(), "wb");
    if (!out)
        throw std::runtime_error(file + ": " + std::strerror(errno));
    // Whole frames count: what follows the last one is cut off at the end.
    long whole = 0, frames = 0;
    std::string trouble;
    const auto write = [&](const void* data, std::size_t bytes) {
        if (trouble.empty() && std::fwrite(data, 1, bytes, out) != bytes)
            trouble = file + ": " + std::strerror(errno);
    };
    write(&ownHandshake, sizeof ownHandshake);
    whole = std::ftell(out);

    LiveOptions once = options;
    once.fit = "corner";
    once.samples = 0;         // whoever plays it may have none
    constexpr int ahead = 64; // a file is quick: what bounds a program's lead is the memory between
    std::vector<std::string> environment = captureEnvironment(once, path, ahead);
    environment.insert(environment.end(), desk.environment.begin(), desk.environment.end());
    Process running = startProgram(options, environment);
    using Clock = JobClock;
    const Clock::time_point start = Clock::now();
    const auto seconds = [start] {
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    _hdr hdr{};
    std::span<const unsigned char> bytes;
    constexpr long tick = 200'000; // microseconds
    bool stopped = false;
    for (bool connected = false;;) {
        const Arrival arrival = waitForBuffer(
            socket, tick, connected || waitForEnd(running, Timeout{}) ? -1 : running.pidFd, hdr,
            bytes);
        if (arrival == Arrival::end)
            break;
        connected |= arrival == Arrival::program;
        if (arrival == Arrival::buffer) {
            write(&hdr, sizeof hdr);
            write(bytes.data(), bytes.size());
            if (hdr.sync && std::fflush(out) != 0 && trouble.empty())
                trouble = file + ": " + std::strerror(errno);
            if (hdr.sync && trouble.empty()) {
                whole = std::ftell(out);
                ++frames;
            }
            answerFrames(socket, hdr.sync != 0);
            if (!trouble.empty())
                break;
        }
        static Clock::time_point said;
        if (isTerminal() && Clock::now() - said > std::chrono::milliseconds(500)) {
            said = Clock::now();
            std::fprintf(stderr, "\rmosa-wall: %ld frames, %.0f per second, %s  ", frames,
                         static_cast<double>(frames) / seconds(), sizeText(whole).c_str());
        }
        if (options.seconds > 0 && seconds() >= options.seconds && !stopped) {
            stopped = true;
            stopProcess(running, programGrace); // its stream then ends
            if (!connected)
                break;
        }
        if (!connected && waitForEnd(running, Timeout{})) {
            static const Clock::time_point latest = Clock::now() + orphanGrace;
            if (!hasOrphans() || Clock::now() > latest)
                break;
        }
    }
    if (isTerminal())
        std::fputc('\n', stderr);
    std::fflush(out);
    if (ftruncate(fileno(out), whole) == 0)
        std::fseek(out, whole, SEEK_SET);
    std::clearerr(out);
    if (std::fwrite(&endOfStream, sizeof endOfStream, 1, out) != 1 || std::fclose(out) != 0)
        trouble = file + ": " + std::strerror(errno);
    if (!trouble.empty()) {
        if (running.pid > 0)
            stopProcess(running, programGrace);
        throw std::runtime_error(trouble + "; " + std::to_string(frames) + " frames were recorded");
    }
    std::fprintf(stderr, "mosa-wall: %s: %ld frames, %s\n", file.c_str(), frames,
                 sizeText(whole).c_str());
    if (stopped && frames == 0)
        sayDrewNothing(options);
    if (stopped)
        return frames > 0 ? 0 : 1;
    if (options.frames > 0 && frames >= options.frames) {
        stopProcess(running, programGrace);
        return 0;
    }
    const int status = finishProcess(running, std::chrono::hours(24 * 365)).status;
    if (frames == 0)
        sayDrewNothing(options);
    return status == 0 && frames == 0 ? 1 : status;
}

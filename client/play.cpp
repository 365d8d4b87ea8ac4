// Plays stream files to the servers of the job, as its task 0.
#include "client/connection.h"
#include "client/live.h"
#include "client/locations.h"
#include "client/playOptions.h"
#include "client/playReports.h"
#include "client/streamFile.h"
#include "shuffle/endTask.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace {

struct Options {
    std::vector<std::string> files;
    PlayOptions play;
    bool wait = false;   // with the last frame, until the standard input ends
    std::string live;    // the socket of running programs, instead of files
    std::string tell;    // the pipe by which whoever started it is told how it goes
    bool steer = false;  // the standard input says where the job's area is to stand
    PointerWall pointer; // the wall that shows it
};

struct Totals {
    long buffers = 0, bytes = 0, frames = 0;
};

Steering steering;

void parse(CLI::App& app, Options& options)
{
    app.description("Plays recorded OpenGL command streams to the servers of an MPI job:\n"
                    "  mpiexec -n 1 play FILE... : -n SERVERS server");
    auto* files = app.add_option("FILE", options.files,
                                 "stream files, also gzip-compressed, or names of scenes");
    auto* live = app.add_option("--live", options.live,
                                "instead of files, programs that are captured: the socket on which "
                                "they connect; mosa-wall run starts all");
    live->excludes(files);
    addPlayOptions(app, options.play);
    app.add_flag("--wait", options.wait,
                 "once the last frame is on the wall, say so and keep it there until the standard "
                 "input ends");
    app.add_option("--tell", options.tell,
                   "a pipe that has a name: mosa-wall is told by records there, not by lines");
    app.add_flag("--steer", options.steer,
                 "lines on the standard input say where the job's area of the wall is to stand: "
                 "mosa-wall move and raise write them");
    app.add_option_function<std::string>(
           "--pointer",
           [&options](const std::string& text) {
               PointerWall& wall = options.pointer;
               char fit[8] = "";
               if (std::sscanf(text.c_str(), "%dx%d:%7s", &wall.width, &wall.height, fit) != 3)
                   throw CLI::ValidationError("--pointer", "it reads like 1920x1080:middle");
               wall.isMiddle = fit == std::string("middle");
               wall.isStretched = fit == std::string("stretch");
           },
           "the program's mouse pointer is shown on a wall of this size, the program in its "
           "middle, corner, or stretched: mosa-wall run says so")
        ->type_name("WxH:FIT")
        ->needs(live);
    app.set_version_flag("--version", MOSA_VERSION);
}

void showProgress(const Totals& totals)
{
    static const bool terminal = isatty(STDERR_FILENO) != 0;
    static std::chrono::steady_clock::time_point shown;
    if (!terminal || std::chrono::steady_clock::now() - shown < std::chrono::milliseconds(100))
        return;
    shown = std::chrono::steady_clock::now();
    std::fprintf(stderr, "\rplay: frame %ld", totals.frames);
}

// Sends buffers [first, last) of a file.
void playBuffers(Connection& connection, const StreamFile& file, std::size_t first,
                 std::size_t last, const Options& options, Totals& totals)
{
    for (std::size_t i = first; i < last; ++i) {
        const StreamBuffer& buffer = file.buffers[i];
        sendBuffer(connection, file.bytes.data() + buffer.offset, buffer.hdr, options.play.ahead);
        ++totals.buffers;
        totals.bytes += buffer.hdr.size;
        totals.frames += buffer.hdr.sync != 0;
        steerServers(connection, steering);
        showProgress(totals);
    }
}

// The first buffer of a file's second frame.
std::size_t secondFrame(const StreamFile& file)
{
    std::size_t i = 0;
    while (i < file.buffers.size() && !file.buffers[i++].hdr.sync) {
    }
    return i;
}

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void playAll(Connection& connection, const std::vector<StreamFile>& files, const Options& options)
{
    // The first frame opens displays and shows their banner: it does not count for the rate.
    Clock::time_point start = Clock::now();
    Totals totals;
    const StreamFile& opening = files.front();
    playBuffers(connection, opening, 0, secondFrame(opening), options, totals);
    waitForAcknowledgements(connection, 0);
    const double opened = secondsSince(start);
    const long before = totals.frames;
    start = Clock::now();

    for (const StreamFile& file : files) {
        const std::size_t second = secondFrame(file);
        const std::size_t end = file.buffers.size();
        playBuffers(connection, file, &file == &opening ? second : 0, end, options, totals);
        for (int i = 1; i < options.play.loop; ++i)
            playBuffers(connection, file, second, end, options, totals);
    }
    finishServers(connection);
    const double seconds = secondsSince(start);

    if (isatty(STDERR_FILENO))
        std::fputc('\r', stderr);
    const long later = totals.frames - before;
    tell({.event = PlayEvent::played,
          .isLive = 0,
          .frames = totals.frames,
          .buffers = totals.buffers,
          .bytes = totals.bytes,
          .seconds = opened + seconds,
          .perSecond = static_cast<double>(later) / seconds});
}

// Waits until the standard input ends.
void waitForEnd(Connection& connection)
{
    while (steering.fd >= 0) {
        pollfd said{steering.fd, POLLIN, 0};
        poll(&said, 1, -1);
        steerServers(connection, steering);
    }
    finishServers(connection);
}

// What is done while the last frame is on the wall. Returns an exit status.
int useLastFrame(Connection& connection, const Options& options)
{
    int status = 0;
    const std::string& command = options.play.then;
    if (!command.empty() && std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "play: the command failed: %s\n", command.c_str());
        status = 1;
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(options.play.hold));
    if (options.wait) {
        tell(PlayEvent::shown);
        steering.fd = steering.hasEnded ? -1 : STDIN_FILENO; // without --steer nothing else is said
        waitForEnd(connection);
    }
    return status;
}

int playIt(Connection& connection, const std::vector<StreamFile>& files, const Options& options)
{
    if (options.live.empty()) {
        playAll(connection, files, options);
        return 0;
    }
    try {
        playLive(connection, options.live, steering, options.pointer);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "play: %s\n", fault.what());
        return 1;
    }
    return 0;
}

// True when the servers' swaps are tied together: then the first one's acknowledgement stands for
// all.
bool swapsAreTied()
{
    const char* asked = std::getenv("MOSA_SWAP_ON_RETRACE");
    return asked && std::atoi(asked) != 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app;
    parse(app, options);
    CLI11_PARSE(app, argc, argv);
    if (options.files.empty() && options.live.empty()) {
        std::fputs("FILE is required\nRun with --help for more information.\n", stderr);
        return static_cast<int>(CLI::ExitCodes::RequiredError);
    }

    if (options.steer)
        steering.fd = STDIN_FILENO;

    // A damaged file is found before anything of it is sent; the job still ends in order.
    std::vector<StreamFile> files;
    int status = 0;
    try {
        if (!options.tell.empty())
            tellBy(options.tell);
        for (const std::string& name : options.files)
            files.push_back(readStreamFile(findStream(name)));
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "play: %s\n", fault.what());
        files.clear();
        status = 1;
    }

    MPI_Init(&argc, &argv);
    Connection connection;
    connection.loose = options.play.loose || swapsAreTied();
    connectServers(connection, files.empty() ? ownHandshake : files.front().handshake);
    if (status == 0) {
        status = playIt(connection, files, options);
        if (status == 0)
            status = useLastFrame(connection, options);
    }
    disconnectServers(connection);
    endTask(status);
    return status;
}

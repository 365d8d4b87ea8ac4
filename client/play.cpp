// Plays stream files to the servers of the job, as its task 0.
#include "client/connection.h"
#include "client/streamFile.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

struct Options {
    std::vector<std::string> files;
    int loop = 1;
    int ahead = 2;
    double hold = 0;
    std::string then;
};

struct Totals {
    long buffers = 0, bytes = 0, frames = 0;
};

void parse(CLI::App& app, Options& options)
{
    app.description("Plays recorded OpenGL command streams to the servers of an MPI job:\n"
                    "  mpiexec -n 1 play FILE... : -n SERVERS server");
    app.add_option("FILE", options.files, "stream files, also gzip-compressed")->required();
    app.add_option("--loop", options.loop,
                   "play the frames N times; the first frame of a file, which creates the "
                   "contexts, plays once")
        ->check(CLI::PositiveNumber);
    app.add_option("--ahead", options.ahead,
                   "how many synchronised frames may be on their way at once")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--hold", options.hold, "keep the last frame on the wall for so many seconds")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--then", options.then,
                   "run this shell command once the last frame is on the wall");
    app.set_version_flag("--version", MOSA_VERSION);
}

void showProgress(const Totals& totals)
{
    using Clock = std::chrono::steady_clock;
    static const bool terminal = isatty(STDERR_FILENO) != 0;
    static Clock::time_point shown;
    if (!terminal || Clock::now() - shown < std::chrono::milliseconds(100))
        return;
    shown = Clock::now();
    std::fprintf(stderr, "\rplay: frame %ld", totals.frames);
}

// Sends buffers [first, last) of a file.
void playBuffers(Connection& connection, const StreamFile& file, std::size_t first,
                 std::size_t last, const Options& options, Totals& totals)
{
    for (std::size_t i = first; i < last; ++i) {
        const StreamBuffer& buffer = file.buffers[i];
        sendBuffer(connection, file.bytes.data() + buffer.offset, buffer.hdr, options.ahead);
        ++totals.buffers;
        totals.bytes += buffer.hdr.size;
        totals.frames += buffer.hdr.sync != 0;
        showProgress(totals);
    }
}

void playFile(Connection& connection, const StreamFile& file, const Options& options,
              Totals& totals)
{
    const std::size_t buffers = file.buffers.size();
    std::size_t second = 0; // the first buffer of the second frame
    while (second < buffers && !file.buffers[second++].hdr.sync) {
    }
    playBuffers(connection, file, 0, buffers, options, totals);
    for (int i = 1; i < options.loop; ++i)
        playBuffers(connection, file, second, buffers, options, totals);
}

void playAll(Connection& connection, const std::vector<StreamFile>& files, const Options& options)
{
    const auto start = std::chrono::steady_clock::now();
    Totals totals;
    for (const StreamFile& file : files)
        playFile(connection, file, options, totals);
    finishServers(connection);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    if (isatty(STDERR_FILENO))
        std::fputc('\r', stderr);
    std::printf("play: %ld buffers, %ld bytes, %ld frames, %.3f seconds, %.1f frames per second\n",
                totals.buffers, totals.bytes, totals.frames, seconds.count(),
                static_cast<double>(totals.frames) / seconds.count());
    std::fflush(stdout);
}

int runCommand(const std::string& command)
{
    if (command.empty() || std::system(command.c_str()) == 0)
        return 0;
    std::fprintf(stderr, "play: the command failed: %s\n", command.c_str());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app;
    parse(app, options);
    CLI11_PARSE(app, argc, argv);

    // A damaged file is found before anything of it is sent; the job still ends in order.
    std::vector<StreamFile> files;
    int status = 0;
    try {
        for (const std::string& name : options.files)
            files.push_back(readStreamFile(name));
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "play: %s\n", fault.what());
        files.clear();
        status = 1;
    }

    MPI_Init(&argc, &argv);
    Connection connection;
    connectServers(connection, files.empty() ? ownHandshake : files.front().handshake);
    if (status == 0) {
        playAll(connection, files, options);
        status = runCommand(options.then);
        usleep(static_cast<useconds_t>(options.hold * 1e6));
    }
    disconnectServers(connection);
    MPI_Finalize();
    return status;
}

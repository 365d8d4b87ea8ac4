// Task 0 of the measured jobs:
//     slices [BYTES]    buffers to real servers, as every client sends them; of this size alone
//     bcast, whole      the same buffers over tasks that are this program too: by MPI_Bcast, and by
//                       sending all of a buffer to each task
//     latency           time from sending a synchronised buffer to its acknowledgement
//     passing           10,000 buffers, for whoever watches the servers' memory
//     frames N FILE     the times at which a recording's frames were sent, at most N on their way,
//                       ten times over; with one more argument only the first server counts
// Prints one line of JSON for each measurement.
#include "client/connection.h"
#include "client/encoder.h"
#include "client/streamFile.h"
#include "shuffle/endTask.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sched.h>

static long sentBytes; // by this task, in messages

// Every send of the client is an MPI_Isend: counted on its way to the library.
extern "C" int MPI_Isend(const void* data, int count, MPI_Datatype type, int to, int tag,
                         MPI_Comm comm, MPI_Request* request)
{
    sentBytes += count;
    return PMPI_Isend(data, count, type, to, tag, comm, request);
}

namespace {

using Clock = std::chrono::steady_clock;
constexpr double aboutSeconds = 0.25; // of one measurement

double since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// One image that makes the buffer `bytes` long: decoding it costs one call.
CommandBuffer imageBuffer(int bytes)
{
    CommandBuffer buffer;
    encode<Op::glDrawPixels>(buffer, 1, 1, GLenum{GL_LUMINANCE}, GLenum{GL_UNSIGNED_BYTE},
                             Block{"", 0});
    const int pixels = bytes - static_cast<int>(buffer.size());
    const std::vector<char> data(static_cast<std::size_t>(pixels), 'x');
    buffer.clear();
    encode<Op::glDrawPixels>(buffer, pixels, 1, GLenum{GL_LUMINANCE}, GLenum{GL_UNSIGNED_BYTE},
                             Block{data.data(), pixels});
    return buffer;
}

void waitAll(std::vector<MPI_Request>& requests)
{
    for (int flag = 0; !flag; sched_yield())
        MPI_Testall(static_cast<int>(requests.size()), requests.data(), &flag, MPI_STATUSES_IGNORE);
}

void toEachTask(CommandBuffer& buffer, int rank, int nNodes)
{
    std::vector<MPI_Request> requests;
    const int size = static_cast<int>(buffer.size());
    for (int task = 1; task < nNodes; ++task)
        if (rank == 0)
            MPI_Isend(buffer.data(), size, MPI_BYTE, task, clientSliceTag, MPI_COMM_WORLD,
                      &requests.emplace_back());
    if (rank > 0)
        MPI_Irecv(buffer.data(), size, MPI_BYTE, 0, clientSliceTag, MPI_COMM_WORLD,
                  &requests.emplace_back());
    waitAll(requests);
}

void broadcast(CommandBuffer& buffer, int, int)
{
    MPI_Bcast(buffer.data(), static_cast<int>(buffer.size()), MPI_BYTE, 0, MPI_COMM_WORLD);
}

void report(const char* method, int servers, int bytes, int count, double seconds)
{
    std::printf("{\"method\": \"%s\", \"servers\": %d, \"bytes\": %d, \"ms\": %.4f, "
                "\"sent\": %.0f}\n",
                method, servers, bytes, 1e3 * seconds / count,
                static_cast<double>(sentBytes) / count);
    std::fflush(stdout);
}

// How often to repeat what took `seconds` once.
int repeats(double seconds)
{
    return std::clamp(static_cast<int>(aboutSeconds / seconds), 2, 2000);
}

// All tasks are this program: as many passes as the first suggest.
void measurePeers(const char* method, void (*pass)(CommandBuffer&, int, int), int bytes)
{
    int rank = 0;
    int nNodes = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &nNodes);
    CommandBuffer buffer = imageBuffer(bytes);
    pass(buffer, rank, nNodes);
    const auto pilot = Clock::now();
    pass(buffer, rank, nNodes);
    MPI_Barrier(MPI_COMM_WORLD);
    int count = repeats(since(pilot));
    MPI_Bcast(&count, 1, MPI_INT, 0, MPI_COMM_WORLD);
    sentBytes = 0;
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i)
        pass(buffer, rank, nNodes);
    MPI_Barrier(MPI_COMM_WORLD);
    if (rank == 0)
        report(method, nNodes - 1, bytes, count, since(start));
}

// Sends a synchronised buffer of one operation that does nothing, once none is outstanding.
void sendMark(Connection& connection)
{
    CommandBuffer buffer;
    encode<Op::glGetString>(buffer);
    sendBuffer(connection, buffer.data(), {static_cast<std::int32_t>(buffer.size()), 1}, 1);
}

// From the first of `count` buffers on its way to the last one's acknowledgement.
double sendMany(Connection& connection, const CommandBuffer& buffer, int count)
{
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i)
        sendBuffer(connection, buffer.data(),
                   {static_cast<std::int32_t>(buffer.size()), i == count - 1}, 1);
    sendMark(connection);
    return since(start);
}

void measureSlices(Connection& connection, int bytes)
{
    const CommandBuffer buffer = imageBuffer(bytes);
    constexpr int pilot = 20; // most of its time is the decode queue's tick
    const int count = std::max(pilot, repeats(sendMany(connection, buffer, pilot) / pilot));
    sentBytes = 0;
    const double seconds = sendMany(connection, buffer, count);
    report("slices", connection.nNodes - 1, bytes, count, seconds);
}

void measureLatency(Connection& connection)
{
    std::vector<double> times;
    sendMark(connection);
    for (int i = 0; i < 100; ++i) {
        const auto start = Clock::now();
        sendMark(connection); // waits for the one before
        times.push_back(1e3 * since(start));
    }
    std::sort(times.begin(), times.end());
    std::printf("{\"median\": %.3f, \"p90\": %.3f}\n", times[50], times[90]);
}

void passBuffers(Connection& connection)
{
    CommandBuffer buffer = imageBuffer(100'000);
    encode<Op::glFinish>(buffer);
    const double seconds = sendMany(connection, buffer, 10'000);
    std::printf("{\"seconds\": %.3f}\n", seconds);
}

// The library bench_swaps notes the servers' side, by the same clock.
void sendFrames(Connection& connection, int ahead, const StreamFile& file)
{
    std::printf("{\"sent\": [");
    const char* comma = "";
    for (int loop = 0; loop < 10; ++loop) {
        bool first = true; // the frame that makes the context
        for (const StreamBuffer& buffer : file.buffers) {
            if (!first || loop == 0) {
                if (buffer.hdr.sync) {
                    waitForAcknowledgements(connection, ahead - 1);
                    std::printf("%s%.6f", comma, since({}));
                    comma = ", ";
                }
                sendBuffer(connection, file.bytes.data() + buffer.offset, buffer.hdr, ahead);
            }
            first = first && !buffer.hdr.sync;
        }
    }
    std::printf("]}\n");
}

} // namespace

int main(int argc, char** argv)
{
    MPI_Init(&argc, &argv);
    const std::string mode = argc > 1 ? argv[1] : "";
    const int sizes[] = {64 << 10, 1 << 20, 2 << 20, 16 << 20};
    if (mode == "bcast" || mode == "whole") {
        for (const int bytes : sizes)
            measurePeers(mode.c_str(), mode == "bcast" ? broadcast : toEachTask, bytes);
    } else {
        Connection connection;
        connectServers(connection, ownHandshake);
        connection.loose = mode != "frames" || argc > 4;
        if (mode == "slices") {
            for (const int bytes : sizes)
                if (argc < 3 || bytes == std::atoi(argv[2]))
                    measureSlices(connection, bytes);
        } else if (mode == "latency")
            measureLatency(connection);
        else if (mode == "passing")
            passBuffers(connection);
        else if (mode == "frames" && argc >= 4)
            sendFrames(connection, std::atoi(argv[2]), readStreamFile(argv[3]));
        finishServers(connection);
        disconnectServers(connection);
    }
    endTask(0);
    return 0;
}

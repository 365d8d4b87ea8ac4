// A client of bare MPI messages, which can do everything wrong. Its arguments are its steps:
//   handshake VERSION ADDRMODE ENDIAN   only as the first step; otherwise it is 0 0 0
//   send N SYNC TEXT        the same buffer N times, its bytes as in support/bytes.h
//   header SIZE SYNC        a header alone
//   slice TASK SIZE         a slice of zeros
//   planned N               N buffers of all sizes and their checksum, acknowledgements checked
//   acknowledged N          waits for N acknowledgements, and finds no further one
//   die                     ends at once, without a word to MPI
//   wait                    until a signal ends it
//   end                     ends the stream
#include "shuffle/betweenPolls.h"
#include "tests/support/bytes.h"
#include "wire/values.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <random>
#include <unistd.h>

#include <mpi.h>
#include <zlib.h>

namespace {

enum Tag { header = 1, clientSlice = 2, acknowledgement = 4 };

int nNodes;
std::vector<MPI_Request> requests; // not yet completed

// Unlike a blocking call this gives up the processor: there are fewer cores than tasks.
void complete()
{
    int polls = 0;
    for (int flag = 0; !flag; betweenPolls(polls))
        MPI_Testall(static_cast<int>(requests.size()), requests.data(), &flag, MPI_STATUSES_IGNORE);
    requests.clear();
}

void startSend(const void* bytes, int count, int task, Tag tag)
{
    requests.emplace_back();
    MPI_Isend(bytes, count, MPI_BYTE, task, tag, MPI_COMM_WORLD, &requests.back());
}

void sendHeader(int size, int sync)
{
    const std::int32_t words[] = {size, sync};
    for (int task = 1; task <= 2 && task < nNodes; ++task)
        startSend(words, sizeof words, task, header);
    complete();
}

void sendBuffer(const Bytes& bytes, int sync)
{
    const int size = static_cast<int>(bytes.size());
    sendHeader(size, sync);
    const int servers = nNodes - 1;
    const int each = size / servers;
    for (int task = 1; size > 0 && task <= servers; ++task) {
        const int offset = (task - 1) * each;
        startSend(bytes.data() + offset, task == servers ? size - offset : each, task, clientSlice);
    }
    complete();
}

[[noreturn]] void fail(const std::string& what)
{
    std::fprintf(stderr, "jobClient: %s\n", what.c_str());
    MPI_Abort(MPI_COMM_WORLD, 9);
    std::abort();
}

void receiveAcknowledgement()
{
    std::int32_t value = 0;
    requests.emplace_back();
    MPI_Irecv(&value, sizeof value, MPI_BYTE, 1, acknowledgement, MPI_COMM_WORLD, &requests.back());
    complete();
    if (value != 1)
        fail("an acknowledgement of " + std::to_string(value));
}

// Any message of a server to the client is an acknowledgement.
bool messageWaits()
{
    int flag = 0;
    MPI_Iprobe(MPI_ANY_SOURCE, MPI_ANY_TAG, MPI_COMM_WORLD, &flag, MPI_STATUS_IGNORE);
    return flag != 0;
}

void expectAcknowledgements(int count)
{
    for (int i = 0; i < count; ++i)
        receiveAcknowledgement();
    if (messageWaits())
        fail("more than " + std::to_string(count) + " acknowledgements");
    std::fprintf(stderr, "jobClient: %d acknowledged\n", count);
}

// A buffer of records without effect. Sizes around every limit come first, then every order of
// magnitude from 1 byte to 5 MB is equally frequent. From 14 bytes on it is one glProgramStringARB,
// below that as many records of 2 and 3 bytes as fill it. A single byte is no record.
Bytes plannedBuffer(int number)
{
    constexpr int firstSizes[] = {1,      2, 3,         4,         5,         6,         7,
                                  8,      9, 13,        14,        15,        23,        100,
                                  65'537, 1, 1'999'999, 2'000'000, 2'000'001, 5'000'000, 4'999'999};
    constexpr int programHead = 14; // opcode, target, format and length
    std::mt19937 random(static_cast<unsigned>(number));
    std::uniform_real_distribution<double> exponent(0, std::log(5'000'000));
    auto size = static_cast<int>(std::exp(exponent(random)));
    if (number < static_cast<int>(std::size(firstSizes)))
        size = firstSizes[number];

    Bytes buffer(static_cast<std::size_t>(size));
    for (unsigned char& byte : buffer)
        byte = static_cast<unsigned char>(random());
    if (size >= programHead) {
        store(buffer.data(), Op::glProgramStringARB);
        store(buffer.data() + 10, size - programHead);
        return buffer;
    }
    if (size > 1 && size % 2)
        store(buffer.data(), Op::glEdgeFlag); // and one byte
    for (int at = size % 2 ? 3 : 0; at < size; at += 2)
        store(buffer.data() + at, Op::glEnd);
    return buffer;
}

void sendPlanned(int count)
{
    uLong checksum = 0;
    int owed = 0;
    for (int number = 0; number < count; ++number) {
        if (number % 10 == 5)
            sendHeader(0, 1); // queues nothing, so nothing is acknowledged
        const Bytes buffer = plannedBuffer(number);
        if (buffer.size() > 1)
            checksum = crc32_z(checksum, buffer.data(), buffer.size());
        const int sync = number % 3 ? 0 : number % 2 ? -1 : 7; // any number but 0 asks for one
        sendBuffer(buffer, sync);
        owed += sync != 0;
        for (; owed > 0 && messageWaits(); --owed)
            receiveAcknowledgement();
    }
    // The check of each server's own, and one more than a server can hold undecoded: then all
    // have checked when the last is acknowledged.
    sendBuffer(bytes("#112 i:" + std::to_string(checksum)), 0);
    for (int i = 0; i < 64; ++i)
        sendBuffer(bytes("#39"), 0);
    sendBuffer(bytes("#39"), 1);
    expectAcknowledgements(owed + 1);
}

// Performs the step that begins at `next`, and moves it behind that.
void perform(char**& next)
{
    const std::string name = *next++;
    const auto number = [&next] { return std::stoi(*next++); };
    if (name == "send") {
        const int times = number();
        const int sync = number();
        const Bytes buffer = bytes(*next++);
        for (int i = 0; i < times; ++i)
            sendBuffer(buffer, sync);
    } else if (name == "header") {
        const int size = number();
        sendHeader(size, number());
    } else if (name == "slice") {
        const int task = number();
        const Bytes zeros(static_cast<std::size_t>(number()));
        startSend(zeros.data(), static_cast<int>(zeros.size()), task, clientSlice);
        complete();
    } else if (name == "planned")
        sendPlanned(number());
    else if (name == "acknowledged")
        expectAcknowledgements(number());
    else if (name == "die")
        std::raise(SIGKILL);
    else if (name == "wait") {
        std::fputs("jobClient: waiting\n", stderr);
        for (;;)
            pause();
    } else if (name == "end")
        sendHeader(-1, 0);
    else
        fail("no step is called " + name);
}

} // namespace

int main(int argc, char** argv)
{
    MPI_Init(&argc, &argv);
    MPI_Comm_size(MPI_COMM_WORLD, &nNodes);
    int contributed = nNodes;
    int first = 0;
    MPI_Allreduce(&contributed, &first, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    MPI_Group world;
    MPI_Comm none;
    MPI_Comm_group(MPI_COMM_WORLD, &world);
    MPI_Group servers;
    int range[1][3] = {{first, nNodes - 1, 1}};
    MPI_Group_range_incl(world, 1, range, &servers);
    MPI_Comm_create(MPI_COMM_WORLD, servers, &none);

    std::int32_t handshake[3] = {0, 0, 0};
    char** next = argv + 1;
    if (*next && std::string(*next) == "handshake")
        for (std::int32_t& word : (++next, handshake))
            word = std::stoi(*next++);
    MPI_Bcast(handshake, sizeof handshake, MPI_BYTE, 0, MPI_COMM_WORLD);
    while (*next)
        perform(next);
    MPI_Finalize();
}

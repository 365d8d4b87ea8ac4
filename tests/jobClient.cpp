// A client of bare MPI messages, which can do everything wrong. Its arguments are its steps:
//   handshake VERSION ADDRMODE ENDIAN   only as the first step; otherwise it is 0 0 0
//   send N SYNC TEXT        the same buffer N times, its bytes as in support/bytes.h
//   header SIZE SYNC        a header alone
//   slice TASK SIZE         a slice of zeros
//   numbers N               N glIndexi in one buffer, numbered on from those before
//   acknowledged N          waits for N acknowledgements, and finds no further one
//   die                     ends at once, without a word to MPI
//   wait                    until a signal ends it
//   end                     ends the stream
#include "shuffle/betweenPolls.h"
#include "tests/support/bytes.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

#include <mpi.h>

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

void sendNumbers(int count)
{
    static unsigned next;
    Bytes buffer;
    for (int i = 0; i < count; ++i) {
        appendToken(buffer, "glIndexi");
        appendLittleEndian(buffer, next++, 4);
    }
    sendBuffer(buffer, 0);
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
    } else if (name == "numbers")
        sendNumbers(number());
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

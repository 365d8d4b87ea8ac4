// Plays the client and the other servers to one server, task 1 of 4. Buffer n consists of bytes of
// value n. Messages arrive after a random number of polls.
#include "tests/threads/script.h"

#include "shuffle/mw.h"

#include <cstdlib>
#include <cstring>
#include <mpi.h>
#include <vector>

Script script;

namespace {

constexpr int nNodes = 4;
constexpr int noRequest = -1;

/// What a request waits for: until it is completed it has so many polls to go.
struct Pending {
    void* buffer;
    int count, tag, polls;
};

std::vector<Pending> pending;
pthread_t mainThread;
int sent = 0;         // headers, so far
int acknowledged = 0; // received

void require(bool holds)
{
    if (!holds)
        std::abort();
}

void onMainThread() { require(pthread_equal(mainThread, pthread_self())); }

_hdr nextHeader()
{
    if (sent == static_cast<int>(script.buffers.size()))
        return {-1, 0};
    return script.buffers[static_cast<std::size_t>(sent++)];
}

void complete(const Pending& request)
{
    if (request.tag == headerTag) {
        const _hdr hdr = nextHeader();
        std::memcpy(request.buffer, &hdr, sizeof hdr);
    } else if (request.buffer)
        std::memset(request.buffer, sent - 1, static_cast<std::size_t>(request.count));
}

int post(void* buffer, int count, int tag, MPI_Request* request)
{
    onMainThread();
    *request = static_cast<MPI_Request>(pending.size());
    const int polls = static_cast<int>(script.random() % (script.longestWait + 1));
    pending.push_back({buffer, count, tag, polls});
    return 0;
}

} // namespace

int MPI_Init(int*, char***)
{
    mainThread = pthread_self();
    return 0;
}

int MPI_Finalize()
{
    onMainThread();
    require(acknowledged <= script.syncs);
    return 0;
}

int MPI_Comm_size(MPI_Comm, int* size) { return *size = nNodes, 0; }
int MPI_Comm_rank(MPI_Comm, int* rank) { return *rank = 1, 0; }
int MPI_Comm_group(MPI_Comm, MPI_Group* group) { return *group = 0; }
int MPI_Group_range_incl(MPI_Group, int, int[][3], MPI_Group* result) { return *result = 0; }
int MPI_Comm_create(MPI_Comm, MPI_Group, MPI_Comm* result) { return *result = 0; }

int MPI_Allreduce(const void* send, void* receive, int, MPI_Datatype, MPI_Op, MPI_Comm)
{
    std::memcpy(receive, send, sizeof(int));
    return 0;
}

int MPI_Bcast(void* buffer, int count, MPI_Datatype, int, MPI_Comm)
{
    std::memset(buffer, 0, static_cast<std::size_t>(count));
    return 0;
}

int MPI_Irecv(void* buffer, int count, MPI_Datatype, int, int tag, MPI_Comm, MPI_Request* request)
{
    return post(buffer, count, tag, request);
}

int MPI_Isend(const void*, int count, MPI_Datatype, int, int tag, MPI_Comm, MPI_Request* request)
{
    return post(nullptr, count, tag == headerTag ? peerSliceTag : tag, request);
}

int MPI_Send(const void* buffer, int count, MPI_Datatype, int dest, int tag, MPI_Comm)
{
    onMainThread();
    std::int32_t value = 0;
    require(count == sizeof value && dest == 0 && tag == acknowledgementTag);
    std::memcpy(&value, buffer, sizeof value);
    require(value == 1 && ++acknowledged <= script.syncs);
    return 0;
}

int MPI_Testany(int count, MPI_Request* requests, int* index, int* flag, MPI_Status*)
{
    onMainThread();
    *flag = 0;
    for (*index = 0; *index < count; ++*index) {
        MPI_Request& request = requests[*index];
        if (request == noRequest)
            continue;
        Pending& message = pending[static_cast<std::size_t>(request)];
        if (--message.polls >= 0)
            continue;
        complete(message);
        request = noRequest;
        *flag = 1;
        return 0;
    }
    return 0;
}

int MPI_Waitall(int count, MPI_Request* requests, MPI_Status*)
{
    onMainThread();
    for (int i = 0; i < count; ++i)
        requests[i] = noRequest;
    return 0;
}

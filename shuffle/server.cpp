// The render server: one task of an MPI job whose task 0 is the client. The main thread makes every
// MPI call; the decode thread makes every OpenGL, GLX and X call; the tick thread wakes waiters.
#include "coding/decoder.h"
#include "coding/display/banner.h"
#include "coding/invariant.h"
#include "coding/serverProcess.h"
#include "overload/loader.h"
#include "shuffle/betweenPolls.h"
#include "shuffle/buf.h"
#include "shuffle/endTask.h"
#include "shuffle/srvrcomm.h"
#include "shuffle/stats.h"
#include "shuffle/threads.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>
#include <thread>
#include <unistd.h>

int _wait(int nrq, MPI_Request* rq);

std::atomic<int> done;
pthread_mutex_t ackLock = PTHREAD_MUTEX_INITIALIZER;
int ackKnt;

namespace {

pthread_t decodeId;
pthread_t ticktid;
char hn[256]; // host name

int nst;        // elements of st
MPI_Status* st; // for MPI_Testany; only grows

MPI_Request* peerSendRequests; // nNodes each
MPI_Request* peerRecvRequests;

// Fewer than two for each task of this machine: what polls takes them from what draws.
bool coresAreFew;

/// An environment variable's decimal value; 0 when it is not set or no number.
int numberFromEnvironment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : 0;
}

template <class T>
T* allocate(int count, const char* name)
{
    auto* array = static_cast<T*>(std::calloc(static_cast<std::size_t>(count), sizeof(T)));
    require(array, name);
    return array;
}

/// Ends the process unless this is a server task of a job with a client.
void requireJob(int nNodes, int rank)
{
    if (nNodes >= 2 && rank > 0)
        return;
    std::fprintf(stderr, "Error MOSA: server runs beside a client, as every task but the first: "
                         "mpiexec -n 1 CLIENT : -n SERVERS server\n");
    std::fflush(stderr);
    std::exit(1); // not MPI_Abort: the launcher would end the job before it has read the line
}

void requireSame(const char* field, int host, int own)
{
    if (host == own)
        return;
    std::fprintf(stderr, "Error MOSA: Host %s (%d) does not match server %s (%d) on server %s\n",
                 field, host, field, own, hn);
    std::fflush(stderr);
    std::exit(1);
}

void checkHandshake()
{
    _handshake handshake{};
    MPI_Bcast(&handshake, sizeof handshake, MPI_BYTE, 0, MPI_COMM_WORLD);
    requireSame("version", handshake.version, ownHandshake.version);
    requireSame("addrmode", handshake.addrmode, ownHandshake.addrmode);
    requireSame("endian", handshake.endian, ownHandshake.endian);
}

void waitForDebugger()
{
    std::fprintf(stderr, "%s: sleeping (PID %d).  Attach gdb and set i = 0\n", hn, getpid());
    volatile int i = 1;
    while (i)
        sleep(1);
}

void startThread(pthread_t* id, void* (*body)(void*), const char* name)
{
    if (pthread_create(id, nullptr, body, nullptr) == 0)
        return;
    std::fprintf(stderr, "Error MOSA: unable to create %s thread\n", name);
    MPI_Finalize();
    std::exit(0);
}

_hdr receiveHeader(const HeaderTree& tree)
{
    _hdr hdr{};
    MPI_Request szRecvRequest;
    MPI_Irecv(&hdr, sizeof hdr, MPI_BYTE, tree.parent, headerTag, MPI_COMM_WORLD, &szRecvRequest);
    _wait(1, &szRecvRequest);

    MPI_Request szSendRequests[2];
    MPI_Status szSendStatuses[2];
    int sends = 0;
    for (const int kid : tree.kids)
        if (kid > 0)
            MPI_Isend(&hdr, sizeof hdr, MPI_BYTE, kid, headerTag, MPI_COMM_WORLD,
                      &szSendRequests[sends++]);
    if (sends)
        MPI_Waitall(sends, szSendRequests, szSendStatuses);
    return hdr;
}

/// Fills a buffer: this server's slice straight from the client, the others from the other servers.
/// All receives are posted before anything is sent, so the exchange cannot block on an order.
void receiveSlices(unsigned char* data, int size, int rank, int nNodes)
{
    const Slice own = sliceOf(rank, nNodes, size);
    unsigned char* myPtr = data + own.offset;
    MPI_Request clientRequest;
    int nPeerRecvs = 0;
    for (int i = 1; i < nNodes; ++i) {
        const Slice slice = sliceOf(i, nNodes, size);
        if (i == rank)
            MPI_Irecv(myPtr, own.count, MPI_BYTE, 0, clientSliceTag, MPI_COMM_WORLD,
                      &clientRequest);
        else
            MPI_Irecv(data + slice.offset, slice.count, MPI_BYTE, i, peerSliceTag, MPI_COMM_WORLD,
                      &peerRecvRequests[nPeerRecvs++]);
    }
    _wait(1, &clientRequest);

    int nPeerSends = 0;
    for (int i = 1; i < nNodes; ++i)
        if (i != rank)
            MPI_Isend(myPtr, own.count, MPI_BYTE, i, peerSliceTag, MPI_COMM_WORLD,
                      &peerSendRequests[nPeerSends++]);
    if (nPeerRecvs > 0)
        _wait(nPeerRecvs, peerRecvRequests);
    if (nPeerSends > 0)
        _wait(nPeerSends, peerSendRequests);
}

void receiveStream(int rank, int nNodes)
{
    const HeaderTree tree = headerTree(rank, nNodes);
    for (_hdr hdr = receiveHeader(tree); hdr.size >= 0; hdr = receiveHeader(tree)) {
        if (hdr.size == 0)
            continue;
        _buf* b = getFreeBuf(hdr.size);
        b->size = hdr.size;
        b->sync = hdr.sync;
        receiveSlices(b->data, hdr.size, rank, nNodes);
        addBufToQueue(b);
    }
}

void sendOwedAcknowledgements()
{
    pthread_mutex_lock(&ackLock);
    if (serverID == 0)
        while (ackKnt > 0) {
            --ackKnt;
            std::int32_t one = 1;
            MPI_Send(&one, sizeof one, MPI_BYTE, 0, acknowledgementTag, MPI_COMM_WORLD);
        }
    pthread_mutex_unlock(&ackLock);
}

} // namespace

int _wait(int nrq, MPI_Request* rq)
{
    if (nrq > nst) {
        nst = nrq;
        std::free(st);
        st = allocate<MPI_Status>(nst, "st");
    }
    int index = 0;
    int polls = 0;
    for (int completed = 0; completed < nrq;) {
        sendOwedAcknowledgements();
        int flag = 0;
        MPI_Testany(nrq, rq, &index, &flag, st);
        if (flag) {
            ++completed;
            polls = 0;
        } else if (coresAreFew)
            betweenPolls(polls);
        else
            sched_yield(); // the least delay
    }
    return index;
}

void intr_handler(int /*i*/) {}

void* tickthd(void* /*d*/)
{
    constexpr useconds_t tick = 10'000;
    while (!done) {
        usleep(tick);
        bufTick();
        statsTick();
    }
    pthread_exit(nullptr);
}

int main(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::puts(MOSA_VERSION);
        return 0;
    }
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::puts(
            "Draws one tile of a wall from the OpenGL stream of the job's client.\n"
            "It has no options; environment variables configure it, first of all MOSA_DISPLAY\n"
            "(the wall configuration file) and SYSTEM_OPENGL_LIB. Its place is in an MPI job:\n"
            "  mpiexec -n 1 CLIENT : -n SERVERS server");
        return 0;
    }
    const int tasksHere = numberFromEnvironment("MPI_LOCALNRANKS"); // set by mpiexec
    coresAreFew = 2 * tasksHere > static_cast<int>(std::thread::hardware_concurrency());
    syncOnSwap = numberFromEnvironment("MOSA_SYNC_ON_SWAP");
    swapOnRetrace = numberFromEnvironment("MOSA_SWAP_ON_RETRACE");
    xx = numberFromEnvironment("MOSA_TRACE") != 0;
    std::signal(SIGINT, intr_handler);
    gethostname(hn, sizeof hn - 1);
    std::fprintf(stderr, "%s\n", banner1);
    std::fprintf(stderr, "Vantrel MOSA Server Loaded on %s, pid = %d\n", hn, getpid());
    std::fflush(stderr);

    MPI_Init(&argc, &argv);
    int nNodes = 0;
    int rank = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &nNodes);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    nClients = 1;
    nServers = nNodes - 1;
    serverID = rank - 1;
    vtl_mpi_task_number = rank;
    std::fprintf(stderr, "MOSA: Server %s completed MPI_Init as task %d\n", hn, rank);
    std::fflush(stderr);
    requireJob(nNodes, rank);

    mkSrvrComm(rank, nNodes);
    checkHandshake();
    if (numberFromEnvironment("MOSA_DEBUG") == 1)
        waitForDebugger();
    LoadOps();
    peerSendRequests = allocate<MPI_Request>(nNodes, "peerSendRequests");
    peerRecvRequests = allocate<MPI_Request>(nNodes, "peerRecvRequests");
    startStats(numberFromEnvironment("MOSA_STATS"));
    startThread(&ticktid, tickthd, "tick");
    startThread(&decodeId, decodeThread, "decode");

    receiveStream(rank, nNodes);

    done = 1;
    pthread_join(ticktid, nullptr);
    wakeForShutDown(); // a decode thread may have begun to wait after the last tick
    pthread_join(decodeId, nullptr);
    printStatsSummary();
    endTask(0);
    std::exit(0);
}

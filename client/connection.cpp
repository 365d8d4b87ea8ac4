#include "client/connection.h"
#include "shuffle/betweenPolls.h"
#include "wire/opcodes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void completeSends(Connection& connection)
{
    int polls = 0;
    for (int flag = 0; !flag;) {
        pollAcknowledgements(connection);
        MPI_Testall(static_cast<int>(connection.sends.size()), connection.sends.data(), &flag,
                    MPI_STATUSES_IGNORE);
        if (!flag)
            betweenPolls(polls);
    }
    connection.sends.clear();
}

void startSend(Connection& connection, const void* bytes, int count, int task, int tag)
{
    connection.sends.push_back(MPI_REQUEST_NULL);
    MPI_Isend(bytes, count, MPI_BYTE, task, tag, MPI_COMM_WORLD, &connection.sends.back());
}

void startHeader(Connection& connection, const _hdr& hdr)
{
    for (const int kid : headerTree(0, connection.nNodes).kids)
        if (kid > 0)
            startSend(connection, &hdr, sizeof hdr, kid, headerTag);
}

void transmit(Connection& connection, const unsigned char* bytes, const _hdr& hdr)
{
    startHeader(connection, hdr);
    for (int task = 1; hdr.size > 0 && task < connection.nNodes; ++task) {
        const Slice slice = sliceOf(task, connection.nNodes, hdr.size);
        startSend(connection, bytes + slice.offset, slice.count, task, clientSliceTag);
    }
    completeSends(connection);
}

// Asks for an acknowledgement that stands for all servers. It comes from the first one only; but a
// buffer can reach that one only through all the others, and none of those can take more standard
// buffers than its pool has without having decoded what came before, be it one of the pool or a
// large one: so one more than the pool has, the last acknowledged.
void sendFillers(Connection& connection)
{
    const int unacknowledged = connection.nNodes > 2 ? mostStandard : 0;
    const auto nothing = static_cast<std::uint16_t>(Op::glGetString); // ignored by the servers
    unsigned char record[sizeof nothing];
    std::memcpy(record, &nothing, sizeof nothing);
    for (int i = 0; i < unacknowledged; ++i)
        transmit(connection, record, {sizeof record, 0});
    ++connection.outstanding;
    transmit(connection, record, {sizeof record, 1});
}

} // namespace

void connectServers(Connection& connection, const _handshake& handshake)
{
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &connection.nNodes);
    if (connection.nNodes < 2 || rank != 0) {
        std::fprintf(stderr, "Error MOSA: the client runs as the first task beside servers: "
                             "mpiexec -n 1 CLIENT : -n SERVERS server\n");
        std::exit(1); // not MPI_Abort: the launcher would end the job before it has read the line
    }

    // The servers' range begins at the smallest rank that a task contributes: leave out this one.
    int contributed = connection.nNodes;
    int first = 0;
    MPI_Allreduce(&contributed, &first, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    int range[1][3] = {{first, connection.nNodes - 1, 1}};
    MPI_Group world;
    MPI_Group servers;
    MPI_Comm none;
    MPI_Comm_group(MPI_COMM_WORLD, &world);
    MPI_Group_range_incl(world, 1, range, &servers);
    MPI_Comm_create(MPI_COMM_WORLD, servers, &none);

    _handshake sent = handshake;
    MPI_Bcast(&sent, sizeof sent, MPI_BYTE, 0, MPI_COMM_WORLD);
}

bool pollAcknowledgements(Connection& connection)
{
    // One receive is posted for as long as acknowledgements are due.
    if (connection.outstanding == 0)
        return false;
    if (connection.acknowledgement == MPI_REQUEST_NULL)
        MPI_Irecv(&connection.acknowledgementValue, sizeof connection.acknowledgementValue,
                  MPI_BYTE, 1, acknowledgementTag, MPI_COMM_WORLD, &connection.acknowledgement);
    int flag = 0;
    MPI_Test(&connection.acknowledgement, &flag, MPI_STATUS_IGNORE);
    if (!flag)
        return false;
    --connection.outstanding;
    ++connection.acknowledged;
    return true;
}

void waitForAcknowledgements(Connection& connection, int most)
{
    for (int polls = 0; connection.outstanding > most;)
        if (!pollAcknowledgements(connection))
            betweenPolls(polls);
}

void sendBuffer(Connection& connection, const unsigned char* bytes, _hdr hdr, int ahead)
{
    if (hdr.size > 0 && hdr.sync) {
        waitForAcknowledgements(connection, ahead - 1);
        if (!connection.loose && connection.nNodes > 2) {
            transmit(connection, bytes, {hdr.size, 0});
            sendFillers(connection);
            return;
        }
        ++connection.outstanding;
    }
    transmit(connection, bytes, hdr);
}

void finishServers(Connection& connection)
{
    sendFillers(connection);
    waitForAcknowledgements(connection, 0);
}

void disconnectServers(Connection& connection)
{
    startHeader(connection, endOfStream);
    completeSends(connection);
}

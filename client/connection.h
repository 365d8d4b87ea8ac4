// Task 0's side of the job: the handshake, command buffers out, acknowledgements in.
#pragma once

#include "wire/framing.h"

#include <vector>

#include <mpi.h>

/// The connection to all servers of the job. One per process; every call on the main thread.
struct Connection {
    int nNodes = 0;
    bool loose = false;    // an acknowledgement stands for the first server only
    int outstanding = 0;   // synchronised buffers without an acknowledgement yet
    long acknowledged = 0; // and those with
    MPI_Request acknowledgement = MPI_REQUEST_NULL;
    std::int32_t acknowledgementValue = 0;
    std::vector<MPI_Request> sends; // of the buffer on its way
};

/// Joins the job: the collective calls of the servers' communicator and the handshake. Ends the
/// process with a message when this is not task 0 of a job with at least one server.
void connectServers(Connection& connection, const _handshake& handshake);

/// Sends one buffer. A synchronised one first waits until fewer than `ahead` are outstanding. Its
/// acknowledgement says that every server has decoded it, which takes 65 small buffers more where
/// there are several servers, unless the connection is `loose`. Returns when the bytes may be
/// reused.
void sendBuffer(Connection& connection, const unsigned char* bytes, _hdr hdr, int ahead);

/// Takes in an acknowledgement that has arrived; false when there is none.
bool pollAcknowledgements(Connection& connection);

/// Waits until at most `most` synchronised buffers are without an acknowledgement.
void waitForAcknowledgements(Connection& connection, int most);

/// Waits until every server has decoded all that was sent, and every acknowledgement is in.
void finishServers(Connection& connection);

/// Ends the stream. Servers drop what they have not decoded: call finishServers before.
void disconnectServers(Connection& connection);

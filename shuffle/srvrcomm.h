// The servers' communicator. Main thread only.
#pragma once

#include <mpi.h>

extern MPI_Comm srvrComm; // nothing in the server communicates on it; for overload libraries

/// Builds srvrComm over the tasks from the smallest rank that any task contributes to the last.
/// Collective with the client. Returns that smallest rank.
int mkSrvrComm(int rank, int nNodes);

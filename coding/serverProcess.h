// What all of a server knows of its place in the job, and how it was asked to run. Set by the main
// thread before the others exist, then only read.
#pragma once

extern int nClients, nServers, serverID, vtl_mpi_task_number;
extern int syncOnSwap;    // for overload libraries only
extern int swapOnRetrace; // not 0: join the swap group at the first make-current

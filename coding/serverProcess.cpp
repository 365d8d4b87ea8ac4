#include "coding/serverProcess.h"

int nClients;
int nServers;
int serverID;
int vtl_mpi_task_number;
int syncOnSwap;
int swapOnRetrace;

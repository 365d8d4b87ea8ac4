#include "shuffle/srvrcomm.h"

MPI_Comm srvrComm;

int mkSrvrComm(int rank, int nNodes)
{
    int range[1][3] = {{0, nNodes - 1, 1}}; // first rank, last rank, stride
    MPI_Allreduce(&rank, &range[0][0], 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    MPI_Group gWorld;
    MPI_Group gServers;
    MPI_Comm_group(MPI_COMM_WORLD, &gWorld);
    MPI_Group_range_incl(gWorld, 1, range, &gServers);
    MPI_Comm_create(MPI_COMM_WORLD, gServers, &srvrComm);
    return range[0][0];
}

// As much of MPI as the server uses, for one server task within one process: see standInMpi.cpp.
// Must be found before the real one.
#pragma once

struct MPI_Status {};
using MPI_Comm = int;
using MPI_Group = int;
using MPI_Request = int;

enum MPI_Datatype { MPI_BYTE, MPI_INT };
enum MPI_Op { MPI_MIN };
inline constexpr MPI_Comm MPI_COMM_WORLD = 0;

int MPI_Init(int* argc, char*** argv);
int MPI_Finalize();
int MPI_Comm_size(MPI_Comm comm, int* size);
int MPI_Comm_rank(MPI_Comm comm, int* rank);
int MPI_Comm_group(MPI_Comm comm, MPI_Group* group);
int MPI_Group_range_incl(MPI_Group group, int n, int ranges[][3], MPI_Group* result);
int MPI_Comm_create(MPI_Comm comm, MPI_Group group, MPI_Comm* result);
int MPI_Allreduce(const void* send, void* receive, int count, MPI_Datatype, MPI_Op, MPI_Comm);
int MPI_Bcast(void* buffer, int count, MPI_Datatype, int root, MPI_Comm);
int MPI_Irecv(void* buffer, int count, MPI_Datatype, int source, int tag, MPI_Comm, MPI_Request*);
int MPI_Isend(const void* buffer, int count, MPI_Datatype, int dest, int tag, MPI_Comm,
              MPI_Request*);
int MPI_Send(const void* buffer, int count, MPI_Datatype, int dest, int tag, MPI_Comm);
int MPI_Testany(int count, MPI_Request*, int* index, int* flag, MPI_Status*);
int MPI_Waitall(int count, MPI_Request*, MPI_Status*);

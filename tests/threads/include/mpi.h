// As much of MPI as the server uses, for one server, task 1 of 4, within one process: what is only
// declared is in threads_test.cpp. Must be found before the real one.
#pragma once

#include <cstring>

struct MPI_Status {};
using MPI_Comm = int;
using MPI_Group = int;
using MPI_Request = int;

enum MPI_Datatype { MPI_BYTE, MPI_INT };
enum MPI_Op { MPI_MIN };
inline constexpr MPI_Comm MPI_COMM_WORLD = 0;

int MPI_Init(int* argc, char*** argv);
int MPI_Finalize();
int MPI_Irecv(void* buffer, int count, MPI_Datatype, int source, int tag, MPI_Comm, MPI_Request*);
int MPI_Isend(const void* buffer, int count, MPI_Datatype, int dest, int tag, MPI_Comm,
              MPI_Request*);
int MPI_Send(const void* buffer, int count, MPI_Datatype, int dest, int tag, MPI_Comm);
int MPI_Testany(int count, MPI_Request*, int* index, int* flag, MPI_Status*);
int MPI_Waitall(int count, MPI_Request*, MPI_Status*);

inline int MPI_Comm_size(MPI_Comm, int* size) { return *size = 4, 0; }
inline int MPI_Comm_rank(MPI_Comm, int* rank) { return *rank = 1, 0; }
inline int MPI_Comm_group(MPI_Comm, MPI_Group* group) { return *group = 0; }
inline int MPI_Group_range_incl(MPI_Group, int, int[][3], MPI_Group* result) { return *result = 0; }
inline int MPI_Comm_create(MPI_Comm, MPI_Group, MPI_Comm* result) { return *result = 0; }

inline int MPI_Allreduce(const void* send, void* receive, int, MPI_Datatype, MPI_Op, MPI_Comm)
{
    std::memcpy(receive, send, sizeof(int));
    return 0;
}

inline int MPI_Bcast(void* buffer, int count, MPI_Datatype, int, MPI_Comm)
{
    std::memset(buffer, 0, static_cast<unsigned>(count));
    return 0;
}

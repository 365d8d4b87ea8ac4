// The end of a task of the job: of a server, and of any client that is written here.
#pragma once

/// MPI_Finalize for a task that is about to end with `status`; the last thing that its main thread
/// does. Where MPI does not come back, the process ends with `status` all the same.
void endTask(int status);

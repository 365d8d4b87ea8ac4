// What the server's code needs of the process around it, for benchmarks that have it in their own.
#include "shuffle/mw.h"

int serverID;
int swapOnRetrace;

// Loading of the operation table. Main thread only, before the worker threads exist.
#pragma once

#include "coding/wire.h"

/// Fills the tables: the system OpenGL library, the server's overloads, then the overload libraries
/// of MOSA_OVERLOAD_FILE. Any failure prints a message and ends the process with status 1.
void LoadOps();

/// Opens a library and fills glOpTable from it. Null, and the table untouched, when it cannot be
/// opened.
void* _LoadOpFile(const char* s);

/// Opens an overload library and lets it replace entries. Null after a message when it cannot.
void* _LoadOverlayFile(const char* s, glOp* opTbl);

/// Closes the overload libraries, last opened first, then the system library.
void FreeOps();

/// The entry of every operation that the system library lacks: prints a message each time.
extern "C" void* undefinedOp();

// The local display: which one this server drives and which rectangle of the wall it shows. Decode
// thread only.
#pragma once

#include "coding/serverWindows.h"
#include "wire/handles.h"

/// The record that serves an application display: made on first use from this server's entry of the
/// wall configuration file. Null, and nothing kept, when the display cannot be had; a file without
/// a usable entry ends the process.
LocalDisplay* GetLocalDisplay(AppDisplay appDisplay);

/// Closes the connection and releases the record. Null is allowed.
void _freeLocalDisplay(LocalDisplay* ldpy);

/// Releases every record.
void CleanupLocalDisplays();

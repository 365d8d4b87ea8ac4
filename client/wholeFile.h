// Files that are written beside their place and take it when they are whole: what stood there
// before stays as it was until then, and for good when they never are.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

/// A file that is being written.
struct WholeFile {
    std::string name;   // what it will be
    std::string beside; // what it is until then; empty for a device or pipe, which is written to
    std::FILE* stream = nullptr;
};

/// Opens a file beside its place, as NAME.PID.part, and removes those that are dead processes'.
/// Throws std::runtime_error, with the name.
WholeFile beginFile(const std::string& name);

/// Puts the file in its place. Throws std::runtime_error when it could not be written; there is no
/// new file then.
void finishFile(WholeFile& file);

/// Removes what has been written.
void abandonFile(WholeFile& file);

/// All of it at once.
void writeWholeFile(const std::string& name, std::string_view content);

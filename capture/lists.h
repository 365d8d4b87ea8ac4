// Display lists. Most stay on the servers, as the program makes them. What a server places when it
// compiles it (bitmaps, images, raster positions, viewports, projections) would stand where it
// stood at that moment: lists with such operations, and those that call them, are kept here as
// records, and what they consist of is sent when they are called.
#pragma once

#include "capture/tape.h"
#include "wire/operations.h"

#include <memory>
#include <unordered_map>
#include <vector>

/// A list that is kept, or that may have to be because it calls others.
struct KeptList {
    std::shared_ptr<const std::vector<unsigned char>> records;
    bool placed = false;      // has operations of the kind above
    bool bitmapsOnly = false; // glyphs: what is latched with the raster position counts for all
};

/// The lists of contexts that share them.
using KeptLists = std::unordered_map<GLuint, KeptList>;

/// Calls visit(opcode, record, bytes) for each record.
template <class Visit>
void eachRecord(const std::vector<unsigned char>& records, Visit visit)
{
    const auto* at = reinterpret_cast<const char*>(records.data());
    for (const char* const end = at + records.size(); at < end;) {
        const int opcode = load<std::uint16_t>(at);
        const Extent& extent = recordExtents[opcode];
        const char* args = at + opcodeBytes;
        const std::int64_t bytes =
            opcodeBytes + extent.head + (extent.rest ? extent.rest(args) : 0);
        visit(opcode, at, bytes);
        at += bytes;
    }
}

/// A list begins and ends: between the two the tape of the current context holds its records alone.
void beginList(GLuint list, GLenum mode);
void endList();

/// Records the whole of a list that only the wall is to compile: what other threads draw does not
/// come in between.
void recordList(GLuint list, const std::vector<unsigned char>& records);

/// Calls lists, as the wall shows them. Nothing is recorded where drawing is not wanted.
void recordCallList(GLuint list);
void recordCallLists(GLsizei n, GLenum type, const void* lists);

void recordDeleteLists(GLuint list, GLsizei range);

/// Takes in a list that the client makes by itself.
void keepList(GLuint list, std::vector<unsigned char> records);

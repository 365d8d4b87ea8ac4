// Memory that outlives a command buffer.
#pragma once

#include "wire/layouts.h"

#include <memory>
#include <vector>

// ---- Client arrays -----------------------------------------------------------------------------

// The memory of each kind of client array, null until the first pointer of the kind, and how many
// bytes of it have been written. OpenGL holds the address between the pointer and the draws: it
// stays the same for as long as the server runs. Decode thread only.
extern char *vBuf, *nBuf, *cBuf, *iBuf, *tBuf, *eBuf, *fBuf, *scBuf, *wBuf, *mIbuf, *vAbuf;
extern int vBufSz, nBufSz, cBufSz, iBufSz, tBufSz, eBufSz, fBufSz, scBufSz, wBufSz, mIbufSz,
    vAbufSz;

constexpr bool isClientArray(Memory kind)
{
    return kind >= Memory::vertex && kind <= Memory::vertexAttrib;
}

/// Copies `count` elements of `bytes` bytes in all into the memory of their kind and returns where
/// they are; null as long as none have arrived. Behind what was ever written the memory reads as
/// zeros, farther than any draw reaches that elementsInReach allows. Ends the process, naming the
/// buffer and the decoder of `operation`, without memory.
char* keepArray(Memory kind, const char* data, int bytes, int count, const char* operation);

/// The memory of a kind as it is.
char* arrayMemory(Memory kind);

/// The same for where OpenGL holds no address: addresses are set aside if need be. Null where there
/// are none to be had.
char* zerosFor(Memory kind);

/// How many elements a draw may reach: all that have arrived of any kind and a good many more. An
/// element beyond comes of a damaged stream, and a driver may try to copy all those before it.
std::int64_t elementsInReach();

/// True for an address that the memory of a kind had before it had to move: see keepArray.
bool hasMoved(Memory kind, const void* address);

// ---- What a later record uses again ------------------------------------------------------------

/// List names, control points and feedback space. It grows to what the largest record needed and is
/// never released. Memory that OpenGL may still write to when its buffer has grown is kept beside
/// it.
struct ScratchBuffer {
    const char* name; // for the message when it cannot grow
    char* data = nullptr;
    int size = 0;
    int arrived = 0; // bytes that the latest record brought
    std::vector<char*> outgrown{};
};

/// The buffer of a kind that is no client array. Decode thread only.
ScratchBuffer& scratchOf(Memory kind);

/// Copies what a record brought into the buffer of its kind and returns where it is. Ends the
/// process like keepArray.
char* keepData(Memory kind, const char* data, int bytes, const char* operation);

// ---- What one operation reads ------------------------------------------------------------------

/// Memory from which an operation can read: the record's own, or a copy.
struct Supplied {
    char* at = nullptr; // null, after a message, where it takes too much memory
    struct Freed {
        void operator()(char* memory) const { std::free(memory); }
    };
    std::unique_ptr<char, Freed> copy{};
};

/// `arrived` bytes at `data` for an operation that reads `needed`: with zeros behind them where
/// they are fewer.
Supplied supply(const char* operation, char* data, std::int64_t arrived, std::int64_t needed);

/// The same without a message or a limit, for the few values of a parameter: as many as lie between
/// `data` and the end of the buffer that is being walked.
Supplied supplyValues(char* data, std::int64_t needed);

/// The data that arrived last of a kind, for an operation that reads `needed` bytes: see supply.
Supplied keptData(Memory kind, std::int64_t needed, const char* operation);

// What passes between the tasks of a job: the handshake, headers, slices and acknowledgements, and
// what a client may rely on of the servers' buffers. Client, servers and stream files share it.
#pragma once

#include <cstdint>

// ---- Records, as plain bytes in the byte order that the handshake settles ----------------------

/// Broadcast once by the client.
struct _handshake {
    std::int32_t version;  // of the command stream
    std::int32_t addrmode; // width of the host's addresses
    std::int32_t endian;   // byte order of the host
};
static_assert(sizeof(_handshake) == 12);

/// What servers speak: version 0, 32-bit addresses, little-endian.
inline constexpr _handshake ownHandshake{0, 0, 0};

/// Before every command buffer.
struct _hdr {
    std::int32_t size; // bytes that follow; 0: none, nothing is queued; negative: end of the stream
    std::int32_t sync; // not 0: acknowledge once the buffer is decoded
};
static_assert(sizeof(_hdr) == 8);

/// Ends the stream.
inline constexpr _hdr endOfStream{-1, 0};

/// Message tags on MPI_COMM_WORLD.
enum Tag { headerTag = 1, clientSliceTag = 2, peerSliceTag = 3, acknowledgementTag = 4 };

// ---- Who gets what -----------------------------------------------------------------------------

/// The slice of a buffer that server task i (from 1) gets from the client: every slice has the same
/// size but the last, which carries the remainder.
struct Slice {
    int offset, count;
};

constexpr Slice sliceOf(int task, int nNodes, int size)
{
    const int servers = nNodes - 1;
    const int each = size / servers;
    const int offset = (task - 1) * each;
    return {offset, task == servers ? size - offset : each};
}

/// A task's place in the tree of headers, a binary heap of ranks rooted at the client. A kid of 0
/// is none.
struct HeaderTree {
    int parent;
    int kids[2];
};

constexpr HeaderTree headerTree(int rank, int nNodes)
{
    const auto kid = [=](int k) { return 2 * rank + k < nNodes ? 2 * rank + k : 0; };
    return {(rank - 1) / 2, {kid(1), kid(2)}};
}

// ---- The servers' buffers ----------------------------------------------------------------------

/// A standard buffer holds 2,000,000 bytes, and at most 64 of them are ever made: so many wait on a
/// server, and no more. A request of more than largestStandard bytes gets a buffer of its own,
/// which is released after use.
inline constexpr int standardBytes = 2'000'000;
inline constexpr int largestStandard = standardBytes - 1;
inline constexpr int mostStandard = 64;

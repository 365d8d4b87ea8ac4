// The memory through which a captured program's stream reaches the wall's process. Records are
// written in blocks where they are read, and nothing is copied on the way; a ring of messages says,
// in the order of the stream, what has been written where. Knows nothing of sockets: who waits is
// told whom to wake.
#pragma once

#include "wire/framing.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

/// A command buffer, or something else that `hdr.sync` says.
struct CaptureMessage {
    _hdr hdr;                      // bytes, and whether a frame ends; `size` of a part its own
    std::uint32_t at = 0;          // where they are
    std::uint32_t wallCurrent = 0; // the window on the wall that is current behind it
    std::uint32_t isPart = 0;      // 1: the buffer goes on in the next message
};

inline constexpr std::size_t ringBlock = 256 << 10, ringBlocks = 32;
inline constexpr std::size_t ringBytes = ringBlock * ringBlocks;
inline constexpr std::size_t ringMessages = 1024;
inline constexpr std::size_t mostReserved = ringBytes / 2; // in one piece

/// What the program's side tells of itself, in all since its beginning. For people only.
enum class Figure {
    copied,        // bytes, into the ring; what is not copied is written there
    wakeUps,       // of the reader
    listCalls,     // in the place of draws
    kept,          // bytes that these draws would have taken
    waited,        // microseconds, until the wall had shown frames
    waitedForRoom, // microseconds, until there was room
};
inline constexpr std::size_t figureCount = static_cast<std::size_t>(Figure::waitedForRoom) + 1;
using Figures = std::array<std::uint64_t, figureCount>;

/// Shared by both sides. Counts are of messages, in all.
struct CaptureRing {
    alignas(64) std::atomic<std::uint64_t> committed; // by the writer
    alignas(64) std::atomic<std::uint64_t> consumed;  // by the reader, which needs them no more
    std::atomic<std::uint32_t> releases;              // how often that has changed: a futex
    alignas(64) std::atomic<std::uint32_t> readerWaits;
    std::atomic<std::uint32_t> writerWaits;
    alignas(64) std::array<std::atomic<std::uint64_t>, figureCount> figures;
    alignas(64) CaptureMessage messages[ringMessages];
    alignas(64) unsigned char bytes[ringBytes];
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

/// The writer's side. One thread at a time.
struct RingWriter {
    CaptureRing* ring = nullptr;
    struct Block {
        bool isOpen = false;           // reserved
        std::uint64_t lastMessage = 0; // that lies in it
    };
    std::array<Block, ringBlocks> blocks{};
    std::span<unsigned char> small{}; // what is left of the block that small buffers share
};

/// Room for so many bytes, in one piece; empty while the reader needs too many blocks. Stays until
/// it is committed or given back, and leaves enough for `append` however many there are.
std::span<unsigned char> reserve(RingWriter& writer, std::size_t bytes);

/// What is written at the beginning of the room is the next message's; the rest is given back.
/// False, and nothing done, while there is no room for a message.
bool commit(RingWriter& writer, std::span<unsigned char> room, std::size_t written,
            CaptureMessage what);
void giveBack(RingWriter& writer, std::span<unsigned char> room);

/// A message whose bytes are copied from some pieces. False while there is no room.
bool append(RingWriter& writer, std::span<const std::span<const unsigned char>> pieces,
            CaptureMessage what);

/// Whether the reader is to be woken although no frame has ended.
bool isFilling(const RingWriter& writer);

/// Adds to a figure. Any thread.
void count(const RingWriter& writer, Figure figure, std::uint64_t more);

/// Whether it waits, and so has to be woken now.
bool mustWakeReader(RingWriter& writer);

/// To wait for room: first this, then whatever may fail for want of it, then awaitRelease with the
/// result, which returns once the reader has released something since, or after so long.
std::uint32_t beginWaiting(RingWriter& writer);
void awaitRelease(RingWriter& writer, std::uint32_t begun, int milliseconds);

/// The reader's side.
struct RingReader {
    CaptureRing* ring = nullptr;
    std::uint64_t next = 0;
};

/// What the writer says is believed only as far as it lies within the memory.
enum class Taken { nothing, message, fault };
Taken take(RingReader& reader, CaptureMessage& message, std::span<const unsigned char>& bytes);

/// What has been taken so far is needed no more.
void release(RingReader& reader);

Figures figuresOf(const RingReader& reader);

/// Before the reader waits: false when there is something to take. Afterwards endReaderWait.
bool mayWait(RingReader& reader);
void endReaderWait(RingReader& reader);

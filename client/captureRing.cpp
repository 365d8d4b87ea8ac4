#include "client/captureRing.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <numeric>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::size_t blocksOf(std::size_t bytes) { return (bytes + ringBlock - 1) / ringBlock; }

// The blocks of a room, which ends with a block or, of small buffers, does not.
std::span<RingWriter::Block> blocksUnder(RingWriter& writer, std::span<unsigned char> room)
{
    const auto at = static_cast<std::size_t>(room.data() - writer.ring->bytes);
    return std::span(writer.blocks).subspan(at / ringBlock, blocksOf(at % ringBlock + room.size()));
}

std::size_t sizeOf(std::span<const std::span<const unsigned char>> pieces)
{
    return std::accumulate(pieces.begin(), pieces.end(), std::size_t{0},
                           [](std::size_t sum, const auto& piece) { return sum + piece.size(); });
}

void copy(std::span<const std::span<const unsigned char>> pieces, unsigned char* to)
{
    for (const std::span<const unsigned char> piece : pieces)
        to = std::ranges::copy(piece, to).out;
}

void futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* longest)
{
    syscall(SYS_futex, &word, operation, value, longest, nullptr, 0);
}

// Rooms may stay open for as long as a program likes: the last blocks are left to what is copied,
// which is committed at once, so that it gets through whatever others hold.
constexpr std::size_t blocksForCopies = 8;

// Room in one piece among the first blocks.
std::span<unsigned char> find(RingWriter& writer, std::size_t bytes, std::size_t among)
{
    if (bytes == 0 || bytes > mostReserved)
        return {};
    const std::uint64_t consumed = writer.ring->consumed.load(std::memory_order_acquire);
    const std::size_t wanted = blocksOf(bytes);
    std::size_t found = 0; // the lowest ones, which were used last: they are in the cache
    for (std::size_t i = 0; i < among; ++i) {
        const RingWriter::Block& block = writer.blocks[i];
        found = block.isOpen || block.lastMessage > consumed ? 0 : found + 1;
        if (found < wanted)
            continue;
        const std::size_t first = i + 1 - wanted;
        for (RingWriter::Block& taken : std::span(writer.blocks).subspan(first, wanted))
            taken.isOpen = true;
        return {writer.ring->bytes + first * ringBlock, wanted * ringBlock};
    }
    return {};
}

} // namespace

std::span<unsigned char> reserve(RingWriter& writer, std::size_t bytes)
{
    return find(writer, bytes, ringBlocks - blocksForCopies);
}

void giveBack(RingWriter& writer, std::span<unsigned char> room)
{
    for (RingWriter::Block& block : blocksUnder(writer, room))
        block.isOpen = false;
}

bool commit(RingWriter& writer, std::span<unsigned char> room, std::size_t written,
            CaptureMessage what)
{
    CaptureRing& ring = *writer.ring;
    const std::uint64_t number = ring.committed.load(std::memory_order_relaxed);
    if (number - ring.consumed.load(std::memory_order_acquire) >= ringMessages)
        return false;
    what.at = static_cast<std::uint32_t>(room.data() - ring.bytes);
    what.hdr.size = static_cast<std::int32_t>(written);
    ring.messages[number % ringMessages] = what;
    for (RingWriter::Block& block : blocksUnder(writer, room.first(written)))
        block.lastMessage = number + 1;
    giveBack(writer, room);
    ring.committed.store(number + 1); // seq_cst: before readerWaits is looked at
    return true;
}

bool append(RingWriter& writer, std::span<const std::span<const unsigned char>> pieces,
            CaptureMessage what)
{
    const std::size_t bytes = sizeOf(pieces);
    constexpr std::size_t small = ringBlock / 8; // these share a block
    if (bytes > small) {
        const std::span<unsigned char> room = find(writer, bytes, ringBlocks);
        if (room.empty())
            return false;
        copy(pieces, room.data());
        if (!commit(writer, room, bytes, what)) {
            giveBack(writer, room);
            return false;
        }
        count(writer, Figure::copied, bytes);
        return true;
    }
    if (writer.small.size() < bytes) {
        const std::span<unsigned char> room = find(writer, ringBlock, ringBlocks);
        if (room.empty())
            return false;
        if (!writer.small.empty())
            giveBack(writer, writer.small);
        writer.small = room;
    }
    const std::span<unsigned char> place = writer.small.first(bytes);
    copy(pieces, place.data());
    if (!commit(writer, place, bytes, what))
        return false;
    count(writer, Figure::copied, bytes);
    writer.small = writer.small.subspan(bytes);
    for (RingWriter::Block& block : blocksUnder(writer, writer.small))
        block.isOpen = true; // it is not full yet
    return true;
}

bool isFilling(const RingWriter& writer)
{
    const CaptureRing& ring = *writer.ring;
    const std::uint64_t consumed = ring.consumed.load(std::memory_order_acquire);
    const auto inUse = std::ranges::count_if(writer.blocks, [=](const RingWriter::Block& block) {
        return block.isOpen || block.lastMessage > consumed;
    });
    return inUse > std::ssize(writer.blocks) / 2 ||
           ring.committed.load(std::memory_order_relaxed) - consumed > ringMessages / 2;
}

void count(const RingWriter& writer, Figure figure, std::uint64_t more)
{
    if (writer.ring)
        writer.ring->figures[static_cast<std::size_t>(figure)].fetch_add(more,
                                                                         std::memory_order_relaxed);
}

bool mustWakeReader(RingWriter& writer)
{
    return writer.ring->readerWaits.load() != 0 && writer.ring->readerWaits.exchange(0) != 0;
}

std::uint32_t beginWaiting(RingWriter& writer)
{
    writer.ring->writerWaits.store(1);
    return writer.ring->releases.load();
}

void awaitRelease(RingWriter& writer, std::uint32_t begun, int milliseconds)
{
    const timespec longest{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    futex(writer.ring->releases, FUTEX_WAIT, begun, &longest); // returns when it is another already
}

Taken take(RingReader& reader, CaptureMessage& message, std::span<const unsigned char>& bytes)
{
    const CaptureRing& ring = *reader.ring;
    const std::uint64_t committed = ring.committed.load(std::memory_order_acquire);
    if (committed == reader.next)
        return Taken::nothing;
    if (committed - reader.next > ringMessages)
        return Taken::fault;
    message = ring.messages[reader.next % ringMessages]; // once: the writer might change it
    ++reader.next;
    const auto size = static_cast<std::uint32_t>(message.hdr.size);
    if (message.hdr.size < 0 || message.at > ringBytes || size > ringBytes - message.at)
        return Taken::fault;
    bytes = {ring.bytes + message.at, size};
    return Taken::message;
}

void release(RingReader& reader)
{
    CaptureRing& ring = *reader.ring;
    if (ring.consumed.load(std::memory_order_relaxed) == reader.next)
        return;
    ring.consumed.store(reader.next, std::memory_order_release);
    ring.releases.fetch_add(1);
    if (ring.writerWaits.load() != 0 && ring.writerWaits.exchange(0) != 0)
        futex(ring.releases, FUTEX_WAKE, INT_MAX, nullptr); // several threads may wait
}

Figures figuresOf(const RingReader& reader)
{
    Figures figures{};
    std::ranges::transform(reader.ring->figures, figures.begin(), [](const auto& figure) {
        return figure.load(std::memory_order_relaxed);
    });
    return figures;
}

bool mayWait(RingReader& reader)
{
    reader.ring->readerWaits.store(1);
    return reader.ring->committed.load() == reader.next;
}

void endReaderWait(RingReader& reader) { reader.ring->readerWaits.store(0); }

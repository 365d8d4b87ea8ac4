// The memory between a captured program and the wall's process, both sides in one process, without
// a socket. Built once more under the thread sanitizer.
#include <gtest/gtest.h>

#include "client/captureRing.h"

#include <algorithm>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

struct Sides {
    std::unique_ptr<CaptureRing> ring = std::make_unique<CaptureRing>();
    RingWriter writer{ring.get()};
    RingReader reader{ring.get()};
};

bool sends(RingWriter& writer, std::size_t bytes, unsigned char value, bool inPlace)
{
    if (!inPlace) {
        const std::vector<unsigned char> all(bytes, value);
        const std::span<const unsigned char> whole = all;
        const std::span<const unsigned char> pieces[] = {whole.first(1), whole.subspan(1)};
        return append(writer, pieces, {.hdr = {0, 0}});
    }
    const std::span<unsigned char> room = reserve(writer, bytes);
    if (room.empty())
        return false;
    std::ranges::fill(room.first(bytes), value);
    if (commit(writer, room, bytes, {.hdr = {0, 0}}))
        return true;
    giveBack(writer, room);
    return false;
}

// True when the next message has these bytes.
bool takes(RingReader& reader, std::size_t bytes, unsigned char value)
{
    CaptureMessage message{};
    std::span<const unsigned char> at;
    return take(reader, message, at) == Taken::message && at.size() == bytes &&
           std::ranges::count(at, value) == std::ssize(at);
}

// The writer gets no room that the reader still needs, be it blocks or messages, nor what is being
// written.
TEST(Ring, HoldsTheWriterBack)
{
    for (const std::size_t bytes : {std::size_t{9}, ringBlock / 8, ringBlock, 3 * ringBlock + 1})
        for (const bool inPlace : {false, true}) {
            Sides sides;
            auto& [ring, writer, reader] = sides;
            const std::span<unsigned char> open = reserve(writer, ringBlock);
            std::ranges::fill(open, 255);
            unsigned sent = 0;
            while (sends(writer, bytes, static_cast<unsigned char>(sent % 255), inPlace))
                ASSERT_LE(++sent, ringMessages);
            const std::size_t each = inPlace || bytes > ringBlock / 8
                                         ? (bytes + ringBlock - 1) / ringBlock * ringBlock
                                         : bytes;
            const std::size_t blocks = ringBlocks - 1 - (inPlace ? 8 : 0); // left to copies
            EXPECT_EQ(sent, std::min(ringMessages, each < ringBlock ? ringBlock / each * blocks
                                                                    : blocks / (each / ringBlock)));
            EXPECT_TRUE(isFilling(writer));
            for (unsigned i = 0; i < sent; ++i)
                ASSERT_TRUE(takes(reader, bytes, static_cast<unsigned char>(i % 255))) << i;
            EXPECT_FALSE(sends(writer, bytes, 0, inPlace));
            release(reader);
            EXPECT_FALSE(isFilling(writer));
            EXPECT_TRUE(sends(writer, bytes, 7, inPlace));
            EXPECT_TRUE(takes(reader, bytes, 7));
            EXPECT_EQ(std::ranges::count(open, 255), std::ssize(open));
        }
    Sides sides;
    EXPECT_TRUE(reserve(sides.writer, 0).empty());
    EXPECT_TRUE(reserve(sides.writer, mostReserved + 1).empty());
    const std::span<unsigned char> most = reserve(sides.writer, mostReserved);
    EXPECT_EQ(most.size(), mostReserved);
    giveBack(sides.writer, most);
    EXPECT_EQ(reserve(sides.writer, mostReserved).data(), most.data());
}

// Whatever rooms are held open, what is copied gets through, a MiB in one piece.
TEST(Ring, OpenRoomsHoldUpNobodyElse)
{
    Sides sides;
    auto& [ring, writer, reader] = sides;
    ASSERT_TRUE(sends(writer, 9, 1, false) && takes(reader, 9, 1)); // its block is not full yet
    release(reader);
    std::vector<std::span<unsigned char>> open;
    while (open.empty() || !open.back().empty())
        std::ranges::fill(open.emplace_back(reserve(writer, ringBlock)), 255);
    for (unsigned char i = 0; i < 40; ++i) {
        const std::size_t bytes = i % 2 ? 2000 : mostReserved / 4;
        ASSERT_TRUE(sends(writer, bytes, i, false)) << int{i};
        ASSERT_TRUE(takes(reader, bytes, i));
        release(reader);
    }
    for (const std::span<unsigned char> room : open)
        EXPECT_EQ(std::ranges::count(room, 255), std::ssize(room));
}

// Whoever waits is woken, once, and nobody waits where there is something.
TEST(Ring, WakesWhoWaits)
{
    Sides sides;
    auto& [ring, writer, reader] = sides;
    EXPECT_FALSE(mustWakeReader(writer));
    EXPECT_TRUE(mayWait(reader));
    EXPECT_TRUE(sends(writer, 1, 1, true));
    EXPECT_TRUE(mustWakeReader(writer));
    EXPECT_FALSE(mustWakeReader(writer));
    EXPECT_FALSE(mayWait(reader));
    endReaderWait(reader);
    EXPECT_FALSE(mustWakeReader(writer));
}

// Two threads, each as fast as it can; what is released late is read late.
TEST(Ring, BytesStayUntilTheyHaveBeenRead)
{
    constexpr unsigned messages = 3000;
    const auto sizeOf = [](unsigned number) {
        std::minstd_rand random(number + 1);
        return std::size_t{1} + random() % (number % 8 == 0 ? 3 * ringBlock : 2000);
    };
    Sides sides;
    auto& [ring, writer, reader] = sides;
    constexpr int longest = 20'000; // milliseconds
    std::jthread program([&writer = writer, sizeOf] {
        for (unsigned number = 0; number < messages;) {
            const std::uint32_t begun = beginWaiting(writer);
            if (sends(writer, sizeOf(number), static_cast<unsigned char>(number), number % 3 == 0))
                ++number;
            else
                awaitRelease(writer, begun, longest);
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(longest);
    for (unsigned number = 0; number < messages;) {
        CaptureMessage message{};
        std::span<const unsigned char> bytes;
        const Taken taken = take(reader, message, bytes);
        ASSERT_NE(taken, Taken::fault);
        if (taken == Taken::nothing) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << number;
            release(reader);
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(bytes.size(), sizeOf(number));
        ASSERT_EQ(std::ranges::count(bytes, static_cast<unsigned char>(number)), std::ssize(bytes))
            << number;
        if (++number % 5 == 0)
            release(reader);
    }
}

// What the other side says is not believed.
TEST(Ring, ExtentsLieWithinIt)
{
    const auto taken = [](std::int32_t size, std::uint32_t at, std::uint64_t committed) {
        Sides sides;
        sides.ring->messages[0] = {.hdr = {size, 0}, .at = at};
        sides.ring->committed = committed;
        CaptureMessage message{};
        std::span<const unsigned char> bytes;
        return take(sides.reader, message, bytes);
    };
    constexpr auto all = static_cast<std::uint32_t>(ringBytes);
    EXPECT_EQ(taken(100, 0, 1), Taken::message);
    EXPECT_EQ(taken(100, all - 100, ringMessages), Taken::message);
    EXPECT_EQ(taken(0, all, 1), Taken::message);
    EXPECT_EQ(taken(100, 0, 0), Taken::nothing);
    EXPECT_EQ(taken(100, 0, ringMessages + 1), Taken::fault);
    EXPECT_EQ(taken(100, 0, ~std::uint64_t{0}), Taken::fault);
    EXPECT_EQ(taken(100, all - 99, 1), Taken::fault);
    EXPECT_EQ(taken(1, all, 1), Taken::fault);
    EXPECT_EQ(taken(1, 0xffffffff, 1), Taken::fault);
    EXPECT_EQ(taken(static_cast<std::int32_t>(all) + 1, 0, 1), Taken::fault);
    EXPECT_EQ(taken(-1, 0, 1), Taken::fault);
}

} // namespace

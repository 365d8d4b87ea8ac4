// Arbitrary bytes through the decoder. The first byte of an input selects the surroundings; the
// rest are up to three command buffers, walked one after the other, so that what one leaves behind
// (arrays, lists, records of objects) meets the next.
#include "coding/decoder.h"
#include "tests/fuzz/sampleRecord.h"
#include "tests/fuzz/standInSystem.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>

namespace {

// Bits of the first byte.
constexpr unsigned withoutOverloads = 1;
constexpr unsigned nothingCurrent = 2;
constexpr unsigned traced = 4;
constexpr unsigned threeBuffers = 8;
constexpr int numberShift = 4;

constexpr double numbers[] = {0,    1,      -1,   0.001,
                              1e9,  -1e9,   1e30, std::numeric_limits<double>::quiet_NaN(),
                              8192, 1e-300, 3,    -std::numeric_limits<double>::infinity()};

// Walks the bytes in a block of exactly their size, so that a step outside is seen.
void walk(const unsigned char* bytes, std::size_t size)
{
    const std::unique_ptr<unsigned char[]> block(new unsigned char[size]);
    std::copy_n(bytes, size, block.get());
    try {
        decoder(block.get(), static_cast<int>(size));
    } catch (const InvariantFailed&) {
    }
    const bool inBounds = nContexts < tableSlots && nVisualInfos <= tableSlots &&
                          nDrawables < tableSlots && nTextureIDs <= textureSlots;
    if (!inBounds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const unsigned choice = *data++;
    --size;
    queriedNumber = numbers[(choice >> numberShift) % std::size(numbers)];
    installStandIns(!(choice & withoutOverloads));
    resetServer(!(choice & nothingCurrent));
    xx = choice & traced ? 1 : 0;
    const std::size_t buffers = choice & threeBuffers ? 3 : 1;
    for (std::size_t i = 0; i < buffers; ++i)
        walk(data + size * i / buffers, size * (i + 1) / buffers - size * i / buffers);
    resetServer(false);
    return 0;
}

#ifdef MOSA_LIBFUZZER
extern "C" std::size_t LLVMFuzzerMutate(unsigned char* data, std::size_t size, std::size_t most);

// Beside the engine's own mutations: a record of some operation in between two others. Random
// bytes alone seldom make up a whole record.
extern "C" std::size_t LLVMFuzzerCustomMutator(unsigned char* data, std::size_t size,
                                               std::size_t most, unsigned seed)
{
    std::minstd_rand random(seed);
    if (random() % 2)
        return LLVMFuzzerMutate(data, size, most);

    // The beginnings of the records, and the end of the last whole one.
    std::vector<std::size_t> places{1};
    while (places.back() + 2 <= size) {
        const std::size_t at = places.back();
        const unsigned opcode = load<std::uint16_t>(data + at);
        const auto* args = reinterpret_cast<const char*>(data + at + 2);
        const auto room = static_cast<std::int64_t>(size - at - 2);
        if (opcode >= operationCount || !blockFits(recordExtents[opcode], args, room))
            break;
        const Extent& extent = recordExtents[opcode];
        const std::int64_t block = extent.head + (extent.rest ? extent.rest(args) : 0);
        places.push_back(at + 2 + static_cast<std::size_t>(block));
    }

    constexpr std::uint32_t words[] = {0, 1, 2, 3, 8, 0x1406, 0xFFFFFFFF, 0x7FFFFFFF};
    std::vector<unsigned char> record;
    appendSampleRecord(record, static_cast<int>(random() % operationCount),
                       words[random() % std::size(words)]);
    if (size < 1 || size + record.size() > most)
        return LLVMFuzzerMutate(data, size, most);
    const auto place = static_cast<std::ptrdiff_t>(places[random() % places.size()]);
    std::copy_backward(data + place, data + size, data + size + record.size());
    std::ranges::copy(record, data + place);
    return size + record.size();
}
#endif

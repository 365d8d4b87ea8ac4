// Damages recordings reproducibly and plays each to a real server with Mesa's OpenGL:
//   damaged PROGRAMS EXAMPLES SECONDS [FIRST]
// Numbers from FIRST on (1) name what is done to which recording. Nothing but a message may come of
// it, or the end by an invariant; otherwise the stream is left in the working directory.
#include "client/streamFile.h"
#include "tools/mpiJob.h"
#include "tools/virtualDisplays.h"
#include "wire/operations.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <random>

namespace {

using Random = std::minstd_rand;
using Bytes = std::vector<unsigned char>;
constexpr std::size_t mostBuffers = 12; // of a recording
constexpr Timeout limit = std::chrono::seconds(15);

std::size_t below(Random& random, std::size_t n) { return n ? random() % n : 0; }

struct Place {
    std::size_t at;
    int opcode;
};

// The records of a buffer, as far as they can be followed.
std::vector<Place> recordsIn(const Bytes& buffer)
{
    std::vector<Place> places;
    for (std::size_t at = 0; at + opcodeBytes <= buffer.size();) {
        const int opcode = load<std::uint16_t>(&buffer[at]);
        const auto* args = reinterpret_cast<const char*>(buffer.data() + at + opcodeBytes);
        const auto room = static_cast<std::int64_t>(buffer.size() - at - opcodeBytes);
        if (opcode >= operationCount || !blockFits(recordExtents[opcode], args, room))
            break;
        places.push_back({at, opcode});
        at += opcodeBytes + static_cast<std::size_t>(blockBytes(recordExtents[opcode], args));
    }
    return places;
}

void damage(Bytes& buffer, const Bytes& other, Random& random)
{
    const std::vector<Place> records = recordsIn(buffer);
    if (records.empty())
        return;
    const Place record = records[below(random, records.size())];
    const std::size_t argument = record.at + opcodeBytes + 4 * below(random, 8);
    const auto put = [&](std::size_t at, auto value) {
        if (at + sizeof value <= buffer.size())
            store(&buffer[at], value);
    };
    constexpr std::int32_t counts[] = {0, 1, -1, 3, 255, 4096, 1 << 20, 0x7FFFFFFF};
    const auto offset = [](std::size_t n) { return static_cast<std::ptrdiff_t>(n); };
    switch (below(random, 7)) {
    case 0:
        put(record.at, static_cast<std::uint16_t>(below(random, operationCount)));
        break;
    case 1:
        put(argument, counts[below(random, std::size(counts))]);
        break;
    case 2:
        put(argument, static_cast<float>(below(random, 2000)) - 1000.0F);
        break;
    case 3:
        buffer[below(random, buffer.size())] ^= static_cast<unsigned char>(1 << below(random, 8));
        break;
    case 4:
        buffer.erase(buffer.begin() + offset(below(random, buffer.size())));
        break;
    case 5: { // a whole record is missing
        const std::size_t next = record.at + opcodeBytes +
                                 static_cast<std::size_t>(blockBytes(
                                     recordExtents[record.opcode],
                                     reinterpret_cast<const char*>(&buffer[record.at]) + 2));
        buffer.erase(buffer.begin() + offset(record.at), buffer.begin() + offset(next));
        break;
    }
    default: { // a piece of another stream
        const std::vector<Place> foreign = recordsIn(other);
        if (foreign.empty())
            break;
        const std::size_t from = foreign[below(random, foreign.size())].at;
        const std::size_t to = std::min(other.size(), from + 16 + below(random, 400));
        buffer.insert(buffer.begin() + offset(record.at), other.begin() + offset(from),
                      other.begin() + offset(to));
    }
    }
}

std::vector<OutgoingBuffer> beginningOf(const StreamFile& stream)
{
    std::vector<OutgoingBuffer> buffers;
    for (const auto& [at, hdr] : stream.buffers) {
        if (buffers.size() == mostBuffers)
            break;
        const unsigned char* first = stream.bytes.data() + at;
        buffers.push_back({Bytes(first, first + hdr.size), hdr.sync});
    }
    return buffers;
}

// What is wrong with a server's end; empty when nothing is.
std::string faultOf(const Ending& ending)
{
    if (ending.timedOut)
        return {}; // OpenGL may take as long as it likes
    const std::string said = ending.out + ending.err;
    for (const char* sign : {"Sanitizer", "runtime error:"})
        if (said.find(sign) != said.npos)
            return sign;
    // An invariant, or no visual as the stream wants it.
    const bool byDesign = said.find("MOSA: assertion failed") != said.npos ||
                          said.find("MOSA: No conforming visual") != said.npos;
    return ending.status == 0 || byDesign ? "" : "status " + std::to_string(ending.status);
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 4)
        return 2;
    const std::string programs = argv[1];
    std::vector<std::vector<OutgoingBuffer>> streams;
    std::vector<std::filesystem::path> names;
    std::copy(std::filesystem::directory_iterator(argv[2]), {}, std::back_inserter(names));
    std::ranges::sort(names);
    for (const auto& name : names)
        if (name.filename().string().find(".mws") != std::string::npos)
            streams.push_back(beginningOf(readStreamFile(name)));
    std::vector<VirtualDisplay> displays = startDisplays(1, 300, 300);
    Job job;
    job.server = {programs + "/server"};
    job.environment =
        virtualWallEnvironment(temporaryFile(displays[0].name + " 300 300 0 0 300 300\n"));
    job.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1");
    const std::string file = temporaryFile("");
    job.client = {programs + "/play", file};

    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(std::atoi(argv[3]));
    unsigned number = argc > 4 ? static_cast<unsigned>(std::atoi(argv[4])) : 1;
    int played = 0, byInvariant = 0, late = 0, faults = 0;
    for (; Clock::now() < end; ++number, ++played) {
        Random random(number);
        random.discard(10);
        std::vector<OutgoingBuffer> stream = streams[below(random, streams.size())];
        const auto& other = streams[below(random, streams.size())];
        for (std::size_t i = 1 + below(random, 4); i > 0; --i)
            damage(stream[below(random, stream.size())].bytes,
                   other[below(random, other.size())].bytes, random);
        writeStreamFile(file, stream);
        const Ending ending = runJob(job, limit);
        late += ending.timedOut;
        const std::string fault = faultOf(ending);
        byInvariant += ending.status != 0 && !ending.timedOut && fault.empty();
        if (!fault.empty()) {
            ++faults;
            const std::string kept = "damaged-" + std::to_string(number) + ".mws";
            std::filesystem::copy_file(file, kept,
                                       std::filesystem::copy_options::overwrite_existing);
            std::printf("%s: %s\n%s\n", kept.c_str(), fault.c_str(), ending.err.c_str());
        }
    }
    std::printf(
        "%d recordings up to number %u: %d ends by an invariant, %d took too long, %d faults\n",
        played, number - 1, byInvariant, late, faults);
    stopDisplays(displays);
    return faults > 0 || played == 0 ? 1 : 0;
} catch (const std::exception& fault) {
    std::fprintf(stderr, "damaged: %s\n", fault.what());
    return 1;
}

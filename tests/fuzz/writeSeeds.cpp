// Writes the inputs that fuzzing starts from, and its dictionary:
//   writeSeeds DIRECTORY DICTIONARY STREAM-FILE...
// One record of each operation, and the smaller command buffers of recorded streams.
#include "client/streamFile.h"
#include "tests/fuzz/sampleRecord.h"
#include "tools/describe.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t largestBuffer = 8192;
constexpr int buffersPerStream = 12;

void writeSeed(const std::filesystem::path& name, char choice, const Bytes& buffer)
{
    std::ofstream file(name, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << choice << std::string(buffer.begin(), buffer.end()) << std::flush;
}

void writeOperations(const std::filesystem::path& directory, std::ofstream& dictionary)
{
    for (int opcode = 0; opcode < operationCount; ++opcode) {
        Bytes record;
        appendSampleRecord(record, opcode, 1);
        writeSeed(directory / operationName(opcode), 0x10, record);
        char line[80];
        std::snprintf(line, sizeof line, "\"\\x%02x\\x%02x\"\n", opcode & 255, opcode >> 8);
        dictionary << line;
    }
}

void writeBuffers(const std::filesystem::path& directory, const std::string& name)
{
    constexpr char nothingCurrent = 2;
    const StreamFile stream = readStreamFile(name);
    const std::string stem = std::filesystem::path(name).stem();
    for (int written = 0; const StreamBuffer& buffer : stream.buffers) {
        const auto size = static_cast<std::size_t>(buffer.hdr.size);
        if (size == 0 || size > largestBuffer || written == buffersPerStream)
            continue;
        const unsigned char* first = stream.bytes.data() + buffer.offset;
        writeSeed(directory / (stem + "-" + std::to_string(written)),
                  written == 0 ? nothingCurrent : 0, Bytes(first, first + size));
        ++written;
    }
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 3)
        return 2;
    const std::filesystem::path directory = argv[1];
    std::filesystem::create_directories(directory);
    std::ofstream dictionary(argv[2]);
    writeOperations(directory, dictionary);
    for (int i = 3; i < argc; ++i)
        writeBuffers(directory, argv[i]);
    return dictionary.flush() ? 0 : 1;
} catch (const std::exception& fault) {
    std::fprintf(stderr, "writeSeeds: %s\n", fault.what());
    return 1;
}

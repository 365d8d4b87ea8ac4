// Shows a stream file in words, or counts what is in it.
#include "client/streamFile.h"
#include "tools/describe.h"
#include "wire/opcodes.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

struct Options {
    std::string file;
    bool stats = false;
    int frame = 0; // counted from 1; 0: all
};

struct Count {
    int opcode;
    long records, bytes;
};

struct Totals {
    long buffers = 0, frames = 0, bytes = 0, faults = 0;
    std::array<Count, operationCount> operations{};
};

void parse(CLI::App& app, Options& options)
{
    app.description("Shows a recorded OpenGL command stream in words: one record a line, with its "
                    "byte offset in its command buffer. Ends with status 1 when a record is "
                    "faulty or the file is damaged.");
    app.add_option("FILE", options.file, "stream file, also gzip-compressed")->required();
    app.add_flag("--stats", options.stats,
                 "instead of the records, count them and their bytes by operation");
    app.add_option("--frame", options.frame, "only frame N, counted from 1")
        ->check(CLI::PositiveNumber);
    app.set_version_flag("--version", MOSA_VERSION);
}

void showRecord(const Record& record, std::ptrdiff_t offset, const char* at)
{
    std::string line;
    if (record.fault.empty())
        describeRecord(line, record, at);
    else
        line = "FAULT: " + record.fault;
    std::printf("%10td  %s\n", offset, line.c_str());
}

// Walks one buffer as the server does; the rest behind a fault is lost.
void dumpBuffer(const char* begin, std::int64_t bytes, const Options& options, Totals& totals)
{
    const char* const end = begin + bytes;
    for (const char* at = begin; at < end;) {
        const Record record = measureRecord(at, end - at);
        const bool faulty = !record.fault.empty();
        if (!options.stats || faulty)
            showRecord(record, at - begin, at);
        if (faulty) {
            ++totals.faults;
            return;
        }
        Count& count = totals.operations[static_cast<std::size_t>(record.opcode)];
        count.opcode = record.opcode;
        ++count.records;
        count.bytes += record.bytes;
        at += record.bytes;
    }
}

void dump(const StreamFile& file, const Options& options, Totals& totals)
{
    int frame = 1;
    for (std::size_t i = 0; i < file.buffers.size(); ++i) {
        const auto& [offset, hdr] = file.buffers[i];
        if (options.frame == 0 || options.frame == frame) {
            if (!options.stats)
                std::printf("buffer %zu, frame %d: %d bytes at byte %zu of the file, sync %d\n",
                            i + 1, frame, hdr.size, offset, hdr.sync);
            dumpBuffer(reinterpret_cast<const char*>(file.bytes.data() + offset), hdr.size, options,
                       totals);
            ++totals.buffers;
            totals.bytes += hdr.size;
            totals.frames += hdr.sync != 0;
        }
        frame += hdr.sync != 0;
    }
}

void showTotals(Totals& totals)
{
    std::ranges::stable_sort(totals.operations, std::greater{}, &Count::records);
    std::printf("%-36s %10s %12s\n", "operation", "records", "bytes");
    Count all{};
    for (const Count& count : totals.operations) {
        if (count.records == 0)
            break;
        std::printf("%-36s %10ld %12ld\n", operationName(count.opcode), count.records, count.bytes);
        all.records += count.records;
        all.bytes += count.bytes;
    }
    std::printf("%-36s %10ld %12ld\n", "all", all.records, all.bytes);
    std::printf("%ld buffers of %ld bytes, %ld frames\n", totals.buffers, totals.bytes,
                totals.frames);
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app;
    parse(app, options);
    CLI11_PARSE(app, argc, argv);

    static Totals totals;
    try {
        const StreamFile file = readStreamFile(options.file);
        const _handshake& h = file.handshake;
        std::printf("%s: version %d, address mode %d, byte order %d\n", file.name.c_str(),
                    h.version, h.addrmode, h.endian);
        dump(file, options, totals);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "streamdump: %s\n", fault.what());
        return 1;
    }
    if (options.stats)
        showTotals(totals);
    if (totals.buffers == 0 && options.frame > 0)
        std::fprintf(stderr, "streamdump: %s has no frame %d\n", options.file.c_str(),
                     options.frame);
    if (totals.faults)
        std::fprintf(stderr, "streamdump: %ld faulty records\n", totals.faults);
    if (std::fflush(stdout) != 0) {
        std::perror("streamdump: standard output");
        return 1;
    }
    return totals.faults || (totals.buffers == 0 && options.frame > 0) ? 1 : 0;
}

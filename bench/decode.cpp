// Decoding alone: streams decoded with entries that do nothing, beside two floors and memcpy.
#include "bench/calls.h"
#include "bench/streams.h"
#include "client/streamFile.h"
#include "coding/decoder.h"
#include "coding/fromWire.h"
#include "coding/server_overload/system.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

constexpr std::size_t streamBytes = 256 << 10; // what a second-level cache holds with its calls

/// A stream, and what was derived from it.
struct Input {
    std::string name;
    std::vector<CommandBuffer> buffers;
    Calls calls;
    std::int64_t bytes = 0;
};

// The operations of a stream: also those for which nothing is called.
std::int64_t decodeAll(Input& input)
{
    std::int64_t operations = 0;
    for (CommandBuffer& buffer : input.buffers) {
        if (!decoder(buffer.data(), static_cast<int>(buffer.size())))
            std::exit(1); // the stream is damaged, nothing is to be learned from it
        operations += knt + 1;
    }
    return operations;
}

void finish(benchmark::State& state, const Input& input, std::int64_t operations)
{
    state.SetItemsProcessed(operations);
    state.SetBytesProcessed(state.iterations() * input.bytes);
}

void runDecoder(benchmark::State& state, Input* input)
{
    installNothing(glOpTable);
    std::int64_t operations = 0;
    for (auto _ : state)
        operations += decodeAll(*input);
    finish(state, *input, operations);
}

void runCalls(benchmark::State& state, Input* input)
{
    for (auto _ : state)
        makeCalls(input->calls, 0, input->calls.words.size());
    finish(state, *input, state.iterations() * input->calls.count);
}

template <class Stream>
void runStraightLine(benchmark::State& state, Input* input)
{
    installNothing(glOpTable);
    CommandBuffer one;
    encodePattern<Stream>(one);
    const auto repeats = input->bytes / static_cast<std::int64_t>(one.size());
    for (auto _ : state)
        for (std::int64_t i = 0; i < repeats; ++i)
            performPattern<Stream>();
    finish(state, *input, state.iterations() * input->calls.count);
}

void runMemcpy(benchmark::State& state, Input* input)
{
    CommandBuffer copy(static_cast<std::size_t>(input->bytes));
    for (auto _ : state) {
        unsigned char* to = copy.data();
        for (const CommandBuffer& buffer : input->buffers) {
            std::memcpy(to, buffer.data(), buffer.size());
            to += buffer.size();
        }
        benchmark::ClobberMemory();
    }
    finish(state, *input, state.iterations() * input->calls.count);
}

void enlist(Input* input, void (*straightLine)(benchmark::State&, Input*))
{
    for (const CommandBuffer& buffer : input->buffers)
        input->bytes += static_cast<std::int64_t>(buffer.size());
    installRecording<false>(glOpTable);
    recordedCalls = &input->calls;
    decodeAll(*input);
    const auto add = [input](const char* what, void (*run)(benchmark::State&, Input*)) {
        benchmark::RegisterBenchmark((input->name + '/' + what).c_str(), run, input);
    };
    add("decoder", runDecoder);
    add("calls", runCalls);
    if (straightLine)
        add("straight line", straightLine);
    add("memcpy", runMemcpy);
}

template <class Stream>
void enlistSynthetic(std::vector<std::unique_ptr<Input>>& inputs)
{
    inputs.push_back(std::make_unique<Input>());
    Input& input = *inputs.back();
    input.name = Stream::name;
    CommandBuffer& buffer = input.buffers.emplace_back();
    while (buffer.size() < streamBytes)
        encodePattern<Stream>(buffer);
    enlist(&input, runStraightLine<Stream>);
}

void enlistRecording(std::vector<std::unique_ptr<Input>>& inputs, const std::string& fileName)
{
    inputs.push_back(std::make_unique<Input>());
    Input& input = *inputs.back();
    const std::string base = fileName.substr(fileName.rfind('/') + 1);
    input.name = base.substr(0, base.find('.'));
    const StreamFile file = readStreamFile(fileName);
    for (const StreamBuffer& buffer : file.buffers) {
        const unsigned char* bytes = file.bytes.data() + buffer.offset;
        input.buffers.emplace_back(bytes, bytes + buffer.hdr.size);
    }
    enlist(&input, nullptr);
}

} // namespace

// Arguments behind Google Benchmark's own: recordings.
int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    installNothing(pTbl); // what the server asks the system library itself
    std::vector<std::unique_ptr<Input>> inputs;
    enlistSynthetic<ImmediateMode>(inputs);
    enlistSynthetic<VectorForms>(inputs);
    enlistSynthetic<StateChanges>(inputs);
    enlistSynthetic<MatrixOperations>(inputs);
    for (int i = 1; i < argc; ++i)
        enlistRecording(inputs, argv[i]);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

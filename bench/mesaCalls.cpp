// The cost of a call from the wire to the system's OpenGL library, beside the same call made of the
// library directly, in the same context. Needs what a server needs: SYSTEM_OPENGL_LIB, and
// MOSA_DISPLAY with a wall of one display. The argument is a recording whose first frame sets up
// the context.
#include "bench/streams.h"
#include "client/streamFile.h"
#include "coding/decoder.h"
#include "coding/fromWire.h"
#include "overload/loader.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int repeats = 3000; // calls of the small operations in one buffer
constexpr int side = 256;     // of the image: 256 KiB
const std::vector<GLubyte> pixels(4 * side * side, 100);

// Every vertex the same: nothing is rasterised.
template <class Call>
void colouredVertices(Call call)
{
    call(op<Op::glBegin>, GLenum{GL_TRIANGLES});
    for (int i = 0; i < repeats; ++i) {
        call(op<Op::glColor3f>, 1.0F, 0.5F, 0.0F);
        call(op<Op::glVertex3f>, 0.0F, 0.0F, 0.0F);
    }
    call(op<Op::glEnd>);
}

template <class Call>
void colours(Call call)
{
    for (int i = 0; i < repeats; ++i)
        call(op<Op::glColor3f>, 1.0F, 0.5F, 0.0F);
}

template <class Call>
void translations(Call call)
{
    for (int i = 0; i < repeats; ++i)
        call(op<Op::glTranslatef>, 0.0F, 0.0F, 0.0F);
}

// `image` differs: the stream carries the pixels, the library takes their address.
void drawNative()
{
    entryOf<Op::glDrawPixels>(baseOpTable)(side, side, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    entryOf<Op::glFinish>(baseOpTable)();
}

CommandBuffer drawStream()
{
    CommandBuffer buffer;
    encode<Op::glDrawPixels>(buffer, side, side, GLenum{GL_RGBA}, GLenum{GL_UNSIGNED_BYTE},
                             Block{pixels.data(), static_cast<int>(pixels.size())});
    encode<Op::glFinish>(buffer);
    return buffer;
}

constexpr auto native = []<Op o>(std::integral_constant<Op, o>, auto... arguments) {
    entryOf<o>(baseOpTable)(arguments...);
};

template <class Pattern>
CommandBuffer streamOf(Pattern pattern)
{
    CommandBuffer buffer;
    pattern([&buffer]<Op o>(std::integral_constant<Op, o>, auto... arguments) {
        encode<o>(buffer, arguments...);
    });
    return buffer;
}

template <class Native>
void add(const char* name, int calls, CommandBuffer stream, Native nativeCalls)
{
    const auto finish = [calls](benchmark::State& state) {
        state.SetItemsProcessed(state.iterations() * calls);
    };
    benchmark::RegisterBenchmark((std::string(name) + "/wire").c_str(),
                                 [stream, finish](benchmark::State& state) mutable {
                                     for (auto _ : state)
                                         decoder(stream.data(), static_cast<int>(stream.size()));
                                     finish(state);
                                 });
    benchmark::RegisterBenchmark((std::string(name) + "/native").c_str(),
                                 [nativeCalls, finish](benchmark::State& state) {
                                     for (auto _ : state)
                                         nativeCalls();
                                     finish(state);
                                 });
}

void playFirstFrame(const char* fileName)
{
    StreamFile file = readStreamFile(fileName);
    for (const StreamBuffer& buffer : file.buffers) {
        decoder(file.bytes.data() + buffer.offset, buffer.hdr.size);
        if (buffer.hdr.sync)
            return;
    }
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc != 2)
        return 2;
    LoadOps();
    playFirstFrame(argv[1]);
    add("glColor3f", repeats, streamOf([](auto call) { colours(call); }), [] { colours(native); });
    add("glTranslatef", repeats, streamOf([](auto call) { translations(call); }),
        [] { translations(native); });
    add("glColor3f + glVertex3f", repeats, streamOf([](auto call) { colouredVertices(call); }),
        [] { colouredVertices(native); });
    add("glDrawPixels 256 KiB", 1, drawStream(), drawNative);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

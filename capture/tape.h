// What a context's calls are written to, as records of the stream. Each context has its own, used
// by the thread in which it is current; contexts.cpp passes on what is written.
#pragma once

#include "client/encoder.h"

#include <algorithm>
#include <cstdint>
#include <utility>

/// What an operation does, as far as it decides whether it is sent.
enum class Effect {
    defines, // textures, lists, programs: what contexts share
    state,   // of the context alone
    draws,   // into its window
    own,     // the program's own affair, never sent as it is called: questions, names, GLX
};

/// Records up to `at`. Each kind of operation has an end of its own, so that one comparison tells
/// whether a record is wanted and has room; null when operations of the kind are not recorded.
struct Tape {
    unsigned char* at = nullptr;
    unsigned char* definesEnd = nullptr;
    unsigned char* stateEnd = nullptr;
    unsigned char* drawsEnd = nullptr;
    unsigned char* begin = nullptr;
    std::size_t room = 0;
};

/// The tape of the calling thread's context, or one on which nothing is recorded.
extern constinit thread_local Tape* currentTape [[gnu::tls_model("initial-exec")]];

template <Effect effect>
unsigned char* endFor(const Tape& tape)
{
    static_assert(effect != Effect::own);
    return effect == Effect::defines ? tape.definesEnd
           : effect == Effect::state ? tape.stateEnd
                                     : tape.drawsEnd;
}

inline constexpr std::int64_t largeBlock = 64 << 10;

/// Passes on what is written and makes room for `bytes` bytes, where operations of the kind are
/// recorded; otherwise returns false.
[[gnu::cold, gnu::noinline]] bool makeRoom(Tape& tape, Effect effect, std::int64_t bytes);

/// True when a record of the kind is wanted, and there is room for it at tape.at.
template <Effect effect>
bool hasRoom(Tape& tape, std::int64_t bytes)
{
    const auto at = reinterpret_cast<std::uintptr_t>(tape.at);
    const auto end = reinterpret_cast<std::uintptr_t>(endFor<effect>(tape));
    return at + static_cast<std::uintptr_t>(bytes) <= end || makeRoom(tape, effect, bytes);
}

/// The same for a record with a large block, which is not to be copied twice.
template <Effect effect>
bool hasRoomForBlock(Tape& tape, std::int64_t bytes)
{
    return bytes >= largeBlock ? makeRoom(tape, effect, bytes) : hasRoom<effect>(tape, bytes);
}

/// Whether an operation changes the images of textures, or how they are taken in.
constexpr bool changesImages(Op op)
{
    constexpr std::pair<Op, Op> all[] = {{Op::glPixelTransferf, Op::glGetPixelMapusv},
                                         {Op::glTexImage1D, Op::glTexImage2D},
                                         {Op::glDeleteTextures, Op::glDeleteTextures},
                                         {Op::glTexSubImage1D, Op::glCopyTexSubImage2D},
                                         {Op::glTexImage3D, Op::glCopyTexSubImage3D},
                                         {Op::glCompressedTexImage1D, Op::glGetCompressedTexImage},
                                         {Op::glTexImage3DEXT, Op::glCopyTexSubImage3DEXT}};
    return std::ranges::any_of(
        all, [op](const auto& some) { return op >= some.first && op <= some.second; });
}

/// Such an operation is recorded: keptImages.h.
[[gnu::noinline]] void noteImagesChanged(Op op);

/// Writes a record, if it is wanted.
template <Op op, Effect effect, class... A>
void record(const A&... a)
{
    if constexpr (changesImages(op))
        noteImagesChanged(op);
    Tape& tape = *currentTape;
    if (hasRoom<effect>(tape, recordBytes<op>(a...)))
        tape.at = storeRecord<op>(tape.at, a...);
}

/// Whether operations of a kind are recorded at all: what costs much to prepare asks before.
template <Effect effect>
bool isRecorded()
{
    return endFor<effect>(*currentTape) != nullptr;
}

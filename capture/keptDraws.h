// Draws from buffer objects that do not change. One that comes a second time becomes a display list
// at the servers, and every further one is a call of it: the elements travel once.
#pragma once

#include "capture/arrays.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

/// What a draw is made from: so many elements from the first on, or by so many indices.
struct DrawCall {
    GLenum mode;
    GLint first;
    GLsizei count;
    GLenum indexType = 0; // 0: no indices
    const void* indices = nullptr;
};

/// Everything that a draw depends on, in one row: two draws with equal keys draw the same.
using DrawKey = std::vector<std::uint64_t>;
struct DrawKeyHash {
    using is_transparent = void;
    std::size_t operator()(std::span<const std::uint64_t> key) const;
};
struct DrawKeyEqual {
    using is_transparent = void;
    bool operator()(std::span<const std::uint64_t> a, std::span<const std::uint64_t> b) const;
};

/// A draw that has come at least once.
struct KeptDraw {
    GLuint list = 0;             // at the servers; 0: it is not kept there
    std::size_t streamBytes = 0; // of its elements and what goes with them
    std::size_t bytes = 0;       // that it takes there
    std::uint64_t lastUsed = 0;  // frame
    struct Source {
        std::weak_ptr<const BufferObject> buffer;
        std::uint64_t version;
    };
    std::vector<Source> sources{};
};

/// Those of a share group, under keptDrawsLock.
struct KeptDraws {
    std::unordered_map<DrawKey, KeptDraw, DrawKeyHash, DrawKeyEqual> draws;
    std::vector<GLuint> freeLists;
    GLuint lists = 0;      // names that were given out, from firstKeptDraw on
    std::size_t bytes = 0; // at the servers
    std::uint64_t frame = 1;
    std::uint64_t fullIn = 0;               // the frame in which there was no room for another
    bool off = false;                       // it has ended
    std::uint64_t calls = 0, notSent = 0;   // since the last frame: of lists, and bytes of theirs
    std::atomic<std::uint64_t> changes = 0; // of buffers that a list was made from
    std::uint64_t changesSeen = 0;
};

/// Their names at the servers: where no program and no library has its own. The first list that one
/// has there ends the keeping in its share group.
inline constexpr GLuint firstKeptDraw = 0xf0000000, mostKeptDraws = 1 << 16;

/// Records a draw of the current context: by a call of its list where it is kept or can be, or else
/// by `plain`. The arrays that it reads are ready (contentsOf).
void recordKeptDraw(const DrawCall& call, bool asCalls, void (*plain)(const DrawCall&));

/// The elements went as calls, which leave other current values behind than arrays do: records
/// those that the program has.
void recordCurrentValues();

/// The end of a frame that is on the wall: lists whose buffers have changed go.
void endFrameOfKeptDraws();

/// Two threads draw for the group by turns: what one has on its tape, be it a list or the end of
/// one, may reach the wall behind the other's calls of it.
void endKeepingDraws(KeptDraws& kept);

/// The program uses names of lists.
void noteListNames(GLuint list, GLsizei range);

/// Whether the current context's group has any.
bool hasKeptDraws();

// Contexts that share, as this library and the wall know them.
#pragma once

#include "capture/contexts.h"
#include "capture/keptDraws.h"
#include "capture/keptImages.h"

#include <atomic>
#include <map>
#include <mutex>

/// Contexts that share their lists, textures and programs: one context of the servers'.
struct ShareGroup {
    std::uint32_t handle = 0, visual = 0; // of the context on the wall
    std::uint32_t wallWindow = 0;         // in which it is current there
    UsedNames used{};                     // by members that are gone
    int members = 0;
    Context* main = nullptr; // the one whose state the wall has
    bool onWall = false;
    unsigned long window = 0;       // of the program, which that stands for
    std::atomic<WindowSize> size{}; // read at any time by threads of the group

    // What was called before the wall has the context.
    struct Piece {
        const Context* of; // perhaps gone
        bool draws;        // of a frame of which it is not known yet whether it is seen
        std::vector<unsigned char> records;
    };
    std::vector<Piece> pending;
    std::size_t pendingBytes = 0;
    bool lost = false; // it became too much

    std::map<GLuint, BufferPointer> buffers; // under buffersLock
    std::atomic<std::uint64_t> unseenChanges = 0;

    KeptLists lists;
    KeptDraws keptDraws;
    KeptImages keptImages;
};

// What servers have room for: 63 contexts, visuals and windows in their life, less those of
// programs that were on the wall before. Those that a program has given up are used again, contexts
// with the state of a new one. One thread at a time.
#pragma once

#include "capture/stream.h"
#include "client/encoder.h"

#include <optional>
#include <span>
#include <vector>

/// The largest names that a context has used, of those that outlive its state.
struct UsedNames {
    GLuint texture = 0, list = 0, program = 0;
    GLuint keptDraws = 0; // how many lists of these there are
};

/// A context of the servers'.
struct WallContext {
    std::uint32_t context = 0, visual = 0;
    bool newVisual = true, newContext = true;
    UsedNames leftOver{}; // of the program's context that had it before
};

/// A context for a visual with such attributes; none when there is no more room.
std::optional<WallContext> takeWallContext(const std::vector<int>& attributes);

/// It can be used again. A context with very many names is not: to delete them would take too long.
/// What a new one does not get anew: images of the textures without a name, pixel maps, colour
/// tables, filters, evaluator maps.
void giveWallContext(std::uint32_t context, const UsedNames& used);

/// What makes a context that was used before like a new one.
void encodeReset(CommandBuffer& out, const UsedNames& used);

/// The servers' window for one of the program's; 0 when there is no more room. `inUse` tells of
/// another of the program's windows whether the wall may still need it.
template <class InUse>
std::uint32_t wallWindow(unsigned long window, std::uint32_t visual, InUse inUse);

struct WallWindow {
    unsigned long window;
    std::uint32_t visual;
};
/// All that have been made; a window's number is firstHandle and one more than its place.
std::vector<WallWindow>& wallWindows();
inline constexpr std::size_t mostWallWindows = 60;
inline constexpr std::size_t manyWallWindows = 12; // from here on old ones are looked for

template <class InUse>
std::uint32_t wallWindow(unsigned long window, std::uint32_t visual, InUse inUse)
{
    std::vector<WallWindow>& all = wallWindows();
    const auto numberOf = [&all](const WallWindow& one) {
        return firstHandle + static_cast<std::uint32_t>(&one - all.data() + 1);
    };
    for (const WallWindow& one : all)
        if (one.window == window && one.visual == visual)
            return numberOf(one);
    if (all.size() >= manyWallWindows)
        for (WallWindow& one : all)
            if (one.visual == visual && !inUse(one.window)) {
                one.window = window;
                return numberOf(one);
            }
    if (firstHandle + all.size() >= mostWallWindows)
        return 0;
    all.push_back({window, visual});
    return numberOf(all.back());
}

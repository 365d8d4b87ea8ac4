#include "capture/wallSlots.h"
#include "capture/keptDraws.h"
#include "capture/reasons.h"
#include "capture/stream.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr std::size_t mostContexts = 62, mostVisuals = 62;

struct Slot {
    std::uint32_t visual;
    bool isFree = false;
    UsedNames used{};
};

// In the order of their numbers, from firstHandle + 1 on. Never destroyed, as all that this library
// keeps.
auto& visuals = *new std::vector<std::vector<int>>;
auto& slots = *new std::vector<Slot>;

constexpr GLuint mostTextures = 1 << 14, mostLists = 1 << 20, mostPrograms = 1 << 12;

template <Op remove>
void encodeDelete(CommandBuffer& out, GLuint most)
{
    std::vector<GLuint> names(most);
    std::iota(names.begin(), names.end(), 1U);
    if (most > 0)
        encode<remove>(out, static_cast<GLsizei>(most), names.data());
}

} // namespace

std::optional<WallContext> takeWallContext(const std::vector<int>& attributes)
{
    const auto found = std::find(visuals.begin(), visuals.end(), attributes);
    const bool newVisual = found == visuals.end();
    const auto visual = firstHandle + static_cast<std::uint32_t>(found - visuals.begin() + 1);
    for (Slot& slot : slots)
        if (slot.isFree && slot.visual == visual) {
            slot.isFree = false;
            return WallContext{firstHandle + static_cast<std::uint32_t>(&slot - slots.data() + 1),
                               visual, false, false, slot.used};
        }
    if (firstHandle + slots.size() >= mostContexts ||
        (newVisual && firstHandle + visuals.size() >= mostVisuals))
        return {};
    if (newVisual)
        visuals.push_back(attributes);
    slots.push_back({visual});
    return WallContext{
        firstHandle + static_cast<std::uint32_t>(slots.size()), visual, newVisual, true, {}};
}

void giveWallContext(std::uint32_t context, const UsedNames& used)
{
    const bool few =
        used.texture <= mostTextures && used.list <= mostLists && used.program <= mostPrograms;
    if (!few)
        tell(Reason::slotUsedUp);
    if (context > 0 && few) {
        Slot& slot = slots[context - firstHandle - 1];
        slot.isFree = true;
        slot.used = used;
    }
}

void encodeReset(CommandBuffer& out, const UsedNames& used)
{
    constexpr int deepest = 16; // of the attributes, the first of which the opening has pushed
    encode<Op::glEnd>(out);
    encode<Op::glEndList>(out);
    for (int i = 0; i < deepest; ++i)
        encode<Op::glPopAttrib>(out);
    const auto bare = [&out](GLenum mode, int levels) {
        encode<Op::glMatrixMode>(out, mode);
        for (int i = 1; i < levels; ++i)
            encode<Op::glPopMatrix>(out);
        encode<Op::glLoadIdentity>(out);
    };
    constexpr int units = 8;
    for (int unit = units - 1; unit >= 0; --unit) {
        encode<Op::glActiveTexture>(out, static_cast<GLenum>(GL_TEXTURE0 + unit));
        bare(GL_TEXTURE, 10);
    }
    bare(GL_PROJECTION, 32);
    bare(GL_MODELVIEW, 32);
    encodeDelete<Op::glDeleteTextures>(out, used.texture);
    encodeDelete<Op::glDeleteProgramsARB>(out, used.program);
    if (used.list > 0)
        encode<Op::glDeleteLists>(out, GLuint{1}, static_cast<GLsizei>(used.list));
    if (used.keptDraws > 0)
        encode<Op::glDeleteLists>(out, GLuint{firstKeptDraw}, static_cast<GLsizei>(used.keptDraws));
}

std::vector<WallWindow>& wallWindows()
{
    static auto& all = *new std::vector<WallWindow>;
    return all;
}

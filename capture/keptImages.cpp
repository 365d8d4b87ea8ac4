#include "capture/keptImages.h"
#include "capture/contexts.h"
#include "capture/locks.h"
#include "capture/native.h"
#include "capture/shareGroup.h"

#include <cstring>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

constexpr std::size_t mostImages = 4096;

// Larger ones are looked at as a whole only when a sample has come again: most never do.
constexpr std::size_t largeImage = 256 << 10;

std::uint64_t sampleOf(std::span<const unsigned char> bytes)
{
    constexpr std::size_t words = 64, word = sizeof(std::uint64_t);
    if (bytes.size() <= words * word)
        return XXH3_64bits(bytes.data(), bytes.size());
    std::array<std::uint64_t, words> some{};
    for (std::size_t i = 0; i < words; ++i)
        std::memcpy(&some[i], bytes.data() + (bytes.size() - word) / (words - 1) * i, word);
    return XXH3_64bits(some.data(), sizeof some);
}

std::array<std::uint64_t, 2> digestOf(std::span<const unsigned char> bytes)
{
    const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
    return {hash.low64, hash.high64 | 1}; // never zeros
}

// 0: none whose images are followed.
GLuint boundTexture(GLenum target)
{
    if (target == GL_TEXTURE_2D)
        return static_cast<GLuint>(stateOf(GL_TEXTURE_BINDING_2D));
    if (target >= GL_TEXTURE_CUBE_MAP_POSITIVE_X && target <= GL_TEXTURE_CUBE_MAP_NEGATIVE_Z)
        return static_cast<GLuint>(stateOf(GL_TEXTURE_BINDING_CUBE_MAP));
    return 0;
}

// Whether the library makes the other levels, too.
bool makesLevels(GLenum target)
{
    static auto* const query =
        reinterpret_cast<decltype(&glGetTexParameteriv)>(nativeByName("glGetTexParameteriv"));
    GLint makes = 0;
    query(target == GL_TEXTURE_2D ? target : GLenum{GL_TEXTURE_CUBE_MAP}, GL_GENERATE_MIPMAP,
          &makes);
    return makes != 0;
}

KeptImages& keptImages() { return currentContext().group->keptImages; }

} // namespace

bool isAtServers(GLenum target, GLint level, const ImageShape& shape,
                 std::span<const unsigned char> bytes)
{
    const GLuint texture = boundTexture(target);
    if (texture == 0 || currentContext().inList || makesLevels(target)) {
        noteImagesChanged(Op::glTexImage2D);
        return false;
    }
    const std::lock_guard lock(keptImagesLock);
    KeptImages& kept = keptImages();
    if (kept.inLists)
        return false;
    KeptImage now{&currentContext(), kept.changes, shape, bytes.size(), sampleOf(bytes), {}};
    const auto found = kept.images.find({texture, target, level});
    const bool looksAlike = found != kept.images.end() && found->second.by == now.by &&
                            found->second.changes == now.changes && found->second.shape == shape &&
                            found->second.bytes == now.bytes && found->second.sample == now.sample;
    if (looksAlike || bytes.size() <= largeImage)
        now.digest = digestOf(bytes);
    if (looksAlike && found->second.digest == now.digest)
        return true;
    if (kept.images.size() >= mostImages)
        kept.images.clear();
    kept.images.insert_or_assign({texture, target, level}, now);
    return false;
}

void noteImagesChanged(Op op)
{
    if (!hasContext())
        return;
    const std::lock_guard lock(keptImagesLock);
    KeptImages& kept = keptImages();
    ++kept.changes;
    kept.inLists |= currentContext().inList;
    kept.transferred |= op >= Op::glPixelTransferf && op <= Op::glGetPixelMapusv;
}

void noteContextLeft(KeptImages& kept)
{
    const std::lock_guard lock(keptImagesLock);
    ++kept.changes;
}

void noteAttributesPopped()
{
    if (!hasContext())
        return;
    const std::lock_guard lock(keptImagesLock);
    KeptImages& kept = keptImages();
    kept.changes += kept.transferred;
}

#include "coding/images.h"
#include "coding/clientMemory.h"
#include "coding/server_overload/system.h"

#include <algorithm>

namespace {

// A parameter of the unpack state: as at the start, or what the library answers, at least 0.
std::int64_t unpack(GLenum name)
{
    if (!clientMemory::unpackChanged())
        return name == GL_UNPACK_ALIGNMENT ? 4 : 0;
    return std::max(systemInteger(name), 0);
}

// What counts for an image.
UnpackState unpackFor(const ImageSize& image)
{
    return {unpack(GL_UNPACK_ALIGNMENT),
            unpack(GL_UNPACK_ROW_LENGTH),
            unpack(GL_UNPACK_SKIP_ROWS),
            unpack(GL_UNPACK_SKIP_PIXELS),
            image.volume ? unpack(GL_UNPACK_IMAGE_HEIGHT) : 0,
            image.volume ? unpack(GL_UNPACK_SKIP_IMAGES) : 0};
}

} // namespace

std::int64_t bytesOf(const ImageSize& image)
{
    const bool isOne = image.type == GL_BITMAP || pixelBytes(image.format, image.type) > 0;
    return isOne && !isEmpty(image) ? placesOf(image, unpackFor(image)).end : 0;
}

std::int64_t compressedBytesOf(const ImageSize& image)
{
    const std::int64_t tight =
        compressedBytes(image.format, image.width, image.height, image.depth);
    // Rows and skips count where the stream has said how large a block is.
    const std::int64_t block = unpack(GL_UNPACK_COMPRESSED_BLOCK_SIZE);
    if (block == 0 || isEmpty(image))
        return tight;
    using namespace saturating;
    // No block is larger than its format's, nor than the stream says.
    const auto blocks = [](std::int64_t pixels, GLenum name) {
        constexpr std::int64_t usual = 4;
        return plus(pixels, usual) / std::clamp<std::int64_t>(unpack(name), 1, usual);
    };
    const UnpackState state = unpackFor(image);
    const std::int64_t length = std::max(state.rowLength, plus(state.skipPixels, image.width));
    const std::int64_t rows = std::max(state.imageHeight, plus(state.skipRows, image.height));
    const std::int64_t row = times(blocks(length, GL_UNPACK_COMPRESSED_BLOCK_WIDTH), block);
    const std::int64_t layer = times(blocks(rows, GL_UNPACK_COMPRESSED_BLOCK_HEIGHT), row);
    return std::max(tight, times(layer, plus(state.skipImages, image.depth)));
}

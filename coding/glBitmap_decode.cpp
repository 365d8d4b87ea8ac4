// glBitmap's bits are read by the server itself, which resamples them: in rows of whole bytes,
// whatever the unpack state.
#include "coding/buffer.h"
#include "coding/fromWire.h"

char* _glBitmap(char* args)
{
    using F = Prototype<Op::glBitmap>;
    using Places = DataBlockPlaces<F, Count::behindScalars, Null::whenEmpty>;
    const std::int64_t width = parameter<F, 0>(args);
    const std::int64_t height = parameter<F, 1>(args);
    const std::int32_t arrived = load<std::int32_t>(args + Places::count_);
    char* data = args + Places::data;
    // One with too few bits for memory moves the raster position like any other.
    const Supplied bits =
        supply("glBitmap", data, arrived, arrived > 0 ? byteCount((width + 7) / 8, height) : 0);
    perform<Op::glBitmap>(parameter<F, 0>(args), parameter<F, 1>(args), parameter<F, 2>(args),
                          parameter<F, 3>(args), parameter<F, 4>(args), parameter<F, 5>(args),
                          arrived > 0 ? reinterpret_cast<const GLubyte*>(bits.at) : nullptr);
    return data + arrived;
}

// glBitmap's bits are read by the server itself, which resamples them: a record with too few of
// them moves the raster position and draws nothing.
#include "coding/fromWire.h"

#include <cstdio>

char* _glBitmap(char* args)
{
    using F = Prototype<Op::glBitmap>;
    using Places = DataBlockPlaces<F, Count::behindScalars, Null::whenEmpty>;
    const std::int64_t width = parameter<F, 0>(args);
    const std::int64_t height = parameter<F, 1>(args);
    const std::int64_t needed = byteCount((width + 7) / 8, height);
    const std::int32_t arrived = load<std::int32_t>(args + Places::count_);
    const bool enough = needed <= arrived;
    if (arrived > 0 && !enough)
        std::fprintf(stderr,
                     "Attention MOSA: glBitmap: %d x %d pixels need %lld bytes, %d arrived\n",
                     static_cast<int>(width), static_cast<int>(height),
                     static_cast<long long>(needed), arrived);
    char* bits = args + Places::data;
    perform<Op::glBitmap>(parameter<F, 0>(args), parameter<F, 1>(args), parameter<F, 2>(args),
                          parameter<F, 3>(args), parameter<F, 4>(args), parameter<F, 5>(args),
                          arrived > 0 && enough ? reinterpret_cast<const GLubyte*>(bits) : nullptr);
    return bits + arrived;
}

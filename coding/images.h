// How much memory the library reads for an image under the unpack state, by operation.
#pragma once

#include "coding/buffer.h"
#include "wire/imageMemory.h"
#include "wire/operations.h"

/// Bytes that the library reads of an image, from the pointer on, under the unpack state. That
/// is asked for, but in contexts in which the stream has never touched it. 0 where it refuses the
/// image. Decode thread only.
std::int64_t bytesOf(const ImageSize& image);

/// The same for a compressed image; 0 where the format is not known.
std::int64_t compressedBytesOf(const ImageSize& image);

/// Bytes that the operation of a Padded layout reads. Its parameters come as target, ..., width[,
/// height[, depth]], [border,] format, type; what differs is told by the operation.
template <Op op>
std::int64_t bytesRead(const char* args)
{
    using F = Prototype<op>;
    constexpr int last = Signature<F>::scalars - 1;
    if constexpr (op == Op::glPolygonStipple)
        return bytesOf({32, 32, 1, GL_COLOR_INDEX, GL_BITMAP});
    else if constexpr (op >= Op::glCompressedTexImage1D && op <= Op::glCompressedTexSubImage3D) {
        // Target, level, [format,] or the corner and behind the size the format; the size;
        // [border;] how many bytes.
        constexpr bool part = op >= Op::glCompressedTexSubImage1D;
        constexpr int dimensions =
            1 + indexOf(op) -
            indexOf(part ? Op::glCompressedTexSubImage1D : Op::glCompressedTexImage1D);
        constexpr int size = part ? 2 + dimensions : 3;
        ImageSize image{
            parameter<F, size>(args), 1, 1, parameter < F, part ? size + dimensions : 2 > (args), 0,
            dimensions == 3};
        if constexpr (dimensions > 1)
            image.height = parameter<F, size + 1>(args);
        if constexpr (dimensions > 2)
            image.depth = parameter<F, size + 2>(args);
        return isProxy(parameter<F, 0>(args)) ? 0 : compressedBytesOf(image);
    } else {
        ImageSize image{0, 1, 1, parameter<F, last - 1>(args), parameter<F, last>(args)};
        const auto size = [&]<int first, int dimensions>() {
            image.width = parameter<F, first>(args);
            if constexpr (dimensions > 1)
                image.height = parameter<F, first + 1>(args);
            if constexpr (dimensions > 2)
                image.depth = parameter<F, first + 2>(args);
            image.volume = dimensions == 3;
        };
        if constexpr (op == Op::glDrawPixels) {
            size.template operator()<0, 2>();
            return bytesOf(image);
        } else if constexpr (op == Op::glTexImage1D || op == Op::glTexSubImage1D)
            size.template operator()<3, 1>();
        else if constexpr (op == Op::glTexImage2D)
            size.template operator()<3, 2>();
        else if constexpr (op == Op::glTexImage3D || op == Op::glTexImage3DEXT)
            size.template operator()<3, 3>();
        else if constexpr (op == Op::glTexSubImage2D)
            size.template operator()<4, 2>();
        else if constexpr (op == Op::glTexSubImage3D)
            size.template operator()<5, 3>();
        else if constexpr (op == Op::glConvolutionFilter2D)
            size.template operator()<2, 2>();
        else {
            static_assert(op == Op::glColorTable || op == Op::glColorTableEXT ||
                          op == Op::glColorSubTable || op == Op::glConvolutionFilter1D);
            size.template operator()<2, 1>();
        }
        return isProxy(parameter<F, 0>(args)) ? 0 : bytesOf(image);
    }
}

// Records of operations that take pixels.
#pragma once

#include "capture/reasons.h"
#include "capture/rows.h"

/// Records an operation with `bytes` bytes of pixels, which `fill` writes to the place that it is
/// given; `none` when there are no pixels.
template <Op op, class Fill, class... Scalars>
void recordPixels(std::int64_t bytes, bool none, Fill fill, Scalars... scalars)
{
    using F = Prototype<op>;
    using S = Signature<F>;
    static_assert(sizeof...(Scalars) == S::scalars);
    constexpr bool flagged = op != Op::glDrawPixels && op != Op::glBitmap;
    constexpr int countAt = opcodeBytes + S::scalarBytes;
    constexpr int head = countAt + (flagged ? 8 : 4);
    Tape& tape = *currentTape;
    if constexpr (changesImages(op) && op != Op::glTexImage2D) // isAtServers knows of these
        noteImagesChanged(op);
    if (bytes > INT32_MAX - head)
        return tell(Reason::imageTooLarge);
    if (bytes < 0 || !hasRoomForBlock<effectOf<op>>(tape, head + bytes))
        return;
    store(tape.at, static_cast<std::uint16_t>(op));
    encoding::storeScalars<F, S::scalars>(tape.at + opcodeBytes, std::tuple(scalars...));
    store(tape.at + countAt, static_cast<std::int32_t>(bytes));
    if constexpr (flagged)
        store(tape.at + countAt + 4, none ? 1 : 0);
    if (bytes > 0)
        fill(tape.at + head);
    tape.at += head + bytes;
}

// What a client tells servers of the desk's mouse pointer, over connections of their own: a place
// does not wait for a frame that is being drawn. The port at which the client listens comes in the
// stream, as AreaWord::pointer. Both sides' own byte order.
//
// A server begins with a hello, and answers every place once its display shows it. The client sends
// headers, each with what it announces.
#pragma once

#include <cmath>
#include <cstdint>

/// The host at which the client listens, and the job's secret for it.
inline constexpr char pointerVariable[] = "MOSA_POINTER",
                      pointerSecretVariable[] = "MOSA_POINTER_SECRET";

inline constexpr std::uint32_t pointerMark = 0x544e4f50; // "PONT"

struct PointerHello {
    std::uint32_t mark;
    std::int32_t x, y, w, h; // what its display shows, from the wall's upper left
    char secret[32];         // the job's, filled up with zeros
};

struct PointerAnswer {
    std::uint32_t number; // of the place
};

enum class PointerWord : std::uint32_t {
    place, // a PointerPlace
    shape  // a PointerShape and its pixels: alpha and colours, these multiplied by alpha, by rows
};

struct PointerHeader {
    PointerWord word;
    std::uint32_t bytes; // that follow
};

struct PointerPlace {
    std::uint32_t number;  // of the places, on one connection
    std::uint32_t window;  // that the pointer is in, by its handle on the wall; 0: it is in none
    double x, y;           // of its hot spot, in wall pixels from the upper left
    double scaleX, scaleY; // wall pixels for a pixel of the desk
};

struct PointerShape {
    std::int32_t width, height; // in pixels of the desk
    std::int32_t hotX, hotY;    // of its hot spot
};

inline constexpr int mostOfPointer = 1024; // pixels, each way, as a shape and on the wall

/// Where the wall shows it, in whole pixels from the upper left.
struct PointerArea {
    int x, y, w, h;
};

inline PointerArea pointerArea(const PointerPlace& place, const PointerShape& shape)
{
    const auto whole = [](double value) {
        constexpr double most = 1 << 20;
        return static_cast<int>(std::lround(std::fmin(std::fmax(value, -most), most)));
    };
    const auto extent = [&whole](double pixels) {
        return std::fmin(std::fmax(whole(pixels), 1), mostOfPointer);
    };
    return {whole(place.x - shape.hotX * place.scaleX), whole(place.y - shape.hotY * place.scaleY),
            static_cast<int>(extent(shape.width * place.scaleX)),
            static_cast<int>(extent(shape.height * place.scaleY))};
}

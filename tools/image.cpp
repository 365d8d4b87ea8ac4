#include "tools/image.h"
#include "client/wholeFile.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <png.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

std::size_t offsetOf(const Image& image, int x, int y)
{
    return (static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) +
            static_cast<std::size_t>(x)) *
           3;
}

[[noreturn]] void fail(const std::string& name, const std::string& what)
{
    throw std::runtime_error(name + ": " + what);
}

// A colour channel of a pixel value, widened to 8 bits.
std::uint8_t channel(unsigned long pixel, unsigned long mask)
{
    if (!mask)
        return 0;
    const int shift = std::countr_zero(mask);
    return static_cast<std::uint8_t>(((pixel & mask) >> shift) * 255 / (mask >> shift));
}

struct CloseDisplay {
    void operator()(Display* dpy) const { XCloseDisplay(dpy); }
};
struct DestroyImage {
    void operator()(XImage* image) const { XDestroyImage(image); }
};

} // namespace

Image makeImage(int width, int height)
{
    Image image{width, height, {}};
    image.rgb.resize(offsetOf(image, 0, height));
    return image;
}

std::uint8_t* pixelAt(Image& image, int x, int y) { return &image.rgb[offsetOf(image, x, y)]; }

const std::uint8_t* pixelAt(const Image& image, int x, int y)
{
    return &image.rgb[offsetOf(image, x, y)];
}

void copyInto(Image& to, int x, int y, const Image& from)
{
    const int left = std::max(x, 0);
    const int right = std::min(x + from.width, to.width);
    for (int row = std::max(y, 0); left < right && row < std::min(y + from.height, to.height);
         ++row)
        std::memcpy(pixelAt(to, left, row), pixelAt(from, left - x, row - y),
                    static_cast<std::size_t>(right - left) * 3);
}

Image readPng(const std::string& name)
{
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, name.c_str()))
        fail(name, png.message);
    png.format = PNG_FORMAT_RGB;
    Image image = makeImage(static_cast<int>(png.width), static_cast<int>(png.height));
    if (!png_image_finish_read(&png, nullptr, image.rgb.data(), 0, nullptr))
        fail(name, png.message);
    return image;
}

void writePng(const std::string& name, const Image& image)
{
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = PNG_FORMAT_RGB;
    WholeFile file = beginFile(name);
    if (!png_image_write_to_stdio(&png, file.stream, 0, image.rgb.data(), 0, nullptr)) {
        abandonFile(file);
        fail(name, png.message);
    }
    finishFile(file);
}

Image grabDisplay(const std::string& displayName, int screen)
{
    const std::unique_ptr<Display, CloseDisplay> dpy{XOpenDisplay(displayName.c_str())};
    if (!dpy)
        fail(displayName, "the display cannot be opened");
    const int scrn = screen < 0 ? DefaultScreen(dpy.get()) : screen;
    if (scrn >= ScreenCount(dpy.get()))
        fail(displayName, "there is no screen " + std::to_string(scrn));
    Image image = makeImage(DisplayWidth(dpy.get(), scrn), DisplayHeight(dpy.get(), scrn));
    const std::unique_ptr<XImage, DestroyImage> shot{
        XGetImage(dpy.get(), RootWindow(dpy.get(), scrn), 0, 0, static_cast<unsigned>(image.width),
                  static_cast<unsigned>(image.height), AllPlanes, ZPixmap)};
    if (!shot)
        fail(displayName, "the screen cannot be read");
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const unsigned long pixel = XGetPixel(shot.get(), x, y);
            std::uint8_t* rgb = pixelAt(image, x, y);
            rgb[0] = channel(pixel, shot->red_mask);
            rgb[1] = channel(pixel, shot->green_mask);
            rgb[2] = channel(pixel, shot->blue_mask);
        }
    return image;
}

Difference compareImages(const Image& a, const Image& b, int tolerance)
{
    if (a.width != b.width || a.height != b.height)
        throw std::runtime_error("the images differ in size");
    Difference difference{0, 0};
    for (std::size_t i = 0; i < a.rgb.size(); i += 3) {
        int greatest = 0;
        for (std::size_t c = i; c < i + 3; ++c)
            greatest = std::max(greatest, std::abs(a.rgb[c] - b.rgb[c]));
        difference.pixels += greatest > tolerance;
        difference.greatest = std::max(difference.greatest, greatest);
    }
    return difference;
}

// Pictures: what displays show, and PNG files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Red, green and blue, 8 bits each, rows from the top down.
struct Image {
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgb;
};

/// A black image.
Image makeImage(int width, int height);

/// Address of one pixel's red, green and blue.
std::uint8_t* pixelAt(Image& image, int x, int y);
const std::uint8_t* pixelAt(const Image& image, int x, int y);

/// Copies `from` to (x, y) of `to`; what lies outside is left out.
void copyInto(Image& to, int x, int y, const Image& from);

/// Read or write a PNG file. Throw std::runtime_error with the file's name.
Image readPng(const std::string& name);
void writePng(const std::string& name, const Image& image);

/// What a screen of an X display shows. `screen` -1 is the display name's own. Throws
/// std::runtime_error with the display's name.
Image grabDisplay(const std::string& displayName, int screen = -1);

/// How two images of one size differ.
struct Difference {
    long pixels;  // that differ by more than `tolerance` in any component
    int greatest; // of any component, of 255
};

/// Throws std::runtime_error when the sizes differ.
Difference compareImages(const Image& a, const Image& b, int tolerance = 0);

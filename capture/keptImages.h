// Images of textures that servers have: one that is specified again with the same bytes is not sent
// again.
#pragma once

#include "wire/prototypes.h"

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <tuple>

struct Context;

/// Everything else that glTexImage2D says of an image.
using ImageShape = std::array<GLint, 6>;

/// What is known of an image at the servers.
struct KeptImage {
    const Context* by;     // on whose tape it is, or was
    std::uint64_t changes; // of the group's, when it was sent
    ImageShape shape;
    std::size_t bytes;
    std::uint64_t sample;                // of some of its bytes
    std::array<std::uint64_t, 2> digest; // of all of them; zeros: it was not made
};

/// Those of a share group, by texture, target and level; under keptImagesLock.
struct KeptImages {
    std::map<std::tuple<GLuint, GLenum, GLint>, KeptImage> images;
    std::uint64_t changes = 0; // in other ways: every image is sent again after one
    bool transferred = false;  // pixel transfer was set, which an attribute's pop sets, too
    bool inLists = false;      // lists change images when they are called: none is known any more
};

/// True when the servers have this very image as a level of the texture that is bound. Otherwise it
/// is to be sent now, and known from then on. Outside of glBegin and glEnd, where it is recorded.
bool isAtServers(GLenum target, GLint level, const ImageShape& shape,
                 std::span<const unsigned char> bytes);

/// A context has left the group, perhaps with images on its tape that nobody gets.
void noteContextLeft(KeptImages& kept);

/// Attributes are popped, and with them perhaps pixel transfer.
void noteAttributesPopped();

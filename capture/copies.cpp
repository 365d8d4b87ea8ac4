// Copies out of the window. Servers would copy from their tile, at its scale; the client has the
// whole picture in the program's own window: it is read back, and its pixels are sent as an image.
#include "capture/entries.h"
#include "capture/raster.h"
#include "capture/readBack.h"

#include <vector>

namespace {

// Reads pixels as they are: no transfer, no gaps. The program's own state is as before.
std::vector<unsigned char> readBack(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format,
                                    GLenum type, int pixelBytes)
{
    std::vector<unsigned char> pixels(static_cast<std::size_t>(width) *
                                      static_cast<std::size_t>(height) *
                                      static_cast<std::size_t>(pixelBytes));
    readPixels(x, y, width, height, format, type, pixels.data());
    return pixels;
}

struct Pixels {
    GLenum format, type;
    int bytes; // of a pixel
};

Pixels pixelsOf(GLenum internalFormat)
{
    switch (internalFormat) {
    case GL_DEPTH_COMPONENT:
    case GL_DEPTH_COMPONENT16:
    case GL_DEPTH_COMPONENT24:
    case GL_DEPTH_COMPONENT32:
        return {GL_DEPTH_COMPONENT, GL_FLOAT, 4};
    default:
        return {GL_RGBA, GL_UNSIGNED_BYTE, 4};
    }
}

// Of an image that is replaced in part, what it is made of.
Pixels pixelsOfTexture(GLenum target, GLint level)
{
    GLint format = 0;
    static auto* const query = reinterpret_cast<decltype(&glGetTexLevelParameteriv)>(
        nativeByName("glGetTexLevelParameteriv"));
    query(target, level, GL_TEXTURE_INTERNAL_FORMAT, &format);
    return pixelsOf(static_cast<GLenum>(format));
}

// The copy has to be read before the program draws on, and only where it is wanted. In a list it is
// made when the list is called, which is not known here.
template <Op op, class... Scalars>
bool recordCopy(const Pixels& as, GLint x, GLint y, GLsizei width, GLsizei height,
                Scalars... scalars)
{
    if (!isRecorded<Effect::defines>() || !canAsk())
        return false;
    if (currentContext().inList) {
        tell(Reason::copyInList);
        return false;
    }
    if (width <= 0 || height <= 0)
        return true;
    const std::vector<unsigned char> pixels =
        readBack(x, y, width, height, as.format, as.type, as.bytes);
    record<op, effectOf<op>>(scalars..., as.format, as.type,
                             Block{pixels.data(), static_cast<int>(pixels.size())});
    return true;
}

void copyTexImage1D(GLenum target, GLint level, GLenum format, GLint x, GLint y, GLsizei width,
                    GLint border)
{
    if (!recordCopy<Op::glTexImage1D>(pixelsOf(format), x, y, width, 1, target, level,
                                      static_cast<GLint>(format), width, border))
        record<Op::glCopyTexImage1D, Effect::defines>(target, level, format, x, y, width, border);
    callNative<Op::glCopyTexImage1D>(target, level, format, x, y, width, border);
}

void copyTexImage2D(GLenum target, GLint level, GLenum format, GLint x, GLint y, GLsizei width,
                    GLsizei height, GLint border)
{
    if (!recordCopy<Op::glTexImage2D>(pixelsOf(format), x, y, width, height, target, level,
                                      static_cast<GLint>(format), width, height, border))
        record<Op::glCopyTexImage2D, Effect::defines>(target, level, format, x, y, width, height,
                                                      border);
    callNative<Op::glCopyTexImage2D>(target, level, format, x, y, width, height, border);
}

void copyTexSubImage1D(GLenum target, GLint level, GLint to, GLint x, GLint y, GLsizei width)
{
    if (!recordCopy<Op::glTexSubImage1D>(pixelsOfTexture(target, level), x, y, width, 1, target,
                                         level, to, width))
        record<Op::glCopyTexSubImage1D, Effect::defines>(target, level, to, x, y, width);
    callNative<Op::glCopyTexSubImage1D>(target, level, to, x, y, width);
}

void copyTexSubImage2D(GLenum target, GLint level, GLint toX, GLint toY, GLint x, GLint y,
                       GLsizei width, GLsizei height)
{
    if (!recordCopy<Op::glTexSubImage2D>(pixelsOfTexture(target, level), x, y, width, height,
                                         target, level, toX, toY, width, height))
        record<Op::glCopyTexSubImage2D, Effect::defines>(target, level, toX, toY, x, y, width,
                                                         height);
    callNative<Op::glCopyTexSubImage2D>(target, level, toX, toY, x, y, width, height);
}

void copyTexSubImage3D(GLenum target, GLint level, GLint toX, GLint toY, GLint toZ, GLint x,
                       GLint y, GLsizei width, GLsizei height)
{
    if (!recordCopy<Op::glTexSubImage3D>(pixelsOfTexture(target, level), x, y, width, height,
                                         target, level, toX, toY, toZ, width, height, GLsizei{1}))
        record<Op::glCopyTexSubImage3D, Effect::defines>(target, level, toX, toY, toZ, x, y, width,
                                                         height);
    callNative<Op::glCopyTexSubImage3D>(target, level, toX, toY, toZ, x, y, width, height);
}

// Pixel transfer is applied once, by the wall.
void copyPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum type)
{
    const Pixels as = type == GL_COLOR   ? Pixels{GL_RGBA, GL_UNSIGNED_BYTE, 4}
                      : type == GL_DEPTH ? Pixels{GL_DEPTH_COMPONENT, GL_FLOAT, 4}
                                         : Pixels{GL_STENCIL_INDEX, GL_UNSIGNED_BYTE, 1};
    const bool known = type == GL_COLOR || type == GL_DEPTH || type == GL_STENCIL;
    if (isRecorded<Effect::draws>() && currentContext().inList)
        tell(Reason::copyInList);
    if (known && isRecorded<Effect::draws>() && !currentContext().inList && canAsk()) {
        if (width > 0 && height > 0)
            atRasterPosition(false, [&] {
                recordCopy<Op::glDrawPixels>(as, x, y, width, height, width, height);
            });
    } else
        record<Op::glCopyPixels, Effect::draws>(x, y, width, height, type);
    callNative<Op::glCopyPixels>(x, y, width, height, type);
}

} // namespace

void installCopies()
{
    install<Op::glCopyTexImage1D>(copyTexImage1D);
    install<Op::glCopyTexImage2D>(copyTexImage2D);
    install<Op::glCopyTexSubImage1D>(copyTexSubImage1D);
    install<Op::glCopyTexSubImage2D>(copyTexSubImage2D);
    install<Op::glCopyTexSubImage3D>(copyTexSubImage3D);
    install<Op::glCopyTexImage1DEXT>(copyTexImage1D);
    install<Op::glCopyTexImage2DEXT>(copyTexImage2D);
    install<Op::glCopyTexSubImage1DEXT>(copyTexSubImage1D);
    install<Op::glCopyTexSubImage2DEXT>(copyTexSubImage2D);
    install<Op::glCopyTexSubImage3DEXT>(copyTexSubImage3D);
    install<Op::glCopyPixels>(copyPixels);
}

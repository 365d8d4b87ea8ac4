#include "capture/readBack.h"

#include <cstdlib>

namespace {

constexpr GLenum packNames[] = {GL_PACK_ALIGNMENT,   GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS,
                                GL_PACK_SKIP_PIXELS, GL_PACK_SWAP_BYTES, GL_PACK_LSB_FIRST};

bool isInteger(GLenum transfer) { return transfer <= GL_INDEX_OFFSET; }

void setTransfer(GLenum name, GLfloat value)
{
    if (isInteger(name))
        callNative<Op::glPixelTransferi>(name, static_cast<GLint>(value));
    else
        callNative<Op::glPixelTransferf>(name, value);
}

} // namespace

SavedTransfer plainPixelTransfer()
{
    SavedTransfer saved{};
    std::size_t i = 0;
    for (const auto& [name, value] : plainTransfer) {
        callNative<Op::glGetFloatv>(name, &saved[i]);
        if (saved[i++] != value)
            setTransfer(name, value);
    }
    return saved;
}

void restorePixelTransfer(const SavedTransfer& saved)
{
    std::size_t i = 0;
    for (const auto& [name, value] : plainTransfer) {
        if (saved[i] != value)
            setTransfer(name, saved[i]);
        ++i;
    }
}

GLuint packBuffer()
{
    static const bool thereAreSome = [] { // since 2.1; a question of it would be an error before
        const auto* text = reinterpret_cast<const char*>(callNative<Op::glGetString>(GL_VERSION));
        return text && std::atof(text) > 2.0;
    }();
    return thereAreSome ? static_cast<GLuint>(stateOf(GL_PIXEL_PACK_BUFFER_BINDING)) : 0;
}

void bindPackBuffer(GLuint name)
{
    static auto* const native =
        reinterpret_cast<decltype(&glBindBuffer)>(nativeByName("glBindBuffer"));
    native(GL_PIXEL_PACK_BUFFER, name);
}

void readPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type,
                void* to)
{
    std::array<GLint, std::size(packNames)> pack{};
    for (std::size_t i = 0; i < pack.size(); ++i) {
        pack[i] = stateOf(packNames[i]);
        callNative<Op::glPixelStorei>(packNames[i], packNames[i] == GL_PACK_ALIGNMENT ? 1 : 0);
    }
    const GLuint buffer = packBuffer();
    if (buffer != 0)
        bindPackBuffer(0);
    const SavedTransfer transfer = plainPixelTransfer();
    callNative<Op::glReadPixels>(x, y, width, height, format, type, to);
    restorePixelTransfer(transfer);
    if (buffer != 0)
        bindPackBuffer(buffer);
    for (std::size_t i = 0; i < pack.size(); ++i)
        callNative<Op::glPixelStorei>(packNames[i], pack[i]);
}

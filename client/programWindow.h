// How a stream begins: a visual, a context and the window of the program that it shows.
#pragma once

#include "client/encoder.h"

#include <span>

/// A program's window by the handles under which servers know it, and its size in pixels.
struct ProgramWindow {
    AppDisplay dpy;
    AppVisual visual;
    AppDrawable window;
    AppContext ctx;
    int width, height;
};

/// The handle under which servers know a captured program's display.
inline constexpr AppDisplay capturedDisplay(1U);

/// What every visual of a stream that shows colours has: the beginning of its attributes.
inline constexpr int usualAttributes[] = {
    GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 1, GLX_GREEN_SIZE, 1, GLX_BLUE_SIZE, 1};

/// The window's size and context, as servers place it on the wall.
inline MakeCurrentBlock makeCurrentBlock(const ProgramWindow& w)
{
    constexpr int depth = 24;
    return {.dpy = w.dpy,
            .visual = w.visual,
            .drawable = w.window,
            .ctx = w.ctx,
            .width = w.width,
            .height = w.height,
            .depth = depth,
            .x = 0,
            .y = 0,
            .parent = {}};
}

/// Chooses a visual with the given attributes, ended by a 0.
inline void encodeVisual(CommandBuffer& out, const ProgramWindow& w,
                         std::span<const int> attributes)
{
    const Words words{attributes.data(), static_cast<std::int32_t>(attributes.size())};
    encode<Op::glXChooseVisual>(out, ChooseVisualBlock{w.dpy, w.visual, 0, words});
}

inline void encodeContext(CommandBuffer& out, const ProgramWindow& w)
{
    encode<Op::glXCreateContext>(out, CreateContextBlock{w.dpy, w.visual, {}, w.ctx, 1});
}

/// A viewport of the window's size.
inline void encodeViewport(CommandBuffer& out, const ProgramWindow& w)
{
    encode<Op::glViewport>(out, ViewportBlock{0, 0, w.width, w.height, w.width, w.height});
}

/// Nothing is shown any more in a window that is current. What is set stays set.
inline void encodeBlack(CommandBuffer& out, AppDisplay dpy, AppDrawable window, bool doubleBuffered)
{
    encode<Op::glPushAttrib>(out, GLbitfield{GL_COLOR_BUFFER_BIT | GL_SCISSOR_BIT});
    encode<Op::glDrawBuffer>(out, static_cast<GLenum>(doubleBuffered ? GL_BACK : GL_FRONT));
    encode<Op::glDisable>(out, GLenum{GL_SCISSOR_TEST});
    encode<Op::glColorMask>(out, GLboolean{1}, GLboolean{1}, GLboolean{1}, GLboolean{1});
    encode<Op::glClearColor>(out, 0.0F, 0.0F, 0.0F, 0.0F);
    encode<Op::glClear>(out, GLbitfield{GL_COLOR_BUFFER_BIT});
    encode<Op::glPopAttrib>(out);
    encode<Op::glFlush>(out);
    encode<Op::glXSwapBuffers>(out, asParameter<Display*>(dpy), GLXDrawable{window.number});
}

/// Makes a context for a visual, current in the window, with a viewport of the window's size.
inline void encodeOpening(CommandBuffer& out, const ProgramWindow& w,
                          std::span<const int> attributes)
{
    encodeVisual(out, w, attributes);
    encodeContext(out, w);
    encode<Op::glXMakeCurrent>(out, makeCurrentBlock(w));
    encodeViewport(out, w);
}

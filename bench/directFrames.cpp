// The frames of a recording drawn directly: its calls, taken from the stream ahead of time, made of
// the system's OpenGL library on a window of this program. Prints frames and seconds. The sizes are
// edges of squares: the wall's, and the application's window's.
#include "bench/calls.h"
#include "client/streamFile.h"
#include "coding/decoder.h"
#include "overload/loader.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

Display* dpy;
Window window;
int wallSize;
int appSize;

Display* openWindow()
{
    dpy = XOpenDisplay(nullptr);
    if (!dpy)
        return nullptr;
    int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_DEPTH_SIZE, 16, None};
    XVisualInfo* visual = entryOf<Op::glXChooseVisual>(baseOpTable)(dpy, 0, attributes);
    XSetWindowAttributes set{};
    set.colormap = XCreateColormap(dpy, DefaultRootWindow(dpy), visual->visual, AllocNone);
    set.override_redirect = True;
    const auto size = static_cast<unsigned>(wallSize);
    window =
        XCreateWindow(dpy, DefaultRootWindow(dpy), 0, 0, size, size, 0, visual->depth, InputOutput,
                      visual->visual, CWColormap | CWOverrideRedirect | CWBorderPixel, &set);
    XMapWindow(dpy, window);
    GLXContext context =
        entryOf<Op::glXCreateContext>(baseOpTable)(dpy, visual, GLXContext{}, True);
    entryOf<Op::glXMakeCurrent>(baseOpTable)(dpy, window, context);
    return dpy;
}

// The application's calls that concern its own window.
void swap(Display*, GLXDrawable) { entryOf<Op::glXSwapBuffers>(baseOpTable)(dpy, window); }

void viewport(GLint x, GLint y, GLsizei width, GLsizei height)
{
    const auto scaled = [](int value) { return value * wallSize / appSize; };
    entryOf<Op::glViewport>(baseOpTable)(scaled(x), scaled(y), scaled(width), scaled(height));
}

// The library's entries, but for those that concern windows and contexts.
void prepareTable()
{
    constexpr int firstGlx = indexOf(Op::glXChooseVisual);
    glOp nothing[operationCount];
    installNothing(nothing);
    std::copy_n(baseOpTable, firstGlx, glOpTable);
    std::copy(nothing + firstGlx, nothing + operationCount, glOpTable + firstGlx);
    glOpTable[indexOf(Op::glXSwapBuffers)] = reinterpret_cast<glOp>(swap);
    glOpTable[indexOf(Op::glViewport)] = reinterpret_cast<glOp>(viewport);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fputs("usage: bench_direct RECORDING LOOPS WALL-SIZE WINDOW-SIZE\n", stderr);
        return 2;
    }
    const int loops = std::atoi(argv[2]);
    wallSize = std::atoi(argv[3]);
    appSize = std::atoi(argv[4]);

    LoadOps();
    StreamFile file = readStreamFile(argv[1]);
    Calls calls;
    recordedCalls = &calls;
    installRecording<true>(glOpTable);
    std::size_t second = 0; // where the second frame begins
    for (const StreamBuffer& buffer : file.buffers) {
        decoder(file.bytes.data() + buffer.offset, buffer.hdr.size);
        if (buffer.hdr.sync && second == 0)
            second = calls.words.size();
    }
    prepareTable();
    if (!openWindow())
        return 1;
    makeCalls(calls, 0, calls.words.size());
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < loops; ++i)
        makeCalls(calls, second, calls.words.size());
    entryOf<Op::glFinish>(baseOpTable)();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    const auto frames = static_cast<long>(file.buffers.size() - 1) * loops;
    std::printf("%ld frames, %.3f seconds\n", frames, seconds.count());
    return 0;
}

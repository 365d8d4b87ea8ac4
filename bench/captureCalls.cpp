// A program that calls OpenGL and measures how long each call takes: run as it is, and captured.
// Prints a line of JSON for each operation. With arguments "frames SECONDS INTERVAL [SIZE]" it
// swaps for so long instead, a frame every so many milliseconds (0: as fast as it goes), of a
// window so many pixels wide and high, and prints when each swap was called, in seconds of the
// monotonic clock.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int rounds = 7;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

Display* dpy;
Window window;

void openWindow(unsigned size)
{
    dpy = XOpenDisplay(nullptr);
    int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_DEPTH_SIZE, 16, None};
    XVisualInfo* visual = dpy ? glXChooseVisual(dpy, 0, attributes) : nullptr;
    if (!visual)
        std::exit(2);
    XSetWindowAttributes set{};
    set.colormap = XCreateColormap(dpy, DefaultRootWindow(dpy), visual->visual, AllocNone);
    set.override_redirect = True;
    window = XCreateWindow(dpy, DefaultRootWindow(dpy), 0, 0, size, size, 0, visual->depth,
                           InputOutput, visual->visual, CWColormap | CWOverrideRedirect, &set);
    XMapWindow(dpy, window);
    XSync(dpy, False);
    glXMakeCurrent(dpy, window, glXCreateContext(dpy, visual, nullptr, True));
}

/// The median of some rounds of `calls` calls, in nanoseconds a call.
template <class Call>
void measure(const char* name, int calls, Call call)
{
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        glFinish();
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < calls; ++i)
            call();
        times.push_back(seconds(Clock::now() - start) * 1e9 / calls);
        glXSwapBuffers(dpy, window); // a frame for each round
    }
    std::ranges::sort(times);
    std::printf("{\"call\": \"%s\", \"ns\": %.2f}\n", name, times[rounds / 2]);
}

void measureCalls()
{
    constexpr int many = 200'000;
    measure("glColor3f", many, [] { glColor3f(0.1F, 0.2F, 0.3F); });
    // Outside the window: what the rasteriser does is not the question.
    glBegin(GL_POINTS);
    measure("glColor3f + glVertex3f", many, [] {
        glColor3f(0.1F, 0.2F, 0.3F);
        glVertex3f(9, 9, 9);
    });
    glEnd();
    measure("glTranslatef", many, [] { glTranslatef(0, 0, 0); });
    measure("glBegin + glEnd", many, [] {
        glBegin(GL_POINTS);
        glEnd();
    });
    // As programs do between two draws: what asks, and what changes nothing.
    constexpr int some = 5000;
    GLint value = 0;
    measure("glGetError", some, [] { glGetError(); });
    measure("glGetIntegerv", some, [&] { glGetIntegerv(GL_MATRIX_MODE, &value); });
    measure("glShadeModel", some, [] { glShadeModel(GL_SMOOTH); });
    measure("glEnable", some, [] { glEnable(GL_DITHER); });
    measure("glDepthFunc", some, [] { glDepthFunc(GL_LESS); });
    std::vector<GLfloat> vertices(3 * 10'000, 9.0F);
    std::vector<GLuint> indices(10'000);
    for (GLuint i = 0; i < 10'000; ++i)
        indices[i] = i;
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, vertices.data());
    measure("glDrawArrays of 4", 20'000, [] { glDrawArrays(GL_POINTS, 0, 4); });
    // From buffer objects that do not change: each call another draw, in each round the same ones.
    GLuint buffers[2] = {};
    glGenBuffers(2, buffers);
    constexpr int small = 2000, corners = 4;
    std::vector<GLfloat> kept(std::size_t{3} * small * corners, 9.0F);
    const auto bytes = static_cast<GLsizeiptr>(kept.size() * sizeof(GLfloat));
    glBindBuffer(GL_ARRAY_BUFFER, buffers[0]);
    glBufferData(GL_ARRAY_BUFFER, bytes, kept.data(), GL_STATIC_DRAW);
    glVertexPointer(3, GL_FLOAT, 0, nullptr);
    glBindBuffer(GL_ARRAY_BUFFER, buffers[1]);
    glBufferData(GL_ARRAY_BUFFER, bytes, kept.data(), GL_STATIC_DRAW);
    glNormalPointer(GL_FLOAT, 0, nullptr);
    glEnableClientState(GL_NORMAL_ARRAY);
    int first = 0;
    measure("glDrawArrays of 4 from buffers", small, [&first] {
        glDrawArrays(GL_POINTS, first, corners);
        first = (first + corners) % (small * corners);
    });
    glDisableClientState(GL_NORMAL_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glVertexPointer(3, GL_FLOAT, 0, vertices.data());
    measure("glDrawElements of 10,000", 50,
            [&] { glDrawElements(GL_POINTS, 10'000, GL_UNSIGNED_INT, indices.data()); });
    std::vector<unsigned char> pixels(1 << 20);
    measure("glDrawPixels of 256 KiB", 20,
            [&] { glDrawPixels(256, 256, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data()); });
    glBindTexture(GL_TEXTURE_2D, 1);
    measure("glTexImage2D of 1 MiB", 20, [&] {
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 512, 512, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     pixels.data());
    });
    std::vector<unsigned char> other(1 << 20);
    measure("memcpy of 1 MiB", 20, [&] {
        std::memcpy(other.data(), pixels.data(), pixels.size());
        asm volatile("" : : "r"(other.data()) : "memory");
    });
}

void swapFrames(double length, int interval)
{
    const Clock::time_point start = Clock::now();
    Clock::time_point next = start;
    std::vector<double> times;
    while (seconds(Clock::now() - start) < length) {
        glClearColor(static_cast<GLfloat>(times.size() % 16) / 16, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        times.push_back(seconds(Clock::now().time_since_epoch()));
        glXSwapBuffers(dpy, window);
        next += std::chrono::milliseconds(interval);
        if (interval > 0)
            std::this_thread::sleep_until(next);
    }
    for (const double time : times)
        std::printf("%.6f\n", time);
}

} // namespace

int main(int argc, char** argv)
{
    openWindow(argc > 4 ? static_cast<unsigned>(std::atoi(argv[4])) : 300);
    if (argc > 3 && std::strcmp(argv[1], "frames") == 0)
        swapFrames(std::atof(argv[2]), std::atoi(argv[3]));
    else
        measureCalls();
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            std::printf("{\"call\": \"resident\", \"kib\": %ld}\n",
                        std::atol(line.c_str() + std::strlen("VmHWM:")));
    return 0;
}

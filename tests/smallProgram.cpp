// Small legal programs that do something unusual, each under its name. What one prints (answers of
// OpenGL, errors, sums) and how it ends must be the same with and without capture. A number behind
// the name: it is done so many times.
#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int width = 240, height = 180;
constexpr int pbufferSize[] = {GLX_PBUFFER_WIDTH, 8, GLX_PBUFFER_HEIGHT, 8, None};
Display* dpy;
XVisualInfo* visual;
Window window;
GLXContext context;

Window createWindow(int w = width, int h = height)
{
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(dpy, DefaultRootWindow(dpy), visual->visual, AllocNone);
    attributes.override_redirect = True;
    const Window made =
        XCreateWindow(dpy, DefaultRootWindow(dpy), 0, 0, w, h, 0, visual->depth, InputOutput,
                      visual->visual, CWColormap | CWOverrideRedirect, &attributes);
    XFreeColormap(dpy, attributes.colormap);
    return made;
}

Window openWindow()
{
    const Window made = createWindow();
    XMapWindow(dpy, made);
    return made;
}

void tell(const char* what, long value) { std::printf("%s %ld\n", what, value); }
void tellError(const char* what) { tell(what, static_cast<long>(glGetError())); }

GLint get(GLenum name)
{
    GLint value = -1;
    glGetIntegerv(name, &value);
    return value;
}

void frame()
{
    glClearColor(0.1F, 0.1F, 0.2F, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glColor3f(1, 0.8F, 0);
    glRectf(-0.5F, -0.5F, 0.5F, 0.5F);
    glXSwapBuffers(dpy, window);
}

// One picture, drawn at once and never again.
void still() { frame(); }

// What the library refuses must not count.
void refusals()
{
    glNewList(7, GL_TRIANGLES);
    tellError("newlist");
    glEndList();
    tellError("endlist");
    glNewList(0, GL_COMPILE);
    tellError("newlist 0");
    glRenderMode(GL_TRIANGLES);
    tellError("rendermode");
    for (int i = 0; i < 40; ++i)
        glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    tellError("push");
    tell("depth", get(GL_CLIENT_ATTRIB_STACK_DEPTH));
    for (int i = 0; i < 40; ++i)
        glPopClientAttrib();
    tellError("pop");
    static const float triangle[] = {-0.9F, -0.9F, 0.9F, -0.9F, 0, 0.9F};
    static const unsigned char colors[] = {0, 0, 255, 255, 0, 255, 0, 255, 255, 0, 0, 255};
    glVertexPointer(2, GL_FLOAT, 0, triangle);
    glVertexPointer(7, GL_FLOAT, 0, nullptr);
    tellError("vertex size");
    glVertexPointer(2, GL_UNSIGNED_BYTE, 0, nullptr);
    tellError("vertex type");
    glNormalPointer(GL_FLOAT, -4, nullptr);
    tellError("stride");
    glColorPointer(GL_BGRA, GL_UNSIGNED_BYTE, 0, colors);
    tellError("bgra");
    tell("size", get(GL_COLOR_ARRAY_SIZE));
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glEnableClientState(GL_TRIANGLES);
    tellError("enable");
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBegin(GL_TRIANGLES);
    glVertexPointer(3, GL_FLOAT, 0, nullptr);
    glEnableClientState(GL_NORMAL_ARRAY);
    glNewList(9, GL_COMPILE);
    glRenderMode(GL_SELECT);
    glPushClientAttrib(~0U);
    glEnd();
    tellError("within begin");
    tell("mode", get(GL_RENDER_MODE));
    tell("list", get(GL_LIST_INDEX));
    glDrawArrays(GL_TRIANGLES, 0, 3);
    tellError("draw");
    glDisableClientState(GL_VERTEX_ARRAY);
    glDisableClientState(GL_COLOR_ARRAY);
    frame();
}

// Everything between glBegin and glEnd, where most is refused and nothing is answered.
void within()
{
    static const GLubyte bits[128] = {};
    glListBase(100);
    glNewList(101, GL_COMPILE);
    glColor3f(0, 1, 0);
    glBitmap(0, 0, 0, 0, 1, 1, bits);
    glEndList();
    glBegin(GL_TRIANGLES);
    glBitmap(8, 8, 0, 0, 1, 1, bits);
    glPolygonStipple(bits);
    glDrawPixels(1, 1, GL_RGBA, GL_UNSIGNED_BYTE, bits);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, bits);
    glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 0, 0, 1, 1, 0);
    glRasterPos2f(0, 0);
    glViewport(0, 0, 1, 1);
    glScissor(0, 0, 1, 1);
    glEnable(GL_SCISSOR_TEST);
    glPopAttrib();
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glFlush();
    glEnd();
    tellError("all of it");
    glBegin(GL_TRIANGLES);
    const GLubyte names[] = {1};
    glCallLists(1, GL_UNSIGNED_BYTE, names);
    glVertex2f(-0.5F, -0.5F);
    glVertex2f(0.5F, -0.5F);
    glVertex2f(0, 0.5F);
    glEnd();
    tellError("lists");
    tell("scissor", glIsEnabled(GL_SCISSOR_TEST));
    tell("base", get(GL_LIST_BASE));
    glListBase(0);
    frame();
}

void buffers()
{
    GLuint names[2];
    glGenBuffers(2, names);
    glBindBuffer(GL_ARRAY_BUFFER, names[0]);
    tell("unmap of nothing", glUnmapBuffer(GL_ARRAY_BUFFER));
    tellError("unmap");
    float triangle[6] = {-0.9F, -0.9F, 0.9F, -0.9F, 0, 0.9F};
    glBufferData(GL_ARRAY_BUFFER, sizeof triangle, nullptr, GL_STATIC_DRAW);
    glBufferData(GL_ARRAY_BUFFER, -1, nullptr, GL_STATIC_DRAW);
    tellError("size");
    const std::vector<char> large(1 << 20, 7);
    glBufferSubData(GL_ARRAY_BUFFER, 20, 1 << 20, large.data());
    tellError("beyond");
    void* const mapped = glMapBuffer(GL_ARRAY_BUFFER, GL_READ_WRITE);
    GLint is = -1;
    glGetBufferParameteriv(GL_ARRAY_BUFFER, GL_BUFFER_MAPPED, &is);
    tell("mapped", is);
    tell("twice", glMapBuffer(GL_ARRAY_BUFFER, GL_READ_ONLY) != nullptr);
    tellError("twice");
    std::memcpy(mapped, triangle, sizeof triangle);
    tell("unmap", glUnmapBuffer(GL_ARRAY_BUFFER));
    void* const part = glMapBufferRange(GL_ARRAY_BUFFER, 8, 8, GL_MAP_WRITE_BIT);
    tell("range", part != nullptr);
    std::memcpy(part, triangle + 2, 8);
    tell("unmap", glUnmapBuffer(GL_ARRAY_BUFFER));
    glBindBuffer(GL_COPY_WRITE_BUFFER, names[1]);
    glBufferData(GL_COPY_WRITE_BUFFER, sizeof triangle, nullptr, GL_STATIC_DRAW);
    glCopyBufferSubData(GL_ARRAY_BUFFER, GL_COPY_WRITE_BUFFER, 0, 0, sizeof triangle);
    float sum[6] = {};
    glGetBufferSubData(GL_COPY_WRITE_BUFFER, 0, sizeof sum, sum);
    for (const float f : sum)
        tell("copied", static_cast<long>(f * 10));
    // Drawn from the copy, pixels from a third.
    glBindBuffer(GL_ARRAY_BUFFER, names[1]);
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    glVertexPointer(2, GL_FLOAT, 0, nullptr);
    glPopClientAttrib();
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glEnableClientState(GL_VERTEX_ARRAY);
    glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    glDisableClientState(GL_VERTEX_ARRAY);
    glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    glPopClientAttrib();
    glPopClientAttrib();
    glClear(GL_COLOR_BUFFER_BIT);
    glColor3f(1, 0.5F, 0);
    const GLubyte indices[] = {0, 1, 2};
    glDrawElements(GL_TRIANGLES, 3, GL_UNSIGNED_BYTE, indices);
    glDisableClientState(GL_VERTEX_ARRAY);
    std::vector<unsigned char> pixels(64 * 64 * 4, 200);
    GLuint unpack = 0;
    glGenBuffers(1, &unpack);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, unpack);
    glBufferData(GL_PIXEL_UNPACK_BUFFER, static_cast<GLsizeiptr>(pixels.size()), pixels.data(),
                 GL_STATIC_DRAW);
    glRasterPos2f(-0.9F, -0.9F);
    glDrawPixels(64, 64, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    tellError("pixels");
    glDrawPixels(64, 65, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    tellError("too many pixels");
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, unpack);
    glCopyPixels(0, 0, 8, 8, GL_COLOR);
    unsigned char first = 0;
    glGetBufferSubData(GL_PIXEL_PACK_BUFFER, 0, 1, &first);
    tell("pack buffer", first);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glXSwapBuffers(dpy, window);
}

// Two threads fill buffers of contexts that share.
void sharing()
{
    const auto fill = [](GLXContext own, GLXPbuffer where) {
        Display* const connection = XOpenDisplay(nullptr);
        glXMakeContextCurrent(connection, where, where, own);
        for (int i = 0; i < 300; ++i) {
            GLuint names[20];
            glGenBuffers(20, names);
            const std::vector<float> data(500, 1.0F);
            for (const GLuint name : names) {
                glBindBuffer(GL_ARRAY_BUFFER, name);
                glBufferData(GL_ARRAY_BUFFER, 2000, data.data(), GL_STATIC_DRAW);
            }
            glDeleteBuffers(20, names);
        }
        tellError("thread");
        glXMakeContextCurrent(connection, None, None, nullptr);
        XCloseDisplay(connection);
    };
    int count = 0;
    const int attributes[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT | GLX_WINDOW_BIT, None};
    GLXFBConfig* const configs = glXChooseFBConfig(dpy, DefaultScreen(dpy), attributes, &count);
    std::vector<std::thread> threads;
    GLXContext first = glXCreateNewContext(dpy, configs[0], GLX_RGBA_TYPE, nullptr, True);
    for (int i = 0; i < 3; ++i) {
        GLXContext own = glXCreateNewContext(dpy, configs[0], GLX_RGBA_TYPE, first, True);
        threads.emplace_back(fill, own, glXCreatePbuffer(dpy, configs[0], pbufferSize));
    }
    XSync(dpy, False);
    for (std::thread& thread : threads)
        thread.join();
    frame();
}

// Threads do at once whatever the capture library guards: contexts that share lists and buffers,
// windows of which another is the largest, connections, drawables, surfaces, texts.
void threads()
{
    constexpr int number = 3;
    std::barrier together(number);
    const auto work = [&together](GLXContext shared, Window where, GLuint name) {
        Display* const connection = XOpenDisplay(nullptr);
        together.arrive_and_wait();
        GLXContext own = glXCreateContext(connection, visual, shared, True);
        for (int i = 0; i < 20; ++i)
            glXDestroyContext(connection, glXCreateContext(connection, visual, nullptr, True));
        const int screen = DefaultScreen(connection);
        int count = 0;
        const int kind[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, None};
        GLXFBConfig* const configs = glXChooseFBConfig(connection, screen, kind, &count);
        EGLDisplay display = eglGetDisplay(connection);
        EGLConfig config = nullptr;
        eglInitialize(display, nullptr, nullptr);
        eglChooseConfig(display, nullptr, &config, 1, &count);
        together.arrive_and_wait();
        glXMakeCurrent(connection, where, own);
        const GLubyte bits[4] = {};
        for (int i = 0; i < 20; ++i) {
            glXDestroyPbuffer(connection, glXCreatePbuffer(connection, configs[0], pbufferSize));
            eglDestroySurface(display, eglCreateWindowSurface(display, config, where, nullptr));
            glNewList(name, GL_COMPILE);
            glBitmap(8, 1, 0, 0, 1, 1, bits);
            for (int again = 0; again < 20; ++again) {
                glGetString(GL_EXTENSIONS);
                glCopyPixels(0, 0, 1, 1, GL_COLOR);
            }
            glEndList();
            glBindBuffer(GL_ARRAY_BUFFER, name);
            glBufferData(GL_ARRAY_BUFFER, 4, bits, GL_STATIC_DRAW);
            glClear(GL_COLOR_BUFFER_BIT);
            glCallList(name);
            glViewport(0, 0, i, 40);
            for (int again = 0; again < 3; ++again)
                glXSwapBuffers(connection, where);
            glDeleteLists(name, 1);
            glDeleteBuffers(1, &name);
        }
        for (int i = 0; i < 3; ++i) {
            GLXContext another = glXCreateContext(connection, visual, nullptr, True);
            glXMakeCurrent(connection, where, another);
            glXDestroyContext(connection, another);
            glXSwapBuffers(connection, where);
        }
        glXMakeCurrent(connection, None, nullptr);
        eglTerminate(display);
        together.arrive_and_wait();
        XCloseDisplay(connection);
    };
    std::vector<std::thread> started;
    for (int i = 1; i <= number; ++i) {
        const Window made = createWindow(width + 10 * i, height);
        XMapWindow(dpy, made);
        XSync(dpy, False);
        started.emplace_back(work, i == 1 ? nullptr : context, made, GLuint(i));
    }
    for (std::thread& thread : started)
        thread.join();
    frame();
    tellError("threads");
}

// A context that is destroyed while it is current in another thread lives until it is released.
void destroyed()
{
    GLXContext other = glXCreateContext(dpy, visual, nullptr, True);
    std::thread([other] {
        Display* const connection = XOpenDisplay(nullptr);
        glXMakeCurrent(connection, window, other);
        std::thread([other] { glXDestroyContext(dpy, other); }).join();
        glColor3f(1, 0, 0);
        for (int i = 0; i < 1000; ++i)
            glVertex2f(0, 0);
        tell("current", glXGetCurrentContext() == other);
        tellError("alive");
        glXMakeCurrent(connection, None, nullptr);
        XCloseDisplay(connection);
    }).join();
    frame();
}

// Shaders, without having asked for a version.
void shaders()
{
    using Create = GLuint (*)();
    const auto create = reinterpret_cast<Create>(
        glXGetProcAddress(reinterpret_cast<const GLubyte*>("glCreateProgram")));
    tell("create", create != nullptr);
    frame();
    const GLuint program = create();
    const GLuint shader = glCreateShader(GL_FRAGMENT_SHADER);
    const char* const source = "void main() { gl_FragColor = vec4(0.0, 0.6, 1.0, 1.0); }";
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    glAttachShader(program, shader);
    glLinkProgram(program);
    glUseProgram(program);
    tellError("program");
    for (int i = 0; i < 4; ++i)
        frame();
}

// A forked child that draws nothing must not write into its parent's stream.
void forks()
{
    frame();
    if (const pid_t child = fork(); child == 0)
        _exit(17);
    else {
        int status = 0;
        waitpid(child, &status, 0);
        tell("child", WEXITSTATUS(status));
    }
    frame();
}

// Windows and contexts come and go, and the names in them: the last has no texture of its own.
void figures()
{
    for (int i = 0; i < 70; ++i) {
        glXMakeCurrent(dpy, None, nullptr);
        glXDestroyContext(dpy, context);
        XDestroyWindow(dpy, window);
        window = openWindow();
        context = glXCreateContext(dpy, visual, nullptr, True);
        glXMakeCurrent(dpy, window, context);
        glEnable(GL_TEXTURE_2D);
        glBindTexture(GL_TEXTURE_2D, 5);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        const GLubyte green[] = {0, 255, 0, 255};
        if (i < 69)
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, green);
        frame();
        glBindTexture(GL_TEXTURE_2D, 1);
    }
    tellError("figures");
}

// A list that is open while another context is current, and back.
void openList()
{
    GLXContext other = glXCreateContext(dpy, visual, nullptr, True);
    frame();
    glNewList(3, GL_COMPILE);
    glColor3f(0, 1, 0);
    glXMakeCurrent(dpy, window, other);
    glScalef(0.5F, 0.5F, 1);
    tell("no list", get(GL_LIST_INDEX));
    glXMakeCurrent(dpy, window, context);
    tell("list", get(GL_LIST_INDEX));
    glRectf(-0.9F, -0.9F, 0.9F, 0.9F);
    glEndList();
    glClear(GL_COLOR_BUFFER_BIT);
    glColor3f(1, 0, 0);
    glCallList(3);
    tellError("list");
    glXSwapBuffers(dpy, window);
    glXDestroyContext(dpy, other);
}

// The window is hidden, and nothing is called after it.
void hides()
{
    frame();
    XUnmapWindow(dpy, window);
    XSync(dpy, False);
    std::puts("up");
    std::fflush(stdout);
    pause();
}

// Returns the window that was there before.
Window openLarger()
{
    const Window first = window;
    window = createWindow(width + 40, height + 40);
    XMapWindow(dpy, window);
    XSync(dpy, False);
    return first;
}

// A larger window is shown over the first and closed, and nothing is called after it.
void closes()
{
    frame();
    const Window first = openLarger();
    GLXContext other = glXCreateContext(dpy, visual, nullptr, True);
    glXMakeCurrent(dpy, window, other);
    for (int i = 0; i < 4; ++i)
        frame();
    XDestroyWindow(dpy, window);
    XSync(dpy, False);
    window = first;
    pause();
}

// One context draws into a larger window for a while, and into the first again.
void returns()
{
    frame();
    const Window first = openLarger();
    glXMakeCurrent(dpy, window, context);
    for (int i = 0; i < 4; ++i)
        frame();
    glXMakeCurrent(dpy, first, context);
    XDestroyWindow(dpy, window);
    XSync(dpy, False);
    window = first;
    for (int i = 0; i < 2; ++i) {
        glRotatef(30, 0, 0, 1);
        frame();
    }
}

const float corners[] = {-0.9F, -0.9F, 0.9F, -0.9F, 0, 0.9F};
const GLubyte reds[] = {255, 0, 0, 255, 255, 128, 0, 255, 255, 0, 128, 255};

// A context with the corners in a buffer that is shared.
void useCorners(Display* connection, GLXContext own)
{
    glXMakeCurrent(connection, window, own);
    glBindBuffer(GL_ARRAY_BUFFER, 1);
    if (own == context)
        glBufferData(GL_ARRAY_BUFFER, sizeof corners, corners, GL_STATIC_DRAW);
    glVertexPointer(2, GL_FLOAT, 0, nullptr);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glColorPointer(4, GL_UNSIGNED_BYTE, 0, reds);
    glEnableClientState(GL_VERTEX_ARRAY);
}

void drawCorners(Display* connection, GLenum mode, int frames)
{
    for (int i = 0; i < frames; ++i) {
        glClear(GL_COLOR_BUFFER_BIT);
        glDrawArrays(mode, 0, 3);
        glXSwapBuffers(connection, window);
    }
}

// Contexts that share, by turns in windows of their own, with other arrays; then they go, and what
// they had with them.
void turns()
{
    useCorners(dpy, context);
    glEnableClientState(GL_COLOR_ARRAY);
    drawCorners(dpy, GL_TRIANGLES, 1);
    const Window first = openLarger();
    GLXContext other = glXCreateContext(dpy, visual, context, True);
    useCorners(dpy, other);
    drawCorners(dpy, GL_TRIANGLES, 4);
    glXMakeCurrent(dpy, first, context);
    XDestroyWindow(dpy, window);
    XSync(dpy, False);
    window = first;
    drawCorners(dpy, GL_TRIANGLES, 2);
    const GLuint name = 1;
    glDeleteBuffers(1, &name);
    frame();
    glXMakeCurrent(dpy, None, nullptr);
    for (GLXContext one : {context, other})
        glXDestroyContext(dpy, one);
    context = glXCreateContext(dpy, visual, nullptr, True);
    glXMakeCurrent(dpy, window, context);
    frame();
}

// Two of them in threads: one has begun a frame when its window is hidden, the other draws the
// same.
void begun()
{
    useCorners(dpy, context);
    drawCorners(dpy, GL_LINE_LOOP, 2);
    for (int i = 0; i < 2; ++i)
        glDrawArrays(GL_TRIANGLES, 0, 3);
    XUnmapWindow(dpy, window);
    window = openWindow();
    XSync(dpy, False);
    std::thread([] {
        Display* const connection = XOpenDisplay(nullptr);
        useCorners(connection, glXCreateContext(connection, visual, context, True));
        drawCorners(connection, GL_TRIANGLES, 4);
        glXMakeCurrent(connection, None, nullptr);
        XCloseDisplay(connection);
    }).join();
}

// It ends while another thread draws.
void exits()
{
    frame();
    std::thread([] {
        Display* const connection = XOpenDisplay(nullptr);
        GLXContext other = glXCreateContext(connection, visual, nullptr, True);
        glXMakeCurrent(connection, window, other);
        for (;;) {
            glBegin(GL_TRIANGLES);
            for (int i = 0; i < 3000; ++i)
                glVertex2f(0, static_cast<float>(i));
            glEnd();
            glXSwapBuffers(connection, window);
        }
    }).detach();
    for (int i = 0; i < 20; ++i)
        frame();
    std::exit(5);
}

// The connection is closed, its context and window with it, and another opened.
void reconnects()
{
    for (int i = 0; i < 5; ++i) {
        frame();
        glXMakeCurrent(dpy, None, nullptr);
        XCloseDisplay(dpy);
        dpy = XOpenDisplay(nullptr);
        int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_DEPTH_SIZE, 16, None};
        XFree(visual);
        visual = glXChooseVisual(dpy, DefaultScreen(dpy), attributes);
        window = openWindow();
        context = glXCreateContext(dpy, visual, nullptr, True);
        tell("current", glXMakeCurrent(dpy, window, context));
    }
    frame();
    tellError("reconnects");
}

// One thread draws, and waits for the wall perhaps; another asks, and waits for nobody.
void queries()
{
    using Clock = std::chrono::steady_clock;
    frame();
    std::atomic<bool> done;
    std::thread asking([&done] {
        Display* const connection = XOpenDisplay(nullptr);
        auto start = Clock::now();
        GLXContext own = glXCreateContext(connection, visual, nullptr, True);
        const Pixmap pixmap = XCreatePixmap(connection, window, 8, 8, unsigned(visual->depth));
        const GLXPixmap where = glXCreateGLXPixmap(connection, visual, pixmap);
        Clock::duration longest{};
        do {
            glXMakeCurrent(connection, where, own);
            get(GL_MAX_TEXTURE_SIZE);
            glFlush();
            glXMakeCurrent(connection, None, nullptr);
            longest = std::max(longest, Clock::now() - std::exchange(start, Clock::now()));
        } while (!done);
        tell("waits", longest > std::chrono::seconds(1));
    });
    const std::vector<unsigned char> pixels(std::size_t{4} * width * height);
    for (int i = 0; i < 100; ++i)
        glDrawPixels(width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    done = true;
    asking.join();
    frame();
}

// A window of one colour that rests, with a cursor of another: a block of 8 x 4, its hot spot at
// (2, 1).
void pointed()
{
    XUnmapWindow(dpy, window);
    window = createWindow(60, 45);
    char block[] = {-1, -1, -1, -1};
    const Pixmap shape = XCreateBitmapFromData(dpy, window, block, 8, 4);
    XColor blue{};
    blue.blue = 65535;
    XDefineCursor(dpy, window, XCreatePixmapCursor(dpy, shape, shape, &blue, &blue, 2, 1));
    XMapWindow(dpy, window);
    glXMakeCurrent(dpy, window, context);
    glClearColor(0, 1, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glXSwapBuffers(dpy, window);
    pause();
}

// All files are closed that are not known to be its own, and their numbers are used for others.
void closesFiles()
{
    frame();
    tell("lowest number", dup(1) - ConnectionNumber(dpy));
    constexpr int numbers = 1024;
    for (int fd = 3; fd < numbers; ++fd)
        if (fd != ConnectionNumber(dpy))
            close(fd);
    const int file = fileno(std::tmpfile());
    for (int fd = 3; fd < numbers - 1; ++fd)
        if (fd != ConnectionNumber(dpy) && fd != file)
            dup2(file, fd);
    for (int i = 0; i < 3; ++i) {
        glViewport(0, 0, width - i, height);
        frame();
    }
    tell("written", lseek(file, 0, SEEK_END));
    tellError("frames");
}

// The same images in every frame, of a few bytes and of many.
void images()
{
    std::vector<GLubyte> bytes(std::size_t{4} * 512 * 512, 99);
    for (int i = 0; i < 9; ++i) {
        for (GLuint name = 1; name < 4; ++name) {
            const GLsizei size = name == 1 ? 64 : 512;
            bytes[1000] = static_cast<GLubyte>(name == 3 ? i : 5); // this one is always another
            glBindTexture(GL_TEXTURE_2D, name);
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size, size, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                         bytes.data());
        }
        frame();
    }
    tellError("images");
}

// Draws of half a MiB each from buffers that stay: in each frame two, later two others.
void steady()
{
    constexpr GLsizei points = 1 << 16;
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glBufferData(GL_ARRAY_BUFFER, 4 * points * GLsizeiptr{2 * sizeof(float)}, nullptr,
                 GL_STATIC_DRAW);
    glVertexPointer(2, GL_FLOAT, 0, nullptr);
    glEnableClientState(GL_VERTEX_ARRAY);
    glListBase(0U - ' '); // far from the names of the wall's own lists
    for (int i = 0; i < 10; ++i) {
        for (int half = 0; half < 2; ++half)
            glDrawArrays(GL_POINTS, (i / 5 * 2 + half) * points, points);
        frame();
    }
    // A name like the wall's for its own lists: the program's is the one that counts.
    constexpr GLuint theirs = 0xf0000000;
    glNewList(theirs, GL_COMPILE);
    glRectf(-0.9F, 0.6F, -0.6F, 0.9F);
    glEndList();
    for (int i = 0; i < 3; ++i) {
        glClear(GL_COLOR_BUFFER_BIT);
        glDrawArrays(GL_POINTS, 0, points);
        glCallList(theirs);
        glXSwapBuffers(dpy, window);
    }
    tellError("steady");
}

const struct {
    const char* name;
    void (*run)();
} programs[] = {
    {"still", still},       {"refusals", refusals}, {"within", within},
    {"buffers", buffers},   {"sharing", sharing},   {"destroyed", destroyed},
    {"shaders", shaders},   {"forks", forks},       {"figures", figures},
    {"openList", openList}, {"hides", hides},       {"closes", closes},
    {"returns", returns},   {"exits", exits},       {"reconnects", reconnects},
    {"threads", threads},   {"queries", queries},   {"closesFiles", closesFiles},
    {"steady", steady},     {"images", images},     {"pointed", pointed},
    {"turns", turns},       {"begun", begun},
};

} // namespace

int main(int argc, char** argv)
{
    XInitThreads();
    dpy = XOpenDisplay(nullptr);
    int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_DEPTH_SIZE, 16, None};
    visual = dpy ? glXChooseVisual(dpy, DefaultScreen(dpy), attributes) : nullptr;
    if (!visual || argc < 2)
        return 2;
    context = glXCreateContext(dpy, visual, nullptr, True);
    window = createWindow();
    glXMakeCurrent(dpy, window, context);
    XMapWindow(dpy, window); // seen only now
    for (const auto& program : programs)
        for (int n = argc > 2 ? std::atoi(argv[2]) : 1;
             n > 0 && std::strcmp(program.name, argv[1]) == 0; --n)
            program.run();
    return 5;
}

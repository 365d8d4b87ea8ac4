#include "tests/scenes.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace scenes {

using enum Op; // glBegin is the opcode here, not the function

// The frame that the scene functions add to.
CommandBuffer* frame;

template <Op op, class... A>
void put(A... a)
{
    encode<op>(*frame, a...);
}

void color(int i)
{
    static constexpr float colors[][3] = {{1, .3F, .2F}, {.2F, .8F, .3F}, {.3F, .4F, 1},
                                          {1, .9F, .2F}, {.8F, .3F, .9F}, {.2F, .9F, .9F}};
    put<glColor3fv>(colors[i % 6]);
}

// A primitive of n vertices, each put by `vertex`.
void primitive(GLenum mode, int n, auto vertex)
{
    put<glBegin>(mode);
    for (int i = 0; i < n; ++i)
        vertex(i);
    put<glEnd>();
}

void quad(double x0, double y0, double x1, double y1)
{
    primitive(GL_QUADS, 4, [=](int corner) {
        put<glVertex2d>(corner == 1 || corner == 2 ? x1 : x0, corner < 2 ? y0 : y1);
    });
}

template <Op op>
void projection(double left, double right, double bottom, double top, double near, double far)
{
    put<glMatrixMode>(GL_PROJECTION);
    put<glLoadIdentity>();
    put<op>(left, right, bottom, top, near, far);
    put<glMatrixMode>(GL_MODELVIEW);
    put<glLoadIdentity>();
}

// One unit is one pixel of the application's window.
void pixelProjection() { projection<glOrtho>(0, sceneWidth, 0, sceneHeight, -100, 100); }

void perspective()
{
    projection<glFrustum>(-.8, .8, -.6, .6, 1.5, 60);
    put<glTranslatef>(0, 0, -5);
    put<glEnable>(GL_DEPTH_TEST);
}

void sphere(double radius)
{
    constexpr int rings = 18;
    const auto vertex = [radius](int ring, int step) {
        const double a = std::numbers::pi * ring / rings;
        const double b = 2 * std::numbers::pi * step / rings;
        const double n[3] = {std::sin(a) * std::cos(b), std::cos(a), std::sin(a) * std::sin(b)};
        put<glNormal3d>(n[0], n[1], n[2]);
        put<glVertex3d>(radius * n[0], radius * n[1], radius * n[2]);
    };
    for (int ring = 0; ring < rings; ++ring)
        primitive(GL_QUAD_STRIP, 2 * rings + 2, [&](int i) { vertex(ring + i % 2, i / 2); });
}

void light()
{
    static constexpr float position[] = {3, 4, 5, 0};
    static constexpr float white[] = {1, 1, 1, 1};
    put<glEnable>(GL_LIGHTING);
    put<glEnable>(GL_LIGHT0);
    put<glLightfv>(GL_LIGHT0, GL_POSITION, position);
    put<glMaterialfv>(GL_FRONT_AND_BACK, GL_SPECULAR, white);
    put<glMaterialf>(GL_FRONT_AND_BACK, GL_SHININESS, 20);
    put<glEnable>(GL_COLOR_MATERIAL);
}

// A picture without two equal pixels side by side.
std::vector<unsigned char> picture(int width, int height, int components)
{
    std::vector<unsigned char> bytes;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < components; ++c) {
                const int levels[] = {255 * x / width, 255 * y / height, 40 * ((x ^ y) & 5)};
                bytes.push_back(static_cast<unsigned char>(levels[std::min(c, 2)]));
            }
    return bytes;
}

Block blockOf(const std::vector<unsigned char>& bytes)
{
    return {bytes.data(), static_cast<int>(bytes.size())};
}

void drawPicture(int x, int y, int width, int height, GLenum format, int components)
{
    put<glRasterPos2i>(x, y);
    put<glDrawPixels>(width, height, format, GL_UNSIGNED_BYTE,
                      blockOf(picture(width, height, components)));
}

void viewport(int x, int y, int width, int height)
{
    put<glViewport>(ViewportBlock{x, y, width, height, sceneWidth, sceneHeight});
}

void scissor()
{
    put<glEnable>(GL_SCISSOR_TEST);
    static constexpr int boxes[][4] = {{10, 10, 50, 160},
                                       {70, 40, 100, 100},
                                       {100, 60, 130, 25},
                                       {180, 5, 20, 50},
                                       {5, 85, 230, 9}};
    for (int i = 0; i < 5; ++i) {
        put<glScissor>(boxes[i][0], boxes[i][1], boxes[i][2], boxes[i][3]);
        put<glClearColor>(.3 * i, 1 - .2 * i, .5, 1);
        put<glClear>(GL_COLOR_BUFFER_BIT);
        color(i);
        quad(0, 0, 15.0 * i + 30, 90);
    }
    put<glScissor>(500, 500, 10, 10); // nowhere
    put<glClear>(GL_COLOR_BUFFER_BIT);
}

void lines()
{
    for (const int width : {1, 3}) {
        put<glLineWidth>(width);
        primitive(GL_LINES, 12, [=](int i) {
            color(i);
            const double a = .1 + .5 * i;
            put<glVertex2d>(120, 90);
            put<glVertex2d>(120 + 40 * width * std::cos(a), 90 + 28 * width * std::sin(a));
        });
    }
    primitive(GL_LINE_LOOP, 7, [](int i) {
        put<glVertex2d>(120 + 90 * std::sin(2.7 * i), 90 + 60 * std::cos(2.7 * i));
    });
}

void points()
{
    for (int size = 1; size <= 4; ++size) {
        put<glPointSize>(size);
        primitive(GL_POINTS, 27 * 4, [=](int i) {
            const int x = 4 + 9 * (i / 4);
            const int y = 7 * size + 40 * (i % 4);
            color(x + y);
            put<glVertex2i>(x, y);
        });
    }
}

void text(int x, int y, int glyphs)
{
    static constexpr unsigned char letter[] = {0x81, 0x42, 0x24, 0x18, 0x18, 0xff, 0x81,
                                               0xbd, 0xa1, 0x85, 0xbd, 0x81, 0xff};
    static constexpr unsigned char wide[] = {0xff, 0xf0, 0x80, 0x10, 0xaa, 0x50, 0xff, 0xf0};
    put<glRasterPos2i>(x, y);
    for (int i = 0; i < glyphs; ++i)
        if (i % 3 == 2)
            put<glBitmap>(12, 4, 0, -2, 14.5, 0, Block{wide, sizeof wide});
        else
            put<glBitmap>(8, 13, 1, 2, 9, 1, Block{letter, sizeof letter});
}

void bitmaps()
{
    put<glPixelStorei>(GL_UNPACK_ALIGNMENT, 1);
    color(3);
    text(4, 82, 22);
    color(5);
    text(-6, 120, 12); // begins outside
    for (int y = 0; y < sceneHeight; y += 21) {
        color(y);
        text(75, y, 2);
        text(115, y, 1);
    }
    put<glPixelStorei>(GL_UNPACK_ALIGNMENT, 4);
    color(1);
    text(150, 100, 5);
}

void pixelImages()
{
    drawPicture(60, 70, 60, 40, GL_RGB, 3);
    put<glPixelZoom>(2, 1);
    drawPicture(144, 76, 32, 32, GL_BGRA, 4);
    put<glPixelZoom>(-1, -2);
    drawPicture(150, 64, 48, 24, GL_LUMINANCE, 1);
    put<glPixelZoom>(1, 1);
    put<glPixelStorei>(GL_UNPACK_ROW_LENGTH, 60); // a part of the picture
    put<glPixelStorei>(GL_UNPACK_SKIP_PIXELS, 10);
    put<glPixelStorei>(GL_UNPACK_SKIP_ROWS, 4);
    put<glPixelStorei>(GL_UNPACK_ALIGNMENT, 1);
    put<glRasterPos2i>(100, 120);
    put<glDrawPixels>(40, 30, GL_RGB, GL_UNSIGNED_BYTE, blockOf(picture(60, 40, 3)));
}

void textures()
{
    static constexpr unsigned names[] = {7, 3};
    const std::vector<unsigned char> image = picture(64, 64, 3);
    const std::vector<unsigned char> patch = picture(16, 16, 3);
    put<glGenTextures>(2, names);
    put<glEnable>(GL_TEXTURE_2D);
    put<glPixelStorei>(GL_UNPACK_ALIGNMENT, 1);
    for (int i = 0; i < 2; ++i) {
        put<glBindTexture>(GL_TEXTURE_2D, names[i]);
        const int filter = i ? GL_LINEAR : GL_NEAREST;
        put<glTexParameteri>(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
        put<glTexParameteriv>(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
        put<glTexImage2D>(GL_TEXTURE_2D, 0, GL_RGB, 64, 64, 0, GL_RGB, GL_UNSIGNED_BYTE,
                          i ? Block{nullptr, 0} : blockOf(image));
    }
    put<glTexSubImage2D>(GL_TEXTURE_2D, 0, 0, 0, 64, 64, GL_RGB, GL_UNSIGNED_BYTE, blockOf(image));
    put<glTexSubImage2D>(GL_TEXTURE_2D, 0, 20, 30, 16, 16, GL_RGB, GL_UNSIGNED_BYTE,
                         blockOf(patch));
    perspective();
    for (int i = 0; i < 2; ++i) {
        put<glBindTexture>(GL_TEXTURE_2D, names[i]);
        put<glPushMatrix>();
        put<glTranslatef>(i ? .8 : -.8, 0, 0);
        put<glRotatef>(i ? -40 : 30, .2, 1, .1);
        primitive(GL_QUADS, 4, [](int corner) {
            const int s = corner == 1 || corner == 2;
            const int t = corner > 1;
            put<glTexCoord2i>(2 * s, t);
            put<glVertex2i>(2 * s - 1, 3 * t - 2);
        });
        put<glPopMatrix>();
    }
}

void clientArrays()
{
    std::vector<float> vertices;
    std::vector<unsigned char> colors;
    std::vector<unsigned short> indices;
    for (int i = 0; i < 40; ++i) {
        const double a = .35 * i;
        vertices.insert(vertices.end(), {static_cast<float>(120 + 2.8 * i * std::cos(a)),
                                         static_cast<float>(90 + 2.1 * i * std::sin(a))});
        for (const int factor : {3, 5, 6})
            colors.push_back(static_cast<unsigned char>(60 + factor * i * 2 % 195));
        indices.push_back(static_cast<unsigned short>((i * 7) % 40));
    }
    const Block indexBlock{indices.data(), 0};
    put<glEnableClientState>(GL_VERTEX_ARRAY);
    put<glEnableClientState>(GL_COLOR_ARRAY);
    put<glVertexPointer>(2, GL_FLOAT, 40, vertices.data());
    put<glColorPointer>(3, GL_UNSIGNED_BYTE, 40, colors.data());
    put<glDrawArrays>(GL_TRIANGLE_STRIP, 0, 40);
    put<glDrawElements>(GL_LINE_STRIP, 40, GL_UNSIGNED_SHORT, indexBlock);
    put<glTranslatef>(30, -20, 1);
    put<glDrawRangeElements>(GL_TRIANGLES, 0, 39, 12, GL_UNSIGNED_SHORT, indexBlock);
    put<glDisableClientState>(GL_COLOR_ARRAY);
    color(0);
    primitive(GL_LINE_LOOP, 14, [](int i) { put<glArrayElement>(3 * i); });
}

void fog()
{
    static constexpr float fogColor[] = {.5F, .6F, .7F, 1};
    put<glEnable>(GL_FOG);
    put<glFogi>(GL_FOG_MODE, GL_LINEAR);
    put<glFogf>(GL_FOG_START, 3);
    put<glFogf>(GL_FOG_END, 7);
    put<glFogfv>(GL_FOG_COLOR, fogColor);
}

void evaluatorsInFog()
{
    std::vector<float> surface;
    for (int v = 0; v < 4; ++v)
        for (int u = 0; u < 4; ++u)
            surface.insert(surface.end(), {static_cast<float>(u - 1.5), static_cast<float>(v - 1.5),
                                           static_cast<float>((u * 5 + v * 3) % 4 - 1)});
    static constexpr double curve[] = {-2, -1, 1, -1, 2, 1, 1, -2, 1, 2, 1, 1};
    perspective();
    light();
    fog();
    color(2);
    put<glRotatef>(-35, 1, .3, 0);
    put<glEnable>(GL_AUTO_NORMAL);
    put<glEnable>(GL_MAP2_VERTEX_3);
    put<glMap2f>(GL_MAP2_VERTEX_3, 0, 1, 3, 4, 0, 1, 12, 4,
                 Block{surface.data(), static_cast<int>(surface.size())});
    put<glMapGrid2f>(16, 0, 1, 16, 0, 1);
    put<glEvalMesh2>(GL_FILL, 0, 16, 0, 16);
    put<glDisable>(GL_LIGHTING);
    put<glEnable>(GL_MAP1_VERTEX_3);
    put<glMap1d>(GL_MAP1_VERTEX_3, 0, 1, 3, 4, Block{curve, 12});
    put<glLineWidth>(3);
    color(3);
    primitive(GL_LINE_STRIP, 25, [](int i) { put<glEvalCoord1d>(i / 24.0); });
}

void viewports()
{
    static constexpr int boxes[][4] = {{0, 0, 120, 90},
                                       {120, 0, 120, 90},
                                       {30, 60, 150, 110},
                                       {170, 100, 61, 73},
                                       {-20, 120, 60, 90}};
    for (int i = 0; i < 5; ++i) {
        viewport(boxes[i][0], boxes[i][1], boxes[i][2], boxes[i][3]);
        color(i);
        quad(20, 20, 220, 160);
        color(i + 1);
        static constexpr int corners[][2] = {{0, 0}, {sceneWidth, 40}, {100, sceneHeight}};
        primitive(GL_TRIANGLES, 3, [](int corner) { put<glVertex2iv>(corners[corner]); });
    }
}

void partialViewport()
{
    viewport(50, 33, 99, 104);
    perspective();
    light();
    color(5);
    sphere(1.3);
    put<glDisable>(GL_LIGHTING);
    put<glDisable>(GL_DEPTH_TEST);
    pixelProjection();
    color(3);
    text(10, 60, 9); // leaves the viewport, as text may
    drawPicture(60, 100, 60, 40, GL_RGB, 3);
}

void attributeStacks()
{
    put<glPushAttrib>(GL_VIEWPORT_BIT | GL_CURRENT_BIT);
    viewport(20, 20, 100, 150);
    color(1);
    put<glRasterPos2i>(100, 40);
    quad(0, 0, sceneWidth, sceneHeight);
    put<glPushAttrib>(GL_ENABLE_BIT); // the viewport set inside stays in force
    viewport(100, 50, 120, 60);
    put<glPopAttrib>();
    color(2);
    quad(20, 20, 200, 160);
    put<glPopAttrib>();
    color(3);
    quad(200, 100, 230, 170);
    put<glMatrixMode>(GL_PROJECTION);
    put<glPushMatrix>();
    put<glScalef>(.5, .5, 1);
    color(4);
    quad(20, 140, 230, 175);
    put<glPopMatrix>();
    put<glMatrixMode>(GL_MODELVIEW);
    color(0);
    quad(5, 130, 60, 175);
}

} // namespace scenes

std::span<const Scene> allScenes()
{
    static constexpr Scene all[] = {
        {"scissor", scenes::scissor},
        {"lines", scenes::lines, 110},
        {"points", scenes::points, 200},
        {"bitmaps", scenes::bitmaps},
        {"pixel_images", scenes::pixelImages},
        {"textures", scenes::textures, 3},
        {"client_arrays", scenes::clientArrays, 20},
        {"evaluators_in_fog", scenes::evaluatorsInFog, 6},
        {"viewports", scenes::viewports},
        {"partial_viewport", scenes::partialViewport},
        {"attribute_stacks", scenes::attributeStacks},
    };
    return all;
}

CommandBuffer frameOf(const Scene& scene)
{
    const ProgramWindow window{AppDisplay(0x1000U), AppVisual(0x21U), AppDrawable(0x200001U),
                               AppContext(0xc0U),   sceneWidth,       sceneHeight};
    constexpr int attributes[] = {
        GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_DEPTH_SIZE, 16, GLX_STENCIL_SIZE, 8, None};
    CommandBuffer out;
    encodeOpening(out, window, attributes);
    encode<Op::glClearColor>(out, .1, .1, .15, 1);
    encode<Op::glClear>(out, GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    scenes::frame = &out;
    scenes::pixelProjection();
    scene.draw();
    encode<Op::glXSwapBuffers>(out, asParameter<Display*>(window.dpy),
                               asParameter<GLXDrawable>(window.window));
    return out;
}

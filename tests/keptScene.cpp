#define GL_GLEXT_PROTOTYPES
#include "keptScene.h"

#include <GL/gl.h>
#include <GL/glext.h>

#include <cstring>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

namespace {

constexpr int corners = 8;
int cell; // 24 by 20 pixels, ten in a row
GLfloat origin[16];

struct Cell {
    Cell()
    {
        glPushMatrix();
        glLoadMatrixf(origin);
        glTranslatef(static_cast<float>(cell % 10 * 24), static_cast<float>(cell / 10 * 20), 0);
        ++cell;
    }
    ~Cell() { glPopMatrix(); }
};

const void* at(std::size_t offset) { return reinterpret_cast<const void*>(offset); }

// Values as elements of a type; where they are scaled, of the whole range.
std::vector<unsigned char> elements(const std::vector<double>& values, GLenum type, bool scaled)
{
    const auto make = [&]<class T>(T) {
        constexpr double most =
            std::is_integral_v<T> ? static_cast<double>(std::numeric_limits<T>::max()) : 1;
        std::vector<unsigned char> bytes;
        for (const double value : values) {
            const T element = static_cast<T>(scaled ? value * most : value);
            const auto* from = reinterpret_cast<const unsigned char*>(&element);
            bytes.insert(bytes.end(), from, from + sizeof element);
        }
        return bytes;
    };
    switch (type) {
    case GL_BYTE:
        return make(GLbyte{});
    case GL_UNSIGNED_BYTE:
        return make(GLubyte{});
    case GL_SHORT:
        return make(GLshort{});
    case GL_UNSIGNED_SHORT:
        return make(GLushort{});
    case GL_INT:
        return make(GLint{});
    case GL_UNSIGNED_INT:
        return make(GLuint{});
    case GL_DOUBLE:
        return make(GLdouble{});
    default:
        return make(GLfloat{});
    }
}

// Values between two bounds that look like no others.
std::vector<double> spread(int count, double least, double most)
{
    std::vector<double> values;
    for (int i = 0; i < count; ++i)
        values.push_back(least + (most - least) * ((i * 37 + 11) % 101) / 101.0);
    return values;
}

GLuint bufferOf(const std::vector<unsigned char>& bytes)
{
    GLuint name = 0;
    glGenBuffers(1, &name);
    glBindBuffer(GL_ARRAY_BUFFER, name);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(bytes.size()), bytes.data(),
                 GL_STATIC_DRAW);
    return name;
}

const std::vector<double> zigzag{1, 1, 5, 18, 8, 2, 11, 17, 14, 3, 17, 18, 20, 4, 22, 16};
constexpr GLushort indices[] = {7, 6, 4, 5, 1, 0, 2, 3, 3, 1};

// What stays for as long as the program runs.
struct Kept {
    GLuint positions, colors, indexList;
    std::vector<std::function<void()>> cells;
};

void positionsFrom(GLuint buffer, std::size_t offset = 0)
{
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glVertexPointer(2, GL_FLOAT, 0, at(offset));
}

void addModes(Kept& kept)
{
    for (GLenum mode = GL_POINTS; mode <= GL_POLYGON; ++mode)
        for (const bool indexed : {false, true})
            kept.cells.emplace_back([=] {
                glEnableClientState(GL_COLOR_ARRAY);
                if (indexed)
                    glDrawElements(mode, 8, GL_UNSIGNED_SHORT, at(2 * sizeof *indices));
                else
                    glDrawArrays(mode, 0, corners);
            });
}

// Arrays of every type, lit and not; what they leave behind is seen in a rectangle.
void addTypes(Kept& kept)
{
    constexpr GLenum types[] = {GL_BYTE, GL_UNSIGNED_BYTE, GL_SHORT, GL_UNSIGNED_SHORT,
                                GL_INT,  GL_UNSIGNED_INT,  GL_FLOAT, GL_DOUBLE};
    for (const GLenum type : types) {
        const GLuint colors = bufferOf(elements(spread(4 * corners, 0, 1), type, true));
        const bool isSigned = type == GL_BYTE || type == GL_SHORT || type == GL_INT ||
                              type == GL_FLOAT || type == GL_DOUBLE;
        const GLuint normals =
            isSigned ? bufferOf(elements(spread(3 * corners, -1, 1), type, true)) : 0;
        const bool places = type != GL_BYTE && isSigned;
        const GLuint positions = places ? bufferOf(elements(zigzag, type, false)) : 0;
        for (const bool lit : {false, true})
            kept.cells.emplace_back([=] {
                (lit ? glEnable : glDisable)(GL_LIGHTING);
                glEnableClientState(GL_COLOR_ARRAY);
                glBindBuffer(GL_ARRAY_BUFFER, colors);
                glColorPointer(4, type, 0, at(0));
                if (lit && normals) {
                    glEnableClientState(GL_NORMAL_ARRAY);
                    glBindBuffer(GL_ARRAY_BUFFER, normals);
                    glNormalPointer(type, 0, at(0));
                }
                if (positions) {
                    glBindBuffer(GL_ARRAY_BUFFER, positions);
                    glVertexPointer(2, type, 0, at(0));
                }
                glDrawArrays(GL_TRIANGLE_STRIP, 0, corners);
                glRecti(20, 1, 23, 8);
            });
    }
}

// Coordinates of two units, fog, secondary colours, edges, attributes.
void addOthers(Kept& kept)
{
    const GLuint values = bufferOf(elements(spread(4 * corners, 0, 1), GL_FLOAT, false));
    const GLuint edges = bufferOf({1, 0, 1, 1, 0, 0, 1, 0});
    const auto from = [](GLuint buffer) { glBindBuffer(GL_ARRAY_BUFFER, buffer); };
    kept.cells.emplace_back([=] {
        from(values);
        glEnable(GL_FOG);
        glFogi(GL_FOG_COORD_SRC, GL_FOG_COORD);
        glFogi(GL_FOG_MODE, GL_LINEAR);
        glEnableClientState(GL_FOG_COORD_ARRAY);
        glFogCoordPointer(GL_FLOAT, 0, at(0));
        glDrawArrays(GL_TRIANGLES, 0, 6);
        glRecti(20, 1, 23, 8);
        glDisable(GL_FOG);
    });
    kept.cells.emplace_back([=] {
        from(values);
        glEnable(GL_COLOR_SUM);
        glEnableClientState(GL_SECONDARY_COLOR_ARRAY);
        glSecondaryColorPointer(3, GL_FLOAT, 0, at(0));
        glDrawArrays(GL_TRIANGLES, 0, 6);
        glRecti(20, 1, 23, 8);
        glDisable(GL_COLOR_SUM);
    });
    kept.cells.emplace_back([=] {
        from(edges);
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
        glEnableClientState(GL_EDGE_FLAG_ARRAY);
        glEdgeFlagPointer(0, at(0));
        glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, at(0));
        glRecti(20, 1, 23, 8);
        glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    });
    kept.cells.emplace_back([] { // smaller by a call of the extension's form
        for (const GLfloat times : {4.0F, 1.0F}) {
            const GLfloat attenuation[] = {times, 0, 0};
            glPointParameterfvARB(GL_POINT_DISTANCE_ATTENUATION, attenuation);
            if (times > 1)
                glDrawArrays(GL_POINTS, 0, corners);
        }
    });
    for (int unit = 0; unit < 2; ++unit)
        kept.cells.emplace_back([=] {
            from(values);
            const auto texture = static_cast<GLenum>(GL_TEXTURE0 + unit);
            glActiveTexture(texture);
            glEnable(GL_TEXTURE_2D);
            glActiveTexture(unit == 0 ? GL_TEXTURE1 : GL_TEXTURE0);
            glClientActiveTexture(texture);
            glEnableClientState(GL_TEXTURE_COORD_ARRAY);
            glTexCoordPointer(4, GL_FLOAT, 0, at(0));
            glDrawArrays(GL_TRIANGLE_STRIP, 0, corners);
            glRecti(20, 1, 23, 8);
            glDisableClientState(GL_TEXTURE_COORD_ARRAY);
            glClientActiveTexture(GL_TEXTURE0);
            glActiveTexture(texture);
            glDisable(GL_TEXTURE_2D);
            glActiveTexture(GL_TEXTURE0);
        });
}

// What is drawn, changed, and drawn again in the next cell.
void addChanges(Kept& kept, void (*inSharing)(void (*change)()))
{
    static GLuint changing, other;
    static std::vector<unsigned char> first, second;
    first = elements(zigzag, GL_FLOAT, false);
    std::vector<double> lower = zigzag;
    for (double& value : lower)
        value *= 0.6;
    second = elements(lower, GL_FLOAT, false);
    changing = bufferOf(first);
    other = bufferOf(second);
    const auto bytes = static_cast<GLsizeiptr>(second.size());
    static GLsizeiptr size;
    size = bytes;
    const auto twice = [](void (*change)()) {
        return [=] {
            glBindBuffer(GL_ARRAY_BUFFER, changing);
            glBufferSubData(GL_ARRAY_BUFFER, 0, size, first.data());
            positionsFrom(changing);
            for (int i = 0; i < 2; ++i)
                glDrawArrays(GL_TRIANGLES, 0, 6);
            change();
            positionsFrom(changing);
            Cell next;
            for (int i = 0; i < 3; ++i)
                glDrawArrays(GL_TRIANGLES, 0, 6);
        };
    };
    kept.cells.emplace_back(
        twice([] { glBufferSubData(GL_ARRAY_BUFFER, 0, size, second.data()); }));
    kept.cells.emplace_back(
        twice([] { glBufferData(GL_ARRAY_BUFFER, size, second.data(), GL_STATIC_DRAW); }));
    kept.cells.emplace_back(twice([] {
        std::memcpy(glMapBuffer(GL_ARRAY_BUFFER, GL_WRITE_ONLY), second.data(), second.size());
        glUnmapBuffer(GL_ARRAY_BUFFER);
    }));
    kept.cells.emplace_back(twice([] {
        glBindBuffer(GL_COPY_READ_BUFFER, other);
        glCopyBufferSubData(GL_COPY_READ_BUFFER, GL_ARRAY_BUFFER, 0, 0, size);
    }));
    kept.cells.emplace_back(twice([] {
        glDeleteBuffers(1, &changing);
        changing = bufferOf(second); // of the same name
    }));
    static const auto share = inSharing;
    kept.cells.emplace_back(twice([] {
        share([] {
            glBindBuffer(GL_ARRAY_BUFFER, changing);
            glBufferSubData(GL_ARRAY_BUFFER, 0, size, second.data());
        });
    }));
}

// The same arrays with other indices, another range, other current values, and lists that the
// program compiles.
void addRanges(Kept& kept)
{
    kept.cells.emplace_back([indexList = bufferOf({0, 1, 2})] {
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indexList);
        for (const GLubyte last : {GLubyte{2}, GLubyte{7}}) {
            const Cell next;
            glBufferSubData(GL_ELEMENT_ARRAY_BUFFER, 2, 1, &last);
            for (int i = 0; i < 3; ++i)
                glDrawElements(GL_TRIANGLES, 3, GL_UNSIGNED_BYTE, at(0));
        }
    });
    for (GLint from = 0; from < 3; ++from)
        kept.cells.emplace_back([=, positions = kept.positions] {
            glDrawArrays(GL_TRIANGLES, from, 3);
            positionsFrom(positions, static_cast<std::size_t>(from) * 16);
            glDrawArrays(GL_LINES, 0, 4);
            glDrawElements(GL_LINE_STRIP, 4, GL_UNSIGNED_SHORT,
                           at(static_cast<std::size_t>(from) * sizeof *indices));
        });
    for (const float green : {0.3F, 0.9F})
        kept.cells.emplace_back([=] {
            glColor3f(0, green, 1);
            glDrawArrays(GL_TRIANGLES, 0, 3);
            glEnableClientState(GL_COLOR_ARRAY);
            glDrawArrays(GL_TRIANGLES, 3, 3);
            glDisableClientState(GL_COLOR_ARRAY);
            glRecti(20, 1, 23, 8);
        });
    kept.cells.emplace_back([] {
        glNewList(7, GL_COMPILE_AND_EXECUTE);
        glDrawArrays(GL_TRIANGLES, 1, 3);
        glEndList();
        glTranslatef(10, 4, 0);
        glScalef(0.5F, 0.5F, 1);
        glCallList(7);
    });
}

// Images that are specified in every frame anew: with the same bytes, and with what was there
// before they were changed in some other way.
void addImages(Kept& kept)
{
    constexpr int size = 8;
    static std::vector<GLubyte> first, other;
    for (int i = 0; i < 4 * size * size; ++i) {
        first.push_back(static_cast<GLubyte>(37 * i));
        other.push_back(static_cast<GLubyte>(255 - 11 * i));
    }
    const auto specify = [] {
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size, size, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     first.data());
    };
    const auto show = [] {
        glColor3f(1, 1, 1);
        glBegin(GL_QUADS);
        for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
            glTexCoord2i(x, y);
            glVertex2i(2 + 8 * x, 2 + 8 * y);
        }
        glEnd();
        glTranslatef(10, 0, 0);
    };
    static GLuint names[3];
    glGenTextures(3, names);
    for (const GLuint name : names) {
        glBindTexture(GL_TEXTURE_2D, name);
        for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
            glTexParameteri(GL_TEXTURE_2D, filter, GL_NEAREST);
    }
    const auto add = [&](auto change) {
        kept.cells.emplace_back([=] {
            glEnable(GL_TEXTURE_2D);
            glBindTexture(GL_TEXTURE_2D, names[0]);
            specify();
            show();
            change();
            show();
            specify();
            glTranslatef(-10, 9, 0);
            show();
            glBindTexture(GL_TEXTURE_2D, GL_TEXTURE0);
            glDisable(GL_TEXTURE_2D);
        });
    };
    add([] {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 2, 2, 4, 4, GL_RGBA, GL_UNSIGNED_BYTE, other.data());
    });
    add([] {
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size, size, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     other.data());
    });
    add([] { glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 20, 0, size, size, 0); });
    add([=] {
        glPushAttrib(GL_PIXEL_MODE_BIT);
        glPixelTransferf(GL_RED_SCALE, 0.3F);
        specify();
        glPopAttrib();
    });
    add([] {
        glDeleteTextures(1, names); // and again, by the same name
        glBindTexture(GL_TEXTURE_2D, names[0]);
        for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
            glTexParameteri(GL_TEXTURE_2D, filter, GL_NEAREST);
    });
    add([=] { // two textures, and a row length
        glBindTexture(GL_TEXTURE_2D, names[1]);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, size);
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, 3);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 4, 4, 0, GL_RGBA, GL_UNSIGNED_BYTE, other.data());
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    });
    add([=] { // the levels that the library makes of it, of the second of two alike
        glBindTexture(GL_TEXTURE_2D, names[2]);
        glTexParameteri(GL_TEXTURE_2D, GL_GENERATE_MIPMAP, 0);
        specify();
        glTexParameteri(GL_TEXTURE_2D, GL_GENERATE_MIPMAP, 1);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST_MIPMAP_NEAREST);
        glScalef(0.25F, 1, 1);
    });
}

Kept makeKept(void (*inSharing)(void (*change)()))
{
    Kept kept{};
    kept.positions = bufferOf(elements(zigzag, GL_FLOAT, false));
    kept.colors = bufferOf(elements(spread(4 * corners, 0, 1), GL_FLOAT, false));
    glGenBuffers(1, &kept.indexList);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, kept.indexList);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices, GL_STATIC_DRAW);
    const GLubyte texels[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 0};
    for (const GLenum unit : {GL_TEXTURE1, GL_TEXTURE0}) {
        glActiveTexture(unit);
        glBindTexture(GL_TEXTURE_2D, unit);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 2, 2, 0, GL_RGB, GL_UNSIGNED_BYTE, texels);
    }
    addModes(kept);
    addTypes(kept);
    addOthers(kept);
    addChanges(kept, inSharing);
    addRanges(kept);
    addImages(kept);
    return kept;
}

} // namespace

void drawKeptScene(void (*inSharing)(void (*change)()))
{
    static const Kept kept = makeKept(inSharing);
    cell = 0;
    glGetFloatv(GL_MODELVIEW_MATRIX, origin);
    glEnable(GL_LIGHT0);
    glEnable(GL_COLOR_MATERIAL);
    glShadeModel(GL_SMOOTH);
    glPointSize(6);
    for (const auto& draw : kept.cells) {
        const Cell place;
        glColor4f(1, 0.8F, 0.2F, 1);
        glNormal3f(0, 0.6F, 0.8F);
        glTexCoord2f(0.75F, 0.25F);
        glSecondaryColor3f(0.4F, 0, 0.4F);
        glFogCoordf(0.3F);
        glEnableClientState(GL_VERTEX_ARRAY);
        positionsFrom(kept.positions);
        glBindBuffer(GL_ARRAY_BUFFER, kept.colors);
        glColorPointer(4, GL_FLOAT, 0, at(0));
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, kept.indexList);
        draw();
        glDisable(GL_LIGHTING);
        for (const GLenum array : {GL_COLOR_ARRAY, GL_NORMAL_ARRAY, GL_FOG_COORD_ARRAY,
                                   GL_SECONDARY_COLOR_ARRAY, GL_EDGE_FLAG_ARRAY, GL_VERTEX_ARRAY})
            glDisableClientState(array);
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

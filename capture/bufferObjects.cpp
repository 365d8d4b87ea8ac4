// Buffer objects: their contents are kept here, and read as arrays by the draws.
#include "capture/contexts.h"
#include "capture/entries.h"

#include <cstring>
#include <string>

namespace {

ClientVertexState& client() { return currentContext().client.now; }

GLuint* boundBuffer(GLenum target)
{
    return target == GL_ARRAY_BUFFER           ? &client().arrayBuffer
           : target == GL_ELEMENT_ARRAY_BUFFER ? &client().elementBuffer
                                               : nullptr;
}

// The contents of the buffer that is bound, or null.
BufferObject* boundObject(GLenum target)
{
    if (currentContext().asPicture)
        return nullptr;
    const GLuint* name = boundBuffer(target);
    return name && *name ? &bufferObject(*name) : nullptr;
}

void bindBuffer(GLenum target, GLuint buffer)
{
    static auto* const native =
        reinterpret_cast<decltype(&glBindBuffer)>(nativeByName("glBindBuffer"));
    if (GLuint* bound = boundBuffer(target))
        *bound = buffer;
    native(target, buffer);
}

void bufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage)
{
    static auto* const native =
        reinterpret_cast<decltype(&glBufferData)>(nativeByName("glBufferData"));
    if (BufferObject* object = boundObject(target); object && size >= 0) {
        object->bytes.assign(static_cast<std::size_t>(size), 0);
        if (data)
            std::memcpy(object->bytes.data(), data, static_cast<std::size_t>(size));
    }
    native(target, size, data, usage);
}

void bufferSubData(GLenum target, GLintptr offset, GLsizeiptr size, const void* data)
{
    static auto* const native =
        reinterpret_cast<decltype(&glBufferSubData)>(nativeByName("glBufferSubData"));
    if (BufferObject* object = boundObject(target);
        object && offset >= 0 && size > 0 &&
        static_cast<std::size_t>(offset + size) <= object->bytes.size())
        std::memcpy(object->bytes.data() + offset, data, static_cast<std::size_t>(size));
    native(target, offset, size, data);
}

// The program gets the client's own copy, and OpenGL what it has made of it.
void* mapBuffer(GLenum target, GLenum access)
{
    static auto* const native =
        reinterpret_cast<decltype(&glMapBuffer)>(nativeByName("glMapBuffer"));
    BufferObject* object = boundObject(target);
    if (!object)
        return native(target, access);
    object->writes = access != GL_READ_ONLY;
    return object->bytes.data();
}

GLboolean unmapBuffer(GLenum target)
{
    static auto* const native =
        reinterpret_cast<decltype(&glUnmapBuffer)>(nativeByName("glUnmapBuffer"));
    static auto* const write =
        reinterpret_cast<decltype(&glBufferSubData)>(nativeByName("glBufferSubData"));
    BufferObject* object = boundObject(target);
    if (!object)
        return native(target);
    if (object->writes)
        write(target, 0, static_cast<GLsizeiptr>(object->bytes.size()), object->bytes.data());
    object->writes = false;
    return GL_TRUE;
}

void deleteBuffers(GLsizei n, const GLuint* buffers)
{
    static auto* const native =
        reinterpret_cast<decltype(&glDeleteBuffers)>(nativeByName("glDeleteBuffers"));
    for (int i = 0; i < n; ++i) {
        deleteBufferObject(buffers[i]);
        for (GLuint* bound : {&client().arrayBuffer, &client().elementBuffer})
            if (*bound == buffers[i])
                *bound = 0;
    }
    native(n, buffers);
}

} // namespace

void installBufferObjects()
{
    for (const char* suffix : {"", "ARB"}) {
        const auto name = [suffix](const char* stem) { return std::string(stem) + suffix; };
        install(name("glBindBuffer"), bindBuffer);
        install(name("glBufferData"), bufferData);
        install(name("glBufferSubData"), bufferSubData);
        install(name("glMapBuffer"), mapBuffer);
        install(name("glUnmapBuffer"), unmapBuffer);
        install(name("glDeleteBuffers"), deleteBuffers);
        for (const char* nodesOwn :
             {"glGenBuffers", "glIsBuffer", "glGetBufferSubData", "glGetBufferParameteriv",
              "glGetBufferPointerv", "glGenQueries", "glDeleteQueries", "glIsQuery", "glBeginQuery",
              "glEndQuery", "glGetQueryiv", "glGetQueryObjectiv", "glGetQueryObjectuiv"})
            install(name(nodesOwn), NativeEntry{});
    }
}

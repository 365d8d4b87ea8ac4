// Buffer objects: their contents are kept here, and read as arrays and images by what uses them.
// The library's own mappings are handed out; what was written there is taken when they end. What
// changes contents in other ways is only counted: they are read back when they are used next.
#include "capture/bufferObjects.h"
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/locks.h"
#include "capture/shareGroup.h"

#include <cstring>
#include <string>

namespace {

// The library's own function, found when first called.
template <class F>
F* nodes(const char* name)
{
    return reinterpret_cast<F*>(nativeByName(name));
}
#define NODES(name)                                                                                \
    ([] {                                                                                          \
        static auto* const function = nodes<decltype(::name)>(#name);                              \
        return function;                                                                           \
    }())

ClientVertexState& client() { return currentContext().client.now; }

std::uint64_t nextVersion()
{
    static constinit std::atomic<std::uint64_t> latest = 0;
    return ++latest;
}

// The contents are others, or nobody's any more.
void hasChanged(BufferObject& object)
{
    object.version = nextVersion();
    if (object.isKept.exchange(false))
        ++currentContext().group->keptDraws.changes;
}

// The buffer object of a name in the current share group, made if need be; null for 0.
BufferPointer bufferObject(GLuint name)
{
    if (!hasContext() || name == 0)
        return {};
    ShareGroup& group = *currentContext().group;
    const std::lock_guard lock(buffersLock);
    BufferPointer& object = group.buffers[name];
    if (!object) {
        object = std::make_shared<BufferObject>();
        object->name = name;
        object->version = nextVersion();
        object->readAt = group.unseenChanges - (group.unseenChanges > 0);
    }
    return object;
}

void deleteBufferObject(GLuint name)
{
    if (!hasContext())
        return;
    ShareGroup& group = *currentContext().group;
    const std::lock_guard lock(buffersLock);
    if (const auto found = group.buffers.find(name); found != group.buffers.end()) {
        found->second->name = 0;
        hasChanged(*found->second);
        group.buffers.erase(found);
    }
}

// True, and from then on not until the next unseen change, where contents have to be read back.
bool mustReadBack(BufferObject& object)
{
    if (!hasContext() || object.name == 0)
        return false;
    const std::uint64_t changes = currentContext().group->unseenChanges;
    if (object.readAt == changes && !object.alwaysChanging)
        return false;
    object.readAt = changes;
    return true;
}

BufferPointer* boundBuffer(GLenum target)
{
    switch (target) {
    case GL_ARRAY_BUFFER:
        return &client().arrayBuffer;
    case GL_ELEMENT_ARRAY_BUFFER:
        return &client().elementBuffer;
    case GL_PIXEL_UNPACK_BUFFER:
        return &currentContext().client.unpackBuffer;
    default:
        return nullptr;
    }
}

// The object that is bound to a target whose contents are followed, or null.
BufferObject* boundObject(GLenum target)
{
    if (currentContext().asPicture)
        return nullptr;
    const BufferPointer* bound = boundBuffer(target);
    return bound ? bound->get() : nullptr;
}

GLint sizeOf(GLenum target)
{
    GLint size = -1;
    NODES(glGetBufferParameteriv)(target, GL_BUFFER_SIZE, &size);
    return size;
}

void bindBuffer(GLenum target, GLuint buffer)
{
    NODES(glBindBuffer)(target, buffer);
    if (canAsk())
        if (BufferPointer* bound = boundBuffer(target))
            *bound = bufferObject(buffer);
}

// New contents of the bound object, if the library has taken them.
void keepData(GLenum target, GLsizeiptr size, const void* data)
{
    BufferObject* const object = canAsk() ? boundObject(target) : nullptr;
    if (!object) {
        noteBuffersChanged(); // perhaps one that is bound elsewhere, too
        return;
    }
    if (size < 0 || sizeOf(target) != size)
        return;
    object->mapped = nullptr;
    hasChanged(*object);
    object->bytes.assign(static_cast<std::size_t>(size), 0);
    if (data && size > 0)
        std::memcpy(object->bytes.data(), data, static_cast<std::size_t>(size));
}

void bufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage)
{
    NODES(glBufferData)(target, size, data, usage);
    keepData(target, size, data);
}

void bufferStorage(GLenum target, GLsizeiptr size, const void* data, GLbitfield flags)
{
    NODES(glBufferStorage)(target, size, data, flags);
    keepData(target, size, data);
}

void bufferSubData(GLenum target, GLintptr offset, GLsizeiptr size, const void* data)
{
    NODES(glBufferSubData)(target, offset, size, data);
    BufferObject* const object = canAsk() ? boundObject(target) : nullptr;
    if (!object)
        noteBuffersChanged();
    else if (const auto room = static_cast<GLsizeiptr>(object->bytes.size());
             offset >= 0 && size > 0 && offset <= room && size <= room - offset && data &&
             !object->mapped) {
        std::memcpy(object->bytes.data() + offset, data, static_cast<std::size_t>(size));
        hasChanged(*object);
    }
}

void noteMapping(GLenum target, const void* mapped, GLintptr at, GLsizeiptr bytes, bool writes,
                 bool forGood)
{
    BufferObject* const object = boundObject(target);
    if (!mapped)
        return;
    if (!object) {
        noteBuffersChanged();
        return;
    }
    object->alwaysChanging |= forGood;
    if (writes) {
        object->mapped = mapped;
        object->mappedAt = static_cast<std::size_t>(at);
        object->mappedBytes = static_cast<std::size_t>(bytes);
    }
}

void* mapBuffer(GLenum target, GLenum access)
{
    void* const mapped = NODES(glMapBuffer)(target, access);
    if (mapped)
        noteMapping(target, mapped, 0, sizeOf(target), access != GL_READ_ONLY, false);
    return mapped;
}

void* mapBufferRange(GLenum target, GLintptr offset, GLsizeiptr length, GLbitfield access)
{
    void* const mapped = NODES(glMapBufferRange)(target, offset, length, access);
    noteMapping(target, mapped, offset, length, (access & GL_MAP_WRITE_BIT) != 0,
                (access & GL_MAP_PERSISTENT_BIT) != 0);
    return mapped;
}

GLboolean unmapBuffer(GLenum target)
{
    if (BufferObject* const object = boundObject(target); object && object->mapped) {
        const std::size_t room = object->bytes.size();
        if (object->mappedAt <= room && object->mappedBytes <= room - object->mappedAt)
            std::memcpy(object->bytes.data() + object->mappedAt, object->mapped,
                        object->mappedBytes);
        object->mapped = nullptr;
        hasChanged(*object);
    } else if (!object)
        noteBuffersChanged();
    return NODES(glUnmapBuffer)(target);
}

void deleteBuffers(GLsizei n, const GLuint* buffers)
{
    NODES(glDeleteBuffers)(n, buffers);
    if (!canAsk())
        return;
    for (int i = 0; i < n; ++i) {
        for (const GLenum target :
             {GL_ARRAY_BUFFER, GL_ELEMENT_ARRAY_BUFFER, GL_PIXEL_UNPACK_BUFFER})
            if (BufferPointer* bound = boundBuffer(target);
                *bound && buffers[i] != 0 && (*bound)->name == buffers[i])
                bound->reset();
        deleteBufferObject(buffers[i]);
    }
}

} // namespace

void noteBuffersChanged()
{
    if (!hasContext())
        return;
    ++currentContext().group->unseenChanges;
}

const std::vector<unsigned char>& contentsOf(const BufferPointer& object)
{
    if (canAsk() && mustReadBack(*object)) {
        const GLuint bound = client().arrayBuffer ? client().arrayBuffer->name : 0;
        tell(Reason::readBack);
        NODES(glBindBuffer)(GL_ARRAY_BUFFER, object->name);
        const GLint size = sizeOf(GL_ARRAY_BUFFER);
        std::vector<unsigned char> now(size > 0 ? static_cast<std::size_t>(size) : 0);
        if (size > 0)
            NODES(glGetBufferSubData)(GL_ARRAY_BUFFER, 0, size, now.data());
        if (now != object->bytes) {
            object->bytes = std::move(now);
            hasChanged(*object);
        }
        NODES(glBindBuffer)(GL_ARRAY_BUFFER, bound);
    }
    return object->bytes;
}

const void* unpackSource(const void* pointer, std::int64_t bytes)
{
    const BufferPointer& buffer = currentContext().client.unpackBuffer;
    if (!buffer)
        return pointer;
    const std::vector<unsigned char>& contents = contentsOf(buffer);
    const auto offset = reinterpret_cast<std::uintptr_t>(pointer);
    const auto wanted = static_cast<std::uint64_t>(bytes);
    if (bytes >= 0 && offset <= contents.size() && wanted <= contents.size() - offset)
        return contents.data() + offset;
    tell(Reason::beyondBuffer);
    return nullptr;
}

void installBufferObjects()
{
    const auto install = []<auto * entry>(const char* core, const char* extension)
    {
        installOther<entry>(core);
        installOther<entry>(extension);
    };
#define WITH_ARB(name, entry) install.operator()<entry>(name, name "ARB")
    WITH_ARB("glBindBuffer", bindBuffer);
    WITH_ARB("glBufferData", bufferData);
    WITH_ARB("glBufferSubData", bufferSubData);
    WITH_ARB("glMapBuffer", mapBuffer);
    WITH_ARB("glUnmapBuffer", unmapBuffer);
    WITH_ARB("glDeleteBuffers", deleteBuffers);
    installOther<bufferStorage>("glBufferStorage");
    installOther<mapBufferRange>("glMapBufferRange");
    for (const std::string name :
         {"glGenBuffers", "glIsBuffer", "glGetBufferSubData", "glGetBufferParameteriv",
          "glGetBufferPointerv", "glGenQueries", "glDeleteQueries", "glIsQuery", "glBeginQuery",
          "glEndQuery", "glGetQueryiv", "glGetQueryObjectiv", "glGetQueryObjectuiv"}) {
        installOther(name.c_str());
        installOther((name + "ARB").c_str());
    }
}

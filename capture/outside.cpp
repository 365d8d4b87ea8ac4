#include "capture/outside.h"

namespace {

struct Row {
    std::string_view begins; // the name, or its beginning where it ends with a star
    OutsideRow row;
};

// The first that fits counts.
constexpr Row rows[] = {
    {"glGet*", {Outside::harmless}},
    {"glIs*", {Outside::harmless}},
    {"glGen*Mipmap*", {Outside::beyondCalls}},
    {"glGenerate*", {Outside::beyondCalls}},
    {"glGen*", {Outside::harmless}},
    {"glDelete*", {Outside::harmless}},
    {"glCheck*", {Outside::harmless}},
    {"glDebug*", {Outside::harmless}},
    {"glObject*Label", {Outside::harmless}},
    {"glPushDebugGroup", {Outside::harmless}},
    {"glPopDebugGroup", {Outside::harmless}},
    {"glPushGroupMarkerEXT", {Outside::harmless}},
    {"glPopGroupMarkerEXT", {Outside::harmless}},
    {"glInsertEventMarkerEXT", {Outside::harmless}},
    {"glStringMarkerGREMEDY", {Outside::harmless}},
    {"glFenceSync", {Outside::harmless}},
    {"glClientWaitSync", {Outside::harmless}},
    {"glWaitSync", {Outside::harmless}},
    {"glSetFence*", {Outside::harmless}},
    {"glTestFence*", {Outside::harmless}},
    {"glFinishFence*", {Outside::harmless}},
    {"glBeginQuery*", {Outside::harmless}},
    {"glEndQuery*", {Outside::harmless}},
    {"glQueryCounter*", {Outside::harmless}},
    {"glReadnPixels*", {Outside::changesBuffers}}, // where one is bound for it
    {"glReleaseShaderCompiler", {Outside::harmless}},
    {"glHint*", {Outside::harmless}},
    {"glMemoryBarrier*", {Outside::harmless}},
    {"glFlushMappedBufferRange*", {Outside::harmless}},
    {"glFlushMappedNamedBufferRange*", {Outside::harmless}},
    {"glBindBufferBase*", {Outside::harmless}},
    {"glBindBufferRange*", {Outside::harmless}},
    {"glDrawBuffers*", {Outside::harmless}},
    {"glClampColor*", {Outside::harmless}},
    {"glProvokingVertex*", {Outside::harmless}},

    {"glCopyBufferSubData*", {Outside::changesBuffers}},
    {"glClearBufferData*", {Outside::changesBuffers}},
    {"glClearBufferSubData*", {Outside::changesBuffers}},
    {"glInvalidateBuffer*", {Outside::changesBuffers}},
    {"glCreateBuffers", {Outside::harmless}},
    {"glNamedBuffer*", {Outside::changesBuffers}},
    {"glNamedCopyBuffer*", {Outside::changesBuffers}},
    {"glCopyNamedBuffer*", {Outside::changesBuffers}},
    {"glClearNamedBuffer*", {Outside::changesBuffers}},
    {"glMapNamedBuffer*", {Outside::changesBuffers}},
    {"glUnmapNamedBuffer*", {Outside::changesBuffers}},
    {"glEndTransformFeedback*", {Outside::changesBuffers}},

    {"glUseProgram", {Outside::unlessZero, 0}},
    {"glUseProgramObjectARB", {Outside::unlessZero, 0}},
    {"glBindVertexArray*", {Outside::unlessZero, 0}},
    {"glBindProgramPipeline*", {Outside::unlessZero, 0}},
    {"glBindSampler", {Outside::unlessZero, 1}},
    {"glBindFramebuffer*", {Outside::unlessZero, 1}},
    {"glBindRenderbuffer*", {Outside::harmless}}, // it is drawn into by a framebuffer object only
    {"glRenderbufferStorage*", {Outside::harmless}},
    {"glBindTransformFeedback*", {Outside::unlessZero, 1}},
    {"glPrimitiveRestartIndex*", {Outside::harmless}},
    {"glVertexAttribDivisor*", {Outside::unlessZero, 1}},
};

// Whether a name fits a pattern with stars.
constexpr bool fits(std::string_view name, std::string_view pattern)
{
    const std::size_t star = pattern.find('*');
    if (star == pattern.npos)
        return name == pattern;
    if (!name.starts_with(pattern.substr(0, star)))
        return false;
    const std::string_view rest = pattern.substr(star + 1);
    if (rest.empty())
        return true;
    for (std::size_t at = star; at <= name.size(); ++at)
        if (fits(name.substr(at), rest))
            return true;
    return false;
}

} // namespace

OutsideRow outsideOf(std::string_view name)
{
    for (const Row& row : rows)
        if (fits(name, row.begins))
            return row.row;
    return {};
}

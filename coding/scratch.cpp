#include "coding/buffer.h"
#include "coding/invariant.h"

#include <cstdlib>
#include <limits>
#include <string>

// In the order of the kinds.
constinit ScratchBuffer scratchBuffers[memoryKinds] = {
    {.name = "none"},   {.name = "vBuf"},     {.name = "nBuf"},   {.name = "cBuf"},
    {.name = "iBuf"},   {.name = "tBuf"},     {.name = "eBuf"},   {.name = "fBuf"},
    {.name = "scBuf"},  {.name = "wBuf"},     {.name = "mIbuf"},  {.name = "vAbuf"},
    {.name = "lists"},  {.name = "points"},   {.name = "points"}, {.name = "points"},
    {.name = "points"}, {.name = "feedback"},
};

namespace {

char* allocate(int bytes)
{
    return static_cast<char*>(std::malloc(static_cast<std::size_t>(bytes)));
}

// Feedback memory is OpenGL's to write to until a later call is accepted, and no one hears whether
// it was: it is not while a context's render mode is GL_FEEDBACK. So the block before stays. A new
// one is at least twice as large: all together take no more than twice the largest.
char* besideOutgrown(ScratchBuffer& scratch, int& bytes)
{
    if (scratch.data)
        scratch.outgrown.push_back(scratch.data);
    const int doubled = scratch.size <= std::numeric_limits<int>::max() / 2 ? 2 * scratch.size : 0;
    if (doubled > bytes)
        if (char* block = allocate(doubled)) {
            bytes = doubled;
            return block;
        }
    return allocate(bytes);
}

} // namespace

char* reserve(Memory kind, int bytes, const char* operation)
{
    ScratchBuffer& scratch = scratchOf(kind);
    if (bytes > scratch.size) {
        if (kind == Memory::feedback)
            scratch.data = besideOutgrown(scratch, bytes);
        else {
            std::free(scratch.data);
            scratch.data = allocate(bytes);
        }
        if (!scratch.data)
            invariantFailed(scratch.name, ("coding/" + std::string(operation) + "_decode").c_str(),
                            __LINE__, ("_" + std::string(operation)).c_str());
        scratch.size = bytes;
    }
    return scratch.data;
}

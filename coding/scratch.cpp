#include "coding/buffer.h"
#include "coding/clientMemory.h"
#include "coding/invariant.h"

#include <cstdlib>
#include <limits>
#include <string>

#include <sys/mman.h>

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

constexpr bool isClientArray(Memory kind)
{
    return kind >= Memory::vertex && kind <= Memory::vertexAttrib;
}

// Addresses for as large an array as can arrive, with elements as large as the library may take
// them for. They can only be read, so that they count for no memory where the system keeps account
// of it. Where so many are not to be had, enough for this array, and one that outgrows them begins
// anew elsewhere.
void setAside(ScratchBuffer& scratch, Memory kind, int bytes)
{
    constexpr std::int64_t most = std::int64_t{64} << 30;
    constexpr std::int64_t largestElement = 32;
    if (scratch.room > 0)
        clientMemory::forgetArrays(kind);
    scratch.data = nullptr;
    for (const std::int64_t room : {most, largestElement * bytes}) {
        void* const addresses = mmap(nullptr, static_cast<std::size_t>(room), PROT_READ,
                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (addresses == MAP_FAILED)
            continue;
        scratch.room = room;
        scratch.data = static_cast<char*>(addresses);
        return;
    }
}

// The memory of a client array, of which so many bytes are to be written.
void growArray(ScratchBuffer& scratch, Memory kind, int bytes)
{
    if (bytes > scratch.room)
        setAside(scratch, kind, bytes);
    if (scratch.data &&
        mprotect(scratch.data, static_cast<std::size_t>(bytes), PROT_READ | PROT_WRITE) != 0)
        scratch.data = nullptr;
}

} // namespace

char* reserve(Memory kind, int bytes, const char* operation)
{
    ScratchBuffer& scratch = scratchOf(kind);
    if (bytes > scratch.size) {
        if (kind == Memory::feedback)
            scratch.data = besideOutgrown(scratch, bytes);
        else if (isClientArray(kind))
            growArray(scratch, kind, bytes);
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

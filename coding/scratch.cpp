#include "coding/buffer.h"
#include "coding/clientMemory.h"
#include "coding/decoder.h"
#include "coding/invariant.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include <sys/mman.h>
#include <sys/resource.h>

char *vBuf, *nBuf, *cBuf, *iBuf, *tBuf, *eBuf, *fBuf, *scBuf, *wBuf, *mIbuf, *vAbuf;
int vBufSz, nBufSz, cBufSz, iBufSz, tBufSz, eBufSz, fBufSz, scBufSz, wBufSz, mIbufSz, vAbufSz;

namespace {

[[noreturn]] void outOfMemory(const char* buffer, const char* operation)
{
    invariantFailed(buffer, ("coding/" + std::string(operation) + "_decode").c_str(), __LINE__,
                    ("_" + std::string(operation)).c_str());
}

// ---- Client arrays -----------------------------------------------------------------------------

struct ArrayMemory {
    const char* name;
    char** data;
    int* size;
    int largestElement = 4 * sizeof(double); // bytes that a library may take an element for
    std::int64_t room = 0;                   // bytes of addresses from data on
    std::vector<char*> outgrown{};
};

constexpr int manyValues = 32 * sizeof(double); // of kinds without a limit of four
ArrayMemory arrays[] = {
    // in the order of the kinds
    {"vBuf", &vBuf, &vBufSz},
    {"nBuf", &nBuf, &nBufSz},
    {"cBuf", &cBuf, &cBufSz},
    {"iBuf", &iBuf, &iBufSz},
    {"tBuf", &tBuf, &tBufSz},
    {"eBuf", &eBuf, &eBufSz},
    {"fBuf", &fBuf, &fBufSz},
    {"scBuf", &scBuf, &scBufSz},
    {"wBuf", &wBuf, &wBufSz, manyValues},
    {"mIbuf", &mIbuf, &mIbufSz, manyValues},
    {"vAbuf", &vAbuf, &vAbufSz},
};
static_assert(std::size(arrays) ==
              static_cast<int>(Memory::vertexAttrib) - static_cast<int>(Memory::vertex) + 1);

ArrayMemory& arrayOf(Memory kind)
{
    return arrays[static_cast<int>(kind) - static_cast<int>(Memory::vertex)];
}

std::int64_t mostElements; // of the largest array that has arrived

std::int64_t roomFor(const ArrayMemory& array, std::int64_t elements)
{
    return std::max<std::int64_t>(elements, 1) * array.largestElement;
}

// Addresses for every index there is, or a modest part of those that the process may have.
std::int64_t wantedRoom(const ArrayMemory& array)
{
    constexpr rlim_t shares = 64;
    constexpr std::int64_t indices = std::int64_t{1} << 32;
    const std::int64_t all = roomFor(array, indices);
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return all;
    return std::min(all, static_cast<std::int64_t>(limit.rlim_cur / shares));
}

// Sets addresses aside, half as many where so many are not to be had, but enough for `least` bytes.
// They can only be read, so that they count for no memory where the system keeps account of it.
// There are some below, too: a library may compute an element's offset in 32 bits.
bool setAside(ArrayMemory& array, std::int64_t least)
{
    constexpr std::int64_t page = 1 << 16; // a multiple of any
    constexpr std::int64_t signedOffsets = std::int64_t{1} << 31;
    const auto wholePages = [](std::int64_t bytes) { return (bytes + page - 1) / page * page; };
    for (std::int64_t room = std::max(wantedRoom(array), least);;
         room = std::max(room / 2, least)) {
        const std::int64_t below = wholePages(std::min(signedOffsets, room / 64));
        void* const addresses = mmap(nullptr, static_cast<std::size_t>(below + wholePages(room)),
                                     PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (addresses != MAP_FAILED) {
            *array.data = static_cast<char*>(addresses) + below;
            array.room = wholePages(room);
            return true;
        }
        if (room <= least)
            return false;
    }
}

bool makeWritable(const ArrayMemory& array, int bytes)
{
    return mprotect(*array.data, static_cast<std::size_t>(bytes), PROT_READ | PROT_WRITE) == 0;
}

// Makes room for `least` bytes. Memory that already has addresses moves to others only where the
// process may have few. What OpenGL was told stays readable, and the contexts are asked.
bool extend(Memory kind, std::int64_t least)
{
    ArrayMemory& array = arrayOf(kind);
    if (least <= array.room)
        return true;
    char* const old = *array.data;
    if (!setAside(array, least))
        return false;
    if (old) {
        if (!makeWritable(array, *array.size))
            return false;
        std::copy_n(old, *array.size, *array.data);
        array.outgrown.push_back(old);
        clientMemory::noteMoved(kind);
    }
    return true;
}

// Every kind in use is to hold as many elements as the largest array, for all may be enabled.
void followLargest(std::int64_t elements)
{
    mostElements = elements;
    for (int i = 0; i < std::ssize(arrays); ++i)
        if (*arrays[i].data)
            extend(static_cast<Memory>(static_cast<int>(Memory::vertex) + i),
                   roomFor(arrays[i], elements));
    clientMemory::noteReach();
}

// ---- What a later record uses again ------------------------------------------------------------

// In the order of the kinds.
ScratchBuffer scratchBuffers[] = {
    {.name = "lists"},  {.name = "points"}, {.name = "points"},
    {.name = "points"}, {.name = "points"}, {.name = "feedback"},
};
static_assert(std::size(scratchBuffers) ==
              static_cast<int>(Memory::feedback) - static_cast<int>(Memory::listNames) + 1);

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

// Makes a buffer hold `bytes` bytes, and those that arrived before.
void grow(Memory kind, int bytes, const char* operation)
{
    ScratchBuffer& scratch = scratchOf(kind);
    if (bytes <= scratch.size)
        return;
    char* const block =
        kind == Memory::feedback
            ? besideOutgrown(scratch, bytes)
            : static_cast<char*>(std::realloc(scratch.data, static_cast<std::size_t>(bytes)));
    if (!block)
        outOfMemory(scratch.name, operation);
    scratch.data = block;
    scratch.size = bytes;
}

} // namespace

char* keepArray(Memory kind, const char* data, int bytes, int count, const char* operation)
{
    ArrayMemory& array = arrayOf(kind);
    if (bytes > *array.size) {
        const std::int64_t wanted = std::max<std::int64_t>(bytes, roomFor(array, mostElements));
        if (!(extend(kind, wanted) || extend(kind, bytes)) || !makeWritable(array, bytes))
            outOfMemory(array.name, operation);
        *array.size = bytes;
        clientMemory::noteReach();
    }
    if (bytes > 0)
        std::copy_n(data, bytes, *array.data);
    if (std::min(count, bytes) > mostElements) // elements of no bytes are none
        followLargest(count);
    return *array.data;
}

char* arrayMemory(Memory kind) { return *arrayOf(kind).data; }

char* zerosFor(Memory kind)
{
    const ArrayMemory& array = arrayOf(kind);
    if (!*array.data && (extend(kind, roomFor(array, mostElements)) || extend(kind, 1)))
        clientMemory::noteReach();
    return *array.data;
}

std::int64_t elementsInReach()
{
    constexpr std::int64_t farBehind = 1 << 24;
    std::int64_t reach = mostElements + farBehind;
    for (const ArrayMemory& array : arrays)
        if (*array.data)
            reach = std::min(reach, array.room / array.largestElement);
    return reach;
}

bool hasMoved(Memory kind, const void* address)
{
    return std::ranges::find(arrayOf(kind).outgrown, address) != arrayOf(kind).outgrown.end();
}

ScratchBuffer& scratchOf(Memory kind)
{
    return scratchBuffers[static_cast<int>(kind) - static_cast<int>(Memory::listNames)];
}

char* keepData(Memory kind, const char* data, int bytes, const char* operation)
{
    grow(kind, bytes, operation);
    ScratchBuffer& scratch = scratchOf(kind);
    if (bytes > 0)
        std::copy_n(data, bytes, scratch.data);
    scratch.arrived = bytes;
    return scratch.data;
}

Supplied keptData(Memory kind, std::int64_t needed, const char* operation)
{
    grow(kind, 1, operation); // never null
    const ScratchBuffer& scratch = scratchOf(kind);
    return supply(operation, scratch.data, scratch.arrived, needed);
}

// ---- What one operation reads ------------------------------------------------------------------

namespace {

Supplied withZeros(const char* data, std::int64_t arrived, std::int64_t needed)
{
    char* const copy = static_cast<char*>(std::calloc(static_cast<std::size_t>(needed), 1));
    if (copy)
        std::copy_n(data, arrived, copy);
    return {copy, std::unique_ptr<char, Supplied::Freed>(copy)};
}

} // namespace

Supplied supply(const char* operation, char* data, std::int64_t arrived, std::int64_t needed)
{
    constexpr std::int64_t mostZeros = std::int64_t{1} << 30;
    if (needed <= arrived) [[likely]]
        return {data};
    Supplied supplied{};
    if (needed - arrived <= mostZeros)
        supplied = withZeros(data, arrived, needed);
    if (!supplied.at)
        std::fprintf(stderr,
                     "Attention MOSA: %s: %lld bytes are needed, %lld arrived: too many to add\n",
                     operation, static_cast<long long>(needed), static_cast<long long>(arrived));
    return supplied;
}

Supplied supplyValues(char* data, std::int64_t needed)
{
    const std::int64_t left = std::max<std::int64_t>(reinterpret_cast<char*>(be) - data, 0);
    return left >= needed ? Supplied{data} : withZeros(data, left, needed);
}

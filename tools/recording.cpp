#include "tools/recording.h"
#include "wire/operations.h"

#include <algorithm>

namespace {

// Looks for the record that shows a window on the wall. Where records end a damaged one hides, as
// from the servers.
Size windowIn(char* at, const char* end)
{
    while (end - at >= opcodeBytes) {
        const int opcode = load<std::uint16_t>(at);
        at += opcodeBytes;
        if (opcode >= operationCount || !blockFits(recordExtents[opcode], at, end - at))
            break;
        if (opcode == indexOf(Op::glXMakeCurrent)) {
            MakeCurrentBlock block;
            loadBlock(at, block);
            if (block.width > 0 && block.height > 0)
                return {block.width, block.height};
        }
        at += blockBytes(recordExtents[opcode], at);
    }
    return {};
}

} // namespace

Size programWindow(const StreamFile& stream)
{
    // The fields of a block may be written to; those of this one are only read.
    char* const bytes = const_cast<char*>(reinterpret_cast<const char*>(stream.bytes.data()));
    for (const auto& [offset, hdr] : stream.buffers)
        if (const Size window = windowIn(bytes + offset, bytes + offset + hdr.size); window.w)
            return window;
    return {};
}

int frameCount(const StreamFile& stream)
{
    return static_cast<int>(std::ranges::count_if(
        stream.buffers, [](const StreamBuffer& buffer) { return buffer.hdr.sync != 0; }));
}

#include "client/usedHandles.h"
#include "client/programWindow.h"
#include "wire/operations.h"

#include <algorithm>

namespace {

constexpr std::uint32_t mostHandles = 1 << 20; // no library goes as far

void note(UsedHandles& used, std::uint32_t handle)
{
    used.greatest =
        std::max(used.greatest, static_cast<std::int32_t>(std::min(handle, mostHandles)));
}

// True when there may be more behind it.
bool noteRecord(UsedHandles& used, Op op, char* at)
{
    switch (op) {
    case Op::glXChooseVisual: {
        ChooseVisualBlock block;
        loadBlock(at, block);
        note(used, block.visual.number);
        return true;
    }
    case Op::glXCreateContext: {
        CreateContextBlock block;
        loadBlock(at, block);
        note(used, block.ctx.number);
        used.contexts.push_back(block.ctx);
        return true;
    }
    case Op::glXMakeCurrent: {
        MakeCurrentBlock block;
        loadBlock(at, block);
        note(used, block.drawable.number);
        return true;
    }
    default:
        return false;
    }
}

} // namespace

void noteHandles(UsedHandles& used, std::span<const unsigned char> buffer)
{
    // The fields of a block may be written to; those of these are only read.
    char* at = const_cast<char*>(reinterpret_cast<const char*>(buffer.data()));
    const char* const end = at + buffer.size();
    while (end - at >= opcodeBytes) {
        const int opcode = load<std::uint16_t>(at);
        at += opcodeBytes;
        if (opcode >= operationCount || !blockFits(recordExtents[opcode], at, end - at) ||
            !noteRecord(used, Op{static_cast<std::uint16_t>(opcode)}, at))
            return;
        at += blockBytes(recordExtents[opcode], at);
    }
}

void encodeGivingBack(CommandBuffer& out, UsedHandles& used)
{
    for (const AppContext context : used.contexts)
        encode<Op::glXDestroyContext>(out, asParameter<Display*>(capturedDisplay),
                                      asParameter<GLXContext>(context));
    used.contexts.clear();
}

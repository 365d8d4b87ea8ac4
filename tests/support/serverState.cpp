#include "support/serverState.h"
#include "coding/decoder.h"
#include "shuffle/mw.h"

#include <algorithm>
#include <memory>

// The process's globals, which the server's main program has otherwise.
int nClients, nServers, serverID, vtl_mpi_task_number;
int syncOnSwap, swapOnRetrace;
std::atomic<int> done;

namespace {

LocalDisplay tileDisplay;

template <class Record, std::size_t n>
void clear(Record (&table)[n], int& count)
{
    std::fill_n(table, n, Record{});
    count = 0;
}

} // namespace

void startWithoutOverloads()
{
    resetRecorder();
    clear(LocalContextTable, nContexts);
    clear(LocalVisualTable, nVisualInfos);
    clear(LocalDrawableTable, nDrawables);
    clear(LocalFBConfigTable, nFBConfigs);
    clear(LocalPbufferTable, nPbuffers);
    clear(LocalVertexArrayRangeTable, nVertexArrayRanges);
    clear(LocalProgramTable, nPrograms);
    clear(LocalTextureIDTable, nTextureIDs);
    currDrawableInfo = nullptr;
    currLocalDisplay = nullptr;
    currAppWidth = currAppHeight = glV_currAppWidth = glV_currAppHeight = updateScalingNeeded = 0;
    keep_aspect_ratio = firsttime = 1;
    serverID = swapOnRetrace = xx = 0;
    std::ranges::copy(recordingTable, glOpTable);
}

void startServer()
{
    startWithoutOverloads();
    Overload(glOpTable);
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    return out << "result " << outcome.result << "\ncalls:\n"
               << outcome.calls << "messages:\n"
               << outcome.messages;
}

int walk(const Bytes& buffer)
{
    const std::unique_ptr<unsigned char[]> memory(new unsigned char[buffer.size() + 1]);
    std::ranges::copy(buffer, memory.get() + 1);
    return decoder(memory.get() + 1, static_cast<int>(buffer.size()));
}

Outcome run(const Bytes& buffer)
{
    recorder.calls.clear();
    testing::internal::CaptureStderr();
    Outcome outcome{};
    outcome.result = walk(buffer);
    outcome.messages = testing::internal::GetCapturedStderr();
    outcome.calls = takeCalls();
    return outcome;
}

LocalContextInfo& makeTileCurrent(MWRect tile, int W, int H, float scale)
{
    const auto wide = static_cast<float>(W);
    const auto high = static_cast<float>(H);
    tileDisplay = {};
    tileDisplay.vWidth = truncate(scale * wide);
    tileDisplay.vHeight = truncate(scale * high);
    tileDisplay.rect = tile;
    currLocalDisplay = &tileDisplay;
    currAppWidth = W;
    currAppHeight = H;

    LocalContextInfo& context = LocalContextTable[nContexts++];
    lctxInitAttrStack(&context);
    LocalDrawableInfo& drawable = LocalDrawableTable[nDrawables++];
    drawable.arect = {0, 0, wide, high};
    drawable.psx = drawable.psy = scale;
    drawable.localDrawable = 0x77;
    drawable.lctx = &context;
    drawable.lrect = localWindowRect(drawable, scale, scale);
    currDrawableInfo = &drawable;
    _glViewport(0, 0, W, H);
    recorder.calls.clear();
    return context;
}

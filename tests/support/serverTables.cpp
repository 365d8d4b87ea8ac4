#include "tests/support/serverTables.h"
#include "coding/clientMemory.h"

#include <algorithm>

namespace {

LocalDisplay tileDisplay;

template <class Record, std::size_t n>
void clear(Record (&table)[n], int& count)
{
    std::fill_n(table, n, Record{});
    count = 0;
}

} // namespace

void clearServerTables()
{
    for (LocalContextInfo& context : LocalContextTable)
        while (_vp* top = context.attrStack) {
            context.attrStack = top->next;
            delete top;
        }
    clear(LocalContextTable, nContexts);
    clear(LocalVisualTable, nVisualInfos);
    clear(LocalDrawableTable, nDrawables);
    clear(LocalFBConfigTable, nFBConfigs);
    clear(LocalPbufferTable, nPbuffers);
    clear(LocalVertexArrayRangeTable, nVertexArrayRanges);
    clear(LocalProgramTable, nPrograms);
    clear(LocalTextureIDTable, nTextureIDs);

    clientMemory::reset();
    currDrawableInfo = nullptr;
    currLocalDisplay = nullptr;
    currAppWidth = currAppHeight = glV_currAppWidth = glV_currAppHeight = updateScalingNeeded = 0;
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
    return context;
}

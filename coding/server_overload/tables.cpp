// The resource tables and their lookups: linear scans over a few records, once per GLX or name
// operation.
#include "coding/invariant.h"
#include "coding/server_overload/lookups.h"

#include <span>

LocalContextInfo LocalContextTable[tableSlots];
LocalVisualInfo LocalVisualTable[tableSlots];
LocalDrawableInfo LocalDrawableTable[tableSlots];
LocalFBConfigsInfo LocalFBConfigTable[tableSlots];
LocalPbufferInfo LocalPbufferTable[tableSlots];
LocalVertexArrayRangePointersInfo LocalVertexArrayRangeTable[tableSlots];
LocalProgramInfo LocalProgramTable[tableSlots];
LocalTextureIDInfo LocalTextureIDTable[textureSlots];
int nContexts, nVisualInfos, nDrawables, nFBConfigs, nPbuffers, nVertexArrayRanges, nPrograms,
    nTextureIDs;

LocalDrawableInfo* currDrawableInfo;
LocalDisplay* currLocalDisplay;

namespace {

// The first live record with the given key, or null.
template <class Record, class Key, class Kind>
Record* findFirst(Record* table, int count, Key Record::*key, AppHandle<Kind> wanted)
{
    for (Record& record : std::span(table, static_cast<std::size_t>(count)))
        if (record.*key == asParameter<Key>(wanted))
            return &record;
    return nullptr;
}

} // namespace

LocalContextInfo* _getLocalContext(AppContext context)
{
    LocalContextInfo* first = nullptr;
    for (LocalContextInfo& record :
         std::span(LocalContextTable, static_cast<std::size_t>(nContexts)))
        if (AppContext(record.appCtx) == context) {
            if (!record.destroyed)
                return &record;
            first = first ? first : &record;
        }
    return first;
}

GLXFBConfig _getLocalFBConfig(AppFBConfig fbconfig)
{
    const LocalFBConfigsInfo* record =
        findFirst(LocalFBConfigTable, nFBConfigs, &LocalFBConfigsInfo::appFBConfigID, fbconfig);
    return record && record->localFBConfig ? record->localFBConfig[0] : nullptr;
}

GLXPbuffer _getLocalPbuffer(AppPbuffer pbuffer)
{
    const LocalPbufferInfo* record =
        findFirst(LocalPbufferTable, nPbuffers, &LocalPbufferInfo::appPbufferID, pbuffer);
    return record ? record->localPbuffer : 0;
}

LocalDrawableInfo* _findLocalDrawableInfo(AppDrawable appDrawable)
{
    return findFirst(LocalDrawableTable, nDrawables, &LocalDrawableInfo::appDrawID, appDrawable);
}

LocalDrawableInfo* _getLocalRoot(LocalDrawableInfo* ldr)
{
    require(currLocalDisplay, "currLocalDisplay");
    // Parents may form a loop, also one that does not lead back to ldr: each record counts once.
    bool seen[tableSlots] = {};
    const auto indexIn = [](const LocalDrawableInfo* record) {
        return record - LocalDrawableTable;
    };
    if (indexIn(ldr) >= 0 && indexIn(ldr) < tableSlots)
        seen[indexIn(ldr)] = true;
    LocalDrawableInfo* root = nullptr;
    for (;;) {
        LocalDrawableInfo* parent =
            _findLocalDrawableInfo(AppDrawable((root ? root : ldr)->app_parentID));
        if (!parent || seen[indexIn(parent)])
            return root;
        seen[indexIn(parent)] = true;
        root = parent;
    }
}

GLvoid* _checkLocalVertexArrayRangePointer(AppPointer appPtrID)
{
    GLvoid* local = nullptr;
    for (int i = 0; i < nVertexArrayRanges; ++i)
        if (LocalVertexArrayRangeTable[i].appVertexArrayRangeID == asParameter<GLvoid*>(appPtrID))
            local = LocalVertexArrayRangeTable[i].localVertexArrayRangeID;
    return local;
}

int _setLocalVertexArrayRangePointer(AppPointer appPtrID, void* pointer)
{
    if (findFirst(LocalVertexArrayRangeTable, nVertexArrayRanges,
                  &LocalVertexArrayRangePointersInfo::appVertexArrayRangeID, appPtrID))
        return 0;
    LocalVertexArrayRangeTable[nVertexArrayRanges++] = {asParameter<GLvoid*>(appPtrID), pointer};
    require(nVertexArrayRanges < tableSlots, "nVertexArrayRanges < 64");
    return 1;
}

// Looking up what the application's handles stand for on this server. Decode thread only.
#pragma once

#include "coding/serverWindows.h"
#include "wire/handles.h"

// Each returns null, or 0, for a handle that no live record has.
// The application's library may hand out a handle again: of contexts the first that has not been
// destroyed counts.
LocalContextInfo* _getLocalContext(AppContext context);
GLXFBConfig _getLocalFBConfig(AppFBConfig fbconfig);
GLXPbuffer _getLocalPbuffer(AppPbuffer pbuffer);
LocalDrawableInfo* _findLocalDrawableInfo(AppDrawable appDrawable);

/// The outermost recorded ancestor of a window, or null.
LocalDrawableInfo* _getLocalRoot(LocalDrawableInfo* ldr);

/// The local memory of the last record with this key, or null.
GLvoid* _checkLocalVertexArrayRangePointer(AppPointer appPtrID);

/// Records a pair and returns 1, or returns 0 when the key is known already.
int _setLocalVertexArrayRangePointer(AppPointer appPtrID, void* pointer);

/// The record of a drawable, made if need be, with its local visual. Never null.
LocalDrawableInfo* _getLocalDrawable(AppDrawable appDrawable);

/// The record of a visual, chosen with usual attributes if need be. Never null.
LocalVisualInfo* _getLVI(AppDisplay appDisplay, AppVisual appVisID);

// The records that pair the application's GLX objects and names with this server's own, and the
// tables that hold them. Tables are appended to and never compacted; a record is live when its
// index is below the table's count. All of it belongs to the decode thread.
//
// Application handles are numbers that the stream brought: keys to compare, never to dereference.
// Fields named app... hold them, fields named local... what this node's libraries returned.
#pragma once

#include "coding/display/rect.h"
#include "wire/prototypes.h"

/// A local X display and the part of the wall that it shows.
struct LocalDisplay {
    Display* dpy;        // this server's connection
    Display* appDpy;     // the application's connection, the key
    char* dpyName;       // owned
    int scrn;            // screen number, from the display's name
    int vWidth, vHeight; // the whole wall, in wall pixels
    MWRect rect;         // what this display shows, in wall pixels
    LocalDisplay* next;
};

/// One element of a context's stack of viewports and raster positions; the top is in force.
struct _vp {
    GLbitfield bits; // mask of the glPushAttrib that made the element
    int vp[4];       // the application's viewport, as it passed it
    double rp[4];    // the application's raster position, as it passed it
    _vp* next;       // the element below, null at the bottom
};

struct LocalContextInfo {
    int firsttime;             // 1 until the first make-current has set the context up
    GLenum matrixMode;         // what the application selected last, 0 before
    GLXContext appCtx;         // key
    GLXContext localCtx;       // records that share have the same
    XVisualInfo* ctxVI;        // not in use
    _vp* attrStack;            // top element
    double tileRP[4];          // raster position: application window pixels, depth, 1
    double appProjection[16];  // column-major, as last read back
    double tileProjection[16]; // not in use: the tile level stands on the matrix stack
    int destroyed;             // 1 when the application has destroyed the context
};

struct LocalVisualInfo {
    VisualID appVI; // key
    XVisualInfo* localVI;
};

struct LocalDrawableInfo {
    MWRect lrect;             // the local window on this display, in display pixels
    MWRect arect;             // the application's window, in application pixels
    float psx, psy;           // wall pixels per application pixel
    float vsx, vsy, vtx, vty; // scale and centre of this tile in the viewport's device coordinates
    int app_depth;            // not in use
    int depth;                // of the application's window
    Drawable appDrawID;       // key
    VisualID appVI;
    int dirtyCtx;
    Drawable app_parentID;     // the application's parent window
    int isMapped;              // not in use: local windows are mapped when they are made
    LocalDrawableInfo* parent; // not in use
    LocalDrawableInfo* root;   // outermost recorded ancestor, null for a top-level window
    Drawable localDrawable;    // 0 until the window is made
    LocalContextInfo* lctx;    // last made current on this drawable
    LocalVisualInfo* lvi;
};

struct LocalFBConfigsInfo {
    GLXFBConfig appFBConfigID; // key
    int nlocalFBConfigs;
    GLXFBConfig* localFBConfig; // the first stands for the application's configuration
};

struct LocalPbufferInfo {
    GLXPbuffer appPbufferID; // key
    GLXPbuffer localPbuffer;
};

struct LocalVertexArrayRangePointersInfo {
    GLvoid* appVertexArrayRangeID; // key
    GLvoid* localVertexArrayRangeID;
};

struct LocalProgramInfo {
    GLuint appProgramName; // key, deletedName when deleted
    GLuint localProgramName;
};

struct LocalTextureIDInfo {
    GLuint appTexName; // key, deletedName when deleted
    GLuint localTexName;
};

inline constexpr GLuint deletedName = 0xFFFFFFFF;

// A table of n slots holds at most n - 1 records: the append that would make it full is fatal.
inline constexpr int tableSlots = 64;
inline constexpr int textureSlots = 256;

extern LocalContextInfo LocalContextTable[tableSlots];
extern LocalVisualInfo LocalVisualTable[tableSlots];
extern LocalDrawableInfo LocalDrawableTable[tableSlots];
extern LocalFBConfigsInfo LocalFBConfigTable[tableSlots];
extern LocalPbufferInfo LocalPbufferTable[tableSlots];
extern LocalVertexArrayRangePointersInfo LocalVertexArrayRangeTable[tableSlots];
extern LocalProgramInfo LocalProgramTable[tableSlots];
extern LocalTextureIDInfo LocalTextureIDTable[textureSlots];

extern int nContexts, nVisualInfos, nDrawables, nFBConfigs, nPbuffers, nVertexArrayRanges,
    nPrograms, nTextureIDs;

extern LocalDrawableInfo* currDrawableInfo; // what the latest make-current or creation concerned
extern LocalDisplay* currLocalDisplay;      // serves the application display named last

/// Wall pixels by which a tile's viewport reaches beyond its display, at most to the application
/// viewport's own edge. Nothing of it is seen but what starts there: the near side of a wide line,
/// a stippled line's pattern. 0, unless an overload library sets it.
extern int viewportMargin;

extern int currAppWidth, currAppHeight;         // the application window, as in force for the tile
extern int glV_currAppWidth, glV_currAppHeight; // the same as the latest glViewport carried it
extern int updateScalingNeeded;                 // 1 when that glViewport changed it

// The GLX operations that create something: the application's handle goes into the first free
// record of the table, and the overload commits the record (or leaves it for the next creation).
#include "coding/attributeList.h"
#include "coding/fromWire.h"
#include "coding/serverWindows.h"

char* _glXChooseVisual(char* args)
{
    ChooseVisualBlock block;
    char* const end = loadBlock(args, block);
    LocalVisualTable[nVisualInfos].appVI = asParameter<VisualID>(block.visual);
    std::vector<int> attributes = attributeList(block.attributes);
    perform<Op::glXChooseVisual>(asParameter<Display*>(block.dpy), block.screen, attributes.data());
    return end;
}

char* _glXCreateContext(char* args)
{
    CreateContextBlock block;
    char* const end = loadBlock(args, block);
    LocalContextTable[nContexts].appCtx = asParameter<GLXContext>(block.ctx);
    perform<Op::glXCreateContext>(asParameter<Display*>(block.dpy),
                                  asParameter<XVisualInfo*>(block.visual),
                                  asParameter<GLXContext>(block.shareList), block.direct);
    return end;
}

char* _glXCreateNewContext(char* args)
{
    CreateNewContextBlock block;
    char* const end = loadBlock(args, block);
    LocalContextTable[nContexts].appCtx = asParameter<GLXContext>(block.ctx);
    perform<Op::glXCreateNewContext>(asParameter<Display*>(block.dpy),
                                     asParameter<GLXFBConfig>(block.config), block.renderType,
                                     asParameter<GLXContext>(block.shareList), block.direct);
    return end;
}

char* _glXChooseFBConfig(char* args)
{
    ChooseFBConfigBlock block;
    char* const end = loadBlock(args, block);
    LocalFBConfigTable[nFBConfigs].appFBConfigID = asParameter<GLXFBConfig>(block.config);
    const std::vector<int> attributes = attributeList(block.attributes);
    int configurations = 0;
    perform<Op::glXChooseFBConfig>(asParameter<Display*>(block.dpy), block.screen,
                                   attributes.data(), &configurations);
    return end;
}

char* _glXCreatePbuffer(char* args)
{
    CreatePbufferBlock block;
    char* const end = loadBlock(args, block);
    LocalPbufferTable[nPbuffers].appPbufferID = asParameter<GLXPbuffer>(block.pbuffer);
    const std::vector<int> attributes = attributeList(block.attributes);
    perform<Op::glXCreatePbuffer>(asParameter<Display*>(block.dpy),
                                  asParameter<GLXFBConfig>(block.config), attributes.data());
    return end;
}

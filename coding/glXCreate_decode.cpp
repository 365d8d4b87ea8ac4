// The GLX operations that create something: the application's handle goes into the first free
// record of the table, and the overload commits the record (or leaves it for the next creation).
#include "coding/attributeList.h"
#include "coding/fromWire.h"
#include "coding/serverWindows.h"

namespace {

template <class T>
T word(const char* args, int offset)
{
    return fromWire<T>(args + offset);
}

} // namespace

char* _glXChooseVisual(char* args)
{
    LocalVisualTable[nVisualInfos].appVI = word<VisualID>(args, 4);
    std::vector<int> attributes = attributeList(args, 12);
    perform<Op::glXChooseVisual>(word<Display*>(args, 0), word<int>(args, 8), attributes.data());
    return behindAttributes(args, 12);
}

char* _glXCreateContext(char* args)
{
    LocalContextTable[nContexts].appCtx = word<GLXContext>(args, 12);
    perform<Op::glXCreateContext>(word<Display*>(args, 0), word<XVisualInfo*>(args, 4),
                                  word<GLXContext>(args, 8), word<int>(args, 16));
    return args + 20;
}

char* _glXCreateNewContext(char* args)
{
    LocalContextTable[nContexts].appCtx = word<GLXContext>(args, 16);
    perform<Op::glXCreateNewContext>(word<Display*>(args, 0), word<GLXFBConfig>(args, 4),
                                     word<int>(args, 8), word<GLXContext>(args, 12),
                                     word<int>(args, 20));
    return args + 24;
}

char* _glXChooseFBConfig(char* args)
{
    LocalFBConfigTable[nFBConfigs].appFBConfigID = word<GLXFBConfig>(args, 4);
    const std::vector<int> attributes = attributeList(args, 12);
    int configurations = 0;
    perform<Op::glXChooseFBConfig>(word<Display*>(args, 0), word<int>(args, 8), attributes.data(),
                                   &configurations);
    return behindAttributes(args, 12);
}

char* _glXCreatePbuffer(char* args)
{
    LocalPbufferTable[nPbuffers].appPbufferID = word<GLXPbuffer>(args, 8);
    const std::vector<int> attributes = attributeList(args, 12);
    perform<Op::glXCreatePbuffer>(word<Display*>(args, 0), word<GLXFBConfig>(args, 4),
                                  attributes.data());
    return behindAttributes(args, 12);
}

// Handles of the application: numbers of 32 bits that the stream brings, keys to compare and never
// addresses to follow. Each kind has a type of its own, which no local handle converts to.
#pragma once

#include "wire/values.h"

/// A handle of one kind. A parameter in the type of its operation (Display*, XID, GLXContext) is
/// taken for an application's number only where the code says so.
template <class Kind>
struct AppHandle {
    std::uint32_t number = 0;

    AppHandle() = default;
    constexpr explicit AppHandle(std::uint32_t value) : number(value) {}
    template <class T>
    requires isAppHandle<T>
    explicit AppHandle(T parameter) : number(appNumber(parameter)) {}

    friend bool operator==(AppHandle, AppHandle) = default;
};

using AppDisplay = AppHandle<struct DisplayKind>;
using AppVisual = AppHandle<struct VisualKind>;     // a VisualID
using AppDrawable = AppHandle<struct DrawableKind>; // a window, a GLXWindow
using AppContext = AppHandle<struct ContextKind>;
using AppFBConfig = AppHandle<struct FBConfigKind>;
using AppPbuffer = AppHandle<struct PbufferKind>;
using AppPointer = AppHandle<struct PointerKind>; // memory that glXAllocateMemoryNV gave

/// A handle in the type in which an operation takes it.
template <class T, class Kind>
T asParameter(AppHandle<Kind> handle)
{
    return appHandle<T>(handle.number);
}

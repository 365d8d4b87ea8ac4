// What the program calls in place of OpenGL: for each operation that is recorded an entry that
// writes its record and then calls the node's own function.
#pragma once

#include "capture/effects.h"
#include "capture/native.h"

#include <string>

/// The entry that the program gets for a name; null when the program is not to know of it.
NativeEntry entryFor(const char* name);

/// The entry for a name that this library exports, which the program may call without having asked:
/// for what the wall cannot show, the node's own function, and a line that says so. Never null.
NativeEntry entryForExport(const char* name);

/// Puts an entry in place of the one that the layout gives. The two below install those of their
/// files.
void install(const std::string& name, NativeEntry entry);
template <class F>
void install(const std::string& name, F* entry)
{
    install(name, reinterpret_cast<NativeEntry>(entry));
}
void installArrays();
void installBufferObjects();
void installDraws();
void installImages();
void installState();
void installFonts();
void installRaster();
void installCopies();
void installGlx();
void installEgl();

/// Records an operation and calls the node's own.
template <Op op, class... A>
auto pass(A... a)
{
    record<op, effectOf<op>>(a...);
    return callNative<op>(a...);
}

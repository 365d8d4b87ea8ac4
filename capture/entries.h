// What the program calls in place of OpenGL: for each operation that is recorded an entry that
// writes its record and then calls the node's own function.
#pragma once

#include "capture/entered.h"
#include "capture/rows.h"

#include <cstdint>
#include <string_view>

/// The entry that the program gets for a name. Null where the node has none; with --calls also
/// where the wall's calls have none.
NativeEntry entryFor(const char* name);

/// A call of a name that this library exports: where it goes, never null, and whether all others of
/// that name go there, too. What the function means to the current context is done: by its first
/// two arguments, where they are numbers.
struct ExportedCall {
    NativeEntry entry;
    bool always;
};
ExportedCall callOfExport(const char* name, std::uintptr_t first, std::uintptr_t second);

/// The exported function of a name, or null.
NativeEntry exportedEntry(std::string_view name);

/// The entries of operations that need more than their layout gives.
extern NativeEntry installed[operationCount];

/// Puts an entry in place of the one that the layout gives. Those below install what is in their
/// files.
template <Op op>
void install(Prototype<op>* entry)
{
    installed[indexOf(op)] = reinterpret_cast<NativeEntry>(entry);
}

/// The same for what is no operation of the wire. Without an entry: the node's own.
void installOther(const char* name, NativeEntry entry = {});
template <auto* entry>
void installOther(const char* name)
{
    installOther(name, around<entry, std::remove_pointer_t<decltype(entry)>>(
                           name, reinterpret_cast<NativeEntry>(entry)));
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

#include "capture/entries.h"
#include "capture/bufferObjects.h"
#include "capture/contexts.h"
#include "capture/outside.h"
#include "capture/stream.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

NativeEntry installed[operationCount];

namespace {

// ---- Entries that follow from the layout -------------------------------------------------------

template <class F, class Layout>
inline constexpr bool followsFromLayout = false;
template <class F, int bytes>
inline constexpr bool followsFromLayout<F, Scalars<bytes>> = true;
template <class F, int bytes>
inline constexpr bool followsFromLayout<F, FixedArrays<bytes>> = true;
template <class F>
inline constexpr bool followsFromLayout<F, CountedArrays> = true;
template <class F, const ParamSizes& sizes>
inline constexpr bool followsFromLayout<F, ParameterArray<sizes>> = true;
template <class F, class Layout>
inline constexpr bool followsFromLayout<F, Guarded<Layout>> = followsFromLayout<F, Layout>;
template <class F, class Layout>
inline constexpr bool followsFromLayout<F, Padded<Layout>> = followsFromLayout<F, Layout>;
template <class F, class Layout>
inline constexpr bool followsFromLayout<F, Noted<Layout>> = followsFromLayout<F, Layout>;

// Whether a call has a record at all: a count below zero, a name that the wire does not know.
template <class... A>
constexpr bool canBeSent(auto, const A&...)
{
    return true;
}
template <class... A>
bool canBeSent(CountedArrays, GLsizei n, const A&...)
{
    return n >= 0;
}
template <const ParamSizes& sizes, class... A>
bool canBeSent(ParameterArray<sizes>, const A&... a)
{
    const auto arguments = std::tie(a...);
    return findParam(sizes, static_cast<GLenum>(std::get<sizeof...(A) - 2>(arguments))) != nullptr;
}

template <Op op, Op sent, class F>
struct Entry;
template <Op op, Op sent, class R, class... P>
struct Entry<op, sent, R(P...)> {
    static R call(P... p)
    {
        if (canBeSent(Layout<sent>{}, p...))
            record<sent, effectOf<sent>>(p...);
        else
            tell(Reason::unknownParameter);
        return callNative<op>(p...);
    }
};

// Vectors of extensions that have no length on the wire: the core's have.
constexpr Op sentAs(Op op)
{
    if (op >= Op::glMultiTexCoord1dARB && op <= Op::glMultiTexCoord4svARB)
        return Op(indexOf(op) - indexOf(Op::glMultiTexCoord1dARB) + indexOf(Op::glMultiTexCoord1d));
    if (op == Op::glBindTextureEXT)
        return Op::glBindTexture;
    if (op == Op::glPointParameterfvARB)
        return Op::glPointParameterfv;
    return op;
}
static_assert(sentAs(Op::glMultiTexCoord4svARB) == Op::glMultiTexCoord4sv);

template <Op op>
constexpr NativeEntry entryOf()
{
    if constexpr (requires { typename PrototypeOf<op>::Type; } && effectOf<op> != Effect::own) {
        constexpr Op sent = sentAs(op);
        if constexpr (followsFromLayout<Prototype<op>, Layout<sent>>)
            return reinterpret_cast<NativeEntry>(&Entry<op, sent, Prototype<op>>::call);
    }
    return nullptr;
}

// ---- Entries by name ---------------------------------------------------------------------------

struct Known {
    int opcode;        // -1: no operation of the wire
    NativeEntry entry; // null: the node's own
};

std::unordered_map<std::string, Known>& known()
{
    static auto& all = *new std::unordered_map<std::string, Known>;
    return all;
}

template <Op op>
void fillOperation(const char* name)
{
    NativeEntry& entry = installed[indexOf(op)];
    if (!entry)
        entry = entryOf<op>();
    if constexpr (requires { typename PrototypeOf<op>::Type; })
        entry = around<op, Prototype<op>>(name, entry);
    known()[name] = {indexOf(op), entry};
}

void fillKnown()
{
    installArrays();
    installBufferObjects();
    installDraws();
    installImages();
    installState();
    installFonts();
    installRaster();
    installCopies();
    installGlx();
    installEgl();
#define OPERATION(number, name, ...) fillOperation<Op::name>(#name);
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "wire/operations.def"
}

void missing() {}

} // namespace

void installOther(const char* name, NativeEntry entry) { known()[name] = {-1, entry}; }

namespace {

// Of OpenGL, what ends frames or tells where they are drawn.
bool endsFrames(std::string_view name)
{
    return name == "glFlush" || name == "glFinish" || name == "glDrawBuffer";
}

bool isOpenGL(std::string_view name) { return name.starts_with("gl") && !name.starts_with("glX"); }

} // namespace

namespace {

// From the table, or, for all threads alike, from the libraries into it.
NativeEntry nativeOf(int opcode, const char* name)
{
    const std::atomic_ref place(nativeTable[opcode]);
    NativeEntry native = place.load(std::memory_order_acquire);
    if (const NativeEntry found = native ? nullptr : nativeByName(name))
        if (place.compare_exchange_strong(native, found))
            native = found;
    return native;
}

} // namespace

NativeEntry entryFor(const char* name)
{
    // Where pictures are shown, OpenGL is the node's own.
    if (captureOptions.showing == Showing::pictures && isOpenGL(name) && !endsFrames(name))
        return nativeByName(name);
    const auto found = known().find(name);
    if (found == known().end()) {
        const NativeEntry native = nativeByName(name);
        if (!native || !isOpenGL(name)) // of GLX and EGL all is the node's own
            return native;
        if (captureOptions.showing == Showing::calls && !currentContext().asPicture)
            return nullptr;
        const NativeEntry followed = exportedEntry(name);
        return followed ? followed : native;
    }
    const auto& [opcode, entry] = found->second;
    const NativeEntry native = opcode >= 0 ? nativeOf(opcode, name) : nativeByName(name);
    if (!native)
        return nullptr;
    if (opcode >= 0 && !entry &&
        rowOf(Op{static_cast<std::uint16_t>(opcode)}).effect != Effect::own)
        tell(Reason::notOnWire, name);
    return entry ? entry : native;
}

ExportedCall callOfExport(const char* name, std::uintptr_t first, std::uintptr_t second)
{
    const bool outside = isOpenGL(name) && !known().contains(name);
    if (!outside || captureOptions.showing == Showing::pictures) {
        const NativeEntry entry = entryFor(name);
        return {entry ? entry : missing, true};
    }
    const NativeEntry native = nativeByName(name);
    if (!native)
        return {missing, true};
    const Entered entered(name);
    const OutsideRow row = outsideOf(name);
    if (row.what == Outside::harmless)
        return {native, true};
    if (row.what == Outside::changesBuffers) {
        noteBuffersChanged();
        return {native, false};
    }
    const bool isZero = row.what == Outside::unlessZero &&
                        static_cast<std::uint32_t>(row.argument == 0 ? first : second) == 0;
    if (!isZero && canAsk() && !currentContext().asPicture) {
        if (captureOptions.showing == Showing::calls)
            tell(Reason::unseen, name);
        else
            turnToPictures(name);
    }
    return {native, false};
}

namespace {

[[gnu::constructor]] void prepare()
{
    readCaptureOptions();
    openNative();
    fillKnown();
}

} // namespace

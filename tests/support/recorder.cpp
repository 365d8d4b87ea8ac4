#include "support/recorder.h"
#include "coding/serverOverload.h"

#include <X11/Xutil.h>

#include <cstdio>

// Before all other globals: the library's set-up writes to it.
[[gnu::init_priority(200)]] Recorder recorder;

namespace {

std::uint64_t lastName = 1000;   // of a texture or program
std::uint64_t lastHandle = 5000; // of a GLX object

template <class T>
std::string text(T value)
{
    char buffer[40];
    if constexpr (std::is_floating_point_v<T>)
        std::snprintf(buffer, sizeof buffer, "%.9g", static_cast<double>(value));
    else if constexpr (std::is_signed_v<T>)
        std::snprintf(buffer, sizeof buffer, "%d", static_cast<int>(value));
    else
        std::snprintf(buffer, sizeof buffer, value > 255 ? "%#llx" : "%llu",
                      static_cast<unsigned long long>(value));
    return buffer;
}

// Pointers that are handles: what they point to is the library's own or Xlib's.
template <class T>
inline constexpr bool isHandle =
    !std::is_void_v<T> && !std::is_arithmetic_v<T> && !std::is_pointer_v<T>;

template <class T>
std::string text(T* pointer)
{
    using Element = std::remove_cv_t<T>;
    if (!pointer)
        return "null";
    if constexpr (isHandle<Element>)
        return text(reinterpret_cast<std::uintptr_t>(pointer));
    else if constexpr (std::is_pointer_v<Element>)
        return "ptr";
    else {
        if (!recorder.shownElements)
            return "ptr";
        using Shown = std::conditional_t<std::is_void_v<Element>, GLubyte, Element>;
        const auto* at = reinterpret_cast<const char*>(pointer);
        std::string list;
        for (int i = 0; i < recorder.shownElements; ++i)
            list += (i ? " " : "") + text(load<Shown>(at + i * sizeof(Shown)));
        return "[" + list + "]";
    }
}

void log(const std::string& line)
{
    if (recorder.log)
        recorder.log(line);
    else
        recorder.calls.push_back(line);
}

std::uint64_t resultOr(Op op, std::uint64_t otherwise)
{
    const auto found = recorder.results.find(op);
    return found == recorder.results.end() ? otherwise : found->second;
}

// Writes what the test has set for a query's parameter.
template <class T>
void answer(unsigned pname, T* out)
{
    const auto found = recorder.values.find(pname);
    if (found == recorder.values.end())
        return;
    for (const double value : found->second)
        *out++ = static_cast<T>(value);
}

XVisualInfo* defaultVisual(Display* dpy, int screen)
{
    XVisualInfo wanted{};
    wanted.visualid = XVisualIDFromVisual(DefaultVisual(dpy, screen));
    int count = 0;
    return XGetVisualInfo(dpy, VisualIDMask, &wanted, &count);
}

// What an operation does beyond recording: it fills in outputs and returns its default result.
template <Op op, class... P>
std::uint64_t behave(P... p)
{
    [[maybe_unused]] const auto argument = std::tuple(p...);
    if constexpr (op == Op::glGetIntegerv || op == Op::glGetFloatv || op == Op::glGetDoublev)
        answer(std::get<0>(argument), std::get<1>(argument));
    else if constexpr (op == Op::glGenTextures || op == Op::glGenProgramsARB)
        for (int i = 0; i < std::get<0>(argument); ++i)
            std::get<1>(argument)[i] = static_cast<GLuint>(++lastName);
    else if constexpr (op == Op::glXMakeCurrent || op == Op::glXMakeContextCurrent)
        return 1;
    else if constexpr (op == Op::glXCreateContext || op == Op::glXCreateNewContext ||
                       op == Op::glXCreatePbuffer || op == Op::glXCreateWindow)
        return ++lastHandle;
    else if constexpr (op == Op::glXChooseVisual) {
        if (!recorder.results.contains(op))
            return reinterpret_cast<std::uintptr_t>(
                defaultVisual(std::get<0>(argument), std::get<1>(argument)));
    } else if constexpr (op == Op::glXChooseFBConfig) {
        static GLXFBConfig list[1];
        list[0] = reinterpret_cast<GLXFBConfig>(++lastHandle);
        *std::get<3>(argument) = 1;
        return reinterpret_cast<std::uintptr_t>(list);
    } else if constexpr (op == Op::glXQueryMaxSwapGroupsNV) {
        answer(indexOf(op), std::get<2>(argument));
        answer(indexOf(op) + 1U, std::get<3>(argument));
    } else if constexpr (op == Op::glXAllocateMemoryNV) {
        static char memory[16][16];
        static int used;
        return reinterpret_cast<std::uintptr_t>(memory[used++ % 16]);
    }
    return 0;
}

constexpr const char* names[] = {
#define OPERATION(number, name, ...) #name,
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "coding/operations.def"
};

template <Op op, class F>
struct Recording;

template <Op op, class R, class... P>
struct Recording<op, R(P...)> {
    static R call(P... p)
    {
        std::string line = names[indexOf(op)];
        ((line += " " + text(p)), ...);
        log(line);
        const std::uint64_t result = resultOr(op, behave<op>(p...));
        if constexpr (std::is_pointer_v<R>)
            return reinterpret_cast<R>(result);
        else if constexpr (!std::is_void_v<R>)
            return static_cast<R>(result);
    }
};

template <Op op>
std::uint64_t callWithoutPrototype()
{
    log(names[indexOf(op)]);
    return resultOr(op, 0);
}

template <Op op>
constexpr auto entry()
{
    if constexpr (requires { typename PrototypeOf<op>::Type; })
        return &Recording<op, Prototype<op>>::call;
    else
        return &callWithoutPrototype<op>;
}

template <int... op>
void fillTable(std::integer_sequence<int, op...>)
{
    ((recordingTable[op] = reinterpret_cast<glOp>(entry<Op{op}>())), ...);
}

[[gnu::constructor]] void fillTable()
{
    fillTable(std::make_integer_sequence<int, operationCount>{});
}

} // namespace

glOp recordingTable[operationCount];

void resetRecorder()
{
    recorder = {};
    lastName = 1000;
    lastHandle = 5000;
}

std::string takeCalls()
{
    std::string all;
    for (const std::string& line : recorder.calls)
        all += line + "\n";
    recorder.calls.clear();
    return all;
}

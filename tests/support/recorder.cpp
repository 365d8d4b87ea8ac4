#include "support/recorder.h"
#include "coding/server_overload/overloads.h"

#include <X11/Xutil.h>

#include <sstream>

// Before all other globals: the library's set-up writes to it.
[[gnu::init_priority(200)]] Recorder recorder;

namespace {

std::uint64_t lastName = 1000;   // of a texture or program
std::uint64_t lastHandle = 5000; // of a GLX object

template <class T>
std::string text(T value)
{
    std::ostringstream out;
    out.precision(9);
    if (std::is_unsigned_v<T> && static_cast<double>(value) > 255)
        out << std::hex << std::showbase;
    out << +value;
    return out.str();
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
    std::string list;
    if constexpr (!isHandle<Element> && !std::is_pointer_v<Element>) {
        using Shown = std::conditional_t<std::is_void_v<Element>, GLubyte, Element>;
        const auto* at = reinterpret_cast<const char*>(pointer);
        for (int i = 0; i < recorder.shownElements; ++i)
            list += (i ? " " : "[") + text(load<Shown>(at + i * sizeof(Shown)));
    }
    return list.empty() ? "ptr" : list + "]";
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
    return recorder.results.contains(op) ? recorder.results[op] : otherwise;
}

// Writes what the test has set for a query's parameter.
template <class T>
void answer(unsigned pname, T* out)
{
    for (const double value : recorder.values[pname])
        *out++ = static_cast<T>(value);
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
                       op == Op::glXCreatePbuffer || op == Op::glXCreateWindow ||
                       op == Op::glXAllocateMemoryNV)
        return ++lastHandle;
    else if constexpr (op == Op::glXChooseVisual) {
        if (recorder.results.contains(op))
            return 0; // there may be no display to ask
        const auto [dpy, screen, attributes] = argument;
        XVisualInfo wanted{};
        wanted.visualid = XVisualIDFromVisual(DefaultVisual(dpy, screen));
        int count = 0;
        return reinterpret_cast<std::uintptr_t>(XGetVisualInfo(dpy, VisualIDMask, &wanted, &count));
    } else if constexpr (op == Op::glXChooseFBConfig) {
        static GLXFBConfig list[1];
        list[0] = reinterpret_cast<GLXFBConfig>(++lastHandle);
        *std::get<3>(argument) = 1;
        return reinterpret_cast<std::uintptr_t>(list);
    } else if constexpr (op == Op::glXQueryMaxSwapGroupsNV) {
        answer(indexOf(op), std::get<2>(argument));
        answer(indexOf(op) + 1U, std::get<3>(argument));
    }
    return 0;
}

template <Op op>
const char* name;

template <Op op, class F>
struct Recording;

template <Op op, class R, class... P>
struct Recording<op, R(P...)> {
    static R call(P... p)
    {
        std::string line = name<op>;
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
constexpr auto entry()
{
    if constexpr (requires { typename PrototypeOf<op>::Type; })
        return &Recording<op, Prototype<op>>::call;
    else
        return &Recording<op, std::uint64_t()>::call;
}

[[gnu::constructor]] void fillTable()
{
#define OPERATION(number, operation, ...)                                                          \
    name<Op::operation> = #operation;                                                              \
    recordingTable[number] = reinterpret_cast<glOp>(entry<Op::operation>());
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "wire/operations.def"
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

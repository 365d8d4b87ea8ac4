#include "client/describe.h"
#include "coding/fromWire.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

constexpr int opcodeBytes = 2;

// ---- Values ------------------------------------------------------------------------------------

template <class... Format>
void appendNumber(std::string& out, Format... format)
{
    char digits[64];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, format...).ptr);
}

void appendHex(std::string& out, std::uint32_t value)
{
    out += "0x";
    appendNumber(out, value, 16);
}

template <class T>
void appendValue(std::string& out, T value)
{
    constexpr unsigned firstEnumerant = 256; // below it there are counts, masks and names of lists
    if constexpr (std::is_floating_point_v<T>)
        appendNumber(out, value);
    else if constexpr (std::is_unsigned_v<T> && sizeof(T) > 1) {
        if (value < firstEnumerant)
            appendNumber(out, value);
        else
            appendHex(out, value);
    } else
        appendNumber(out, int{value});
}

// The arguments so far, "(a, b".
struct Arguments {
    std::string& out;
    const char* separator = "(";
};

std::string& next(Arguments& arguments)
{
    arguments.out += arguments.separator;
    arguments.separator = ", ";
    return arguments.out;
}

template <class T>
void addScalar(Arguments& arguments, const char* at)
{
    if constexpr (isAppHandle<T>)
        appendHex(next(arguments), load<std::uint32_t>(at));
    else
        appendValue(next(arguments), load<T>(at));
}

// The first n parameters of prototype F.
template <class F, int n>
void addScalars(Arguments& arguments, const char* args)
{
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        using S = Signature<F>;
        (addScalar<typename S::template Parameter<i>>(arguments, args + S::offsets[i]), ...);
    }
    (std::make_integer_sequence<int, n>{});
}

void addBytes(Arguments& arguments, std::int64_t bytes)
{
    appendNumber(next(arguments), bytes);
    arguments.out += bytes == 1 ? " byte" : " bytes";
}

// Elements of type T, wholly when they are no more than a matrix has.
template <class T>
void addElements(Arguments& arguments, const char* at, std::int64_t count)
{
    constexpr std::int64_t most = 16;
    std::string& out = next(arguments);
    for (std::int64_t i = 0; i < std::min(count, most); ++i) {
        out += i == 0 ? "[" : ", ";
        appendValue(out, load<T>(at + i * std::int64_t{sizeof(T)}));
    }
    if (count > most) {
        out += ", ... ";
        appendNumber(out, count);
        out += " in all";
    }
    out += count == 0 ? "[]" : "]";
}

// `bytes` bytes of what parameter i of prototype F points to.
template <class F, int i>
void addArray(Arguments& arguments, const char* at, std::int64_t bytes)
{
    using Pointer = typename Signature<F>::template Parameter<i>;
    using Element = std::remove_cv_t<std::remove_pointer_t<Pointer>>;
    if constexpr (std::is_arithmetic_v<Element>)
        addElements<Element>(arguments, at, bytes / std::int64_t{sizeof(Element)});
    else
        addBytes(arguments, bytes);
}

// ---- Layouts -----------------------------------------------------------------------------------

template <Op, class F, int bytes>
void addArguments(Scalars<bytes>, Arguments& arguments, const char* args)
{
    addScalars<F, Signature<F>::count>(arguments, args);
}

template <Op, class F, int bytes>
void addArguments(FixedArrays<bytes>, Arguments& arguments, const char* args)
{
    using S = Signature<F>;
    addScalars<F, S::scalars>(arguments, args);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        constexpr int each = fixedArrayBytes<F, bytes>();
        (addArray<F, S::scalars + i>(arguments, args + S::scalarBytes + i * each, each), ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
}

template <Op, class F>
void addArguments(CountedArrays, Arguments& arguments, const char* args)
{
    addScalars<F, 1>(arguments, args);
    const std::int64_t count = load<std::int32_t>(args);
    const char* array = args + 4;
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        ((addArray<F, 1 + i>(arguments, array, count * elementSize<F, 1 + i>()),
          array += count * elementSize<F, 1 + i>()),
         ...);
    }
    (std::make_integer_sequence<int, Signature<F>::arrays>{});
}

template <Op, class F, const ParamSizes& sizes>
void addArguments(ParameterArray<sizes>, Arguments& arguments, const char* args)
{
    using S = Signature<F>;
    const GLenum pname = parameter<F, S::scalars - 1>(args);
    addScalars<F, S::scalars>(arguments, args);
    addArray<F, S::scalars>(arguments, args + S::scalarBytes, paramBytes(sizes, pname));
    if (!findParam(sizes, pname))
        next(arguments) += "unknown enum";
}

template <Op, class F, Count count, Null null, ScratchBuffer* scratch>
void addArguments(DataBlock<count, null, scratch>, Arguments& arguments, const char* args)
{
    using Places = DataBlockPlaces<F, count, null>;
    addScalars<F, Signature<F>::scalars>(arguments, args);
    const std::int64_t bytes = dataBytes<F, count>(args, elementBytes);
    bool isNull = false;
    if constexpr (Places::flagged)
        isNull = load<std::int32_t>(args + Places::flag) != 0;
    else if constexpr (null == Null::whenEmpty)
        isNull = bytes == 0;
    if (!isNull)
        addBytes(arguments, bytes);
    else
        next(arguments) += null == Null::lastArrived ? "the last that arrived" : "null";
}

template <Op, class F, ScratchBuffer& scratch, Components components, int typeAt>
void addArguments(ClientArray<scratch, components, typeAt>, Arguments& arguments, const char* args)
{
    using Places = ClientArrayPlaces<F, components, typeAt>;
    addScalars<F, Places::stride>(arguments, args);
    if constexpr (components != Components::untyped) {
        appendNumber(next(arguments), parameter<F, Places::stride>(args));
        arguments.out += " elements";
    }
    addBytes(arguments, arrayBytes<F, components, typeAt>(args, elementBytes));
}

template <Op, class F, int length>
void addArguments(LengthlessVector<length>, Arguments& arguments, const char* args)
{
    if constexpr (length != unknowable) {
        addScalars<F, 1>(arguments, args);
        addArray<F, 1>(arguments, args + 4, vectorBytes<F, length>(args));
    }
}

// The fields of a block that is read by hand, by name, and behind a name what the field is if not a
// number of 4 bytes: * a handle, # an enumerant, % a float, $ a text as long as the field before
// it says, [] words and & bytes to the end of the block.
constexpr std::string_view fieldsOf(Op op)
{
    switch (op) {
    case Op::glViewport:
        return "x y width height appWidth appHeight";
    case Op::glSeparableFilter2D:
        return "target# internalFormat# width height format# type# rowBytes columnBytes rowNull "
               "columnNull data&";
    case Op::glXChooseVisual:
        return "dpy* visual* screen count attributes[]";
    case Op::glXCreateContext:
        return "dpy* visual* shareList* ctx* direct";
    case Op::glXMakeCurrent:
        return "dpy* visual* drawable* ctx* width height depth x y parent*";
    case Op::glXUseXFont:
        return "length name$ first count listBase";
    case Op::glXChooseFBConfig:
        return "dpy* config* screen count attributes[]";
    case Op::glXCreateWindow:
        return "dpy* window* config* glxWindow* visual* width height depth count attributes[]";
    case Op::glXCreatePbuffer:
        return "dpy* config* pbuffer* count attributes[]";
    case Op::glXCreateNewContext:
        return "dpy* config* renderType# shareList* ctx* direct";
    case Op::glXMakeContextCurrent:
        return "dpy* unused unused draw* read* ctx* unused[]";
    case Op::glXAllocateMemoryNV:
        return "size readFrequency% writeFrequency% priority% pointer*";
    case Op::glXFreeMemoryNV:
        return "pointer*";
    default:
        return {};
    }
}

// Adds one such field at `at` and returns the first byte behind it.
const char* addField(Arguments& arguments, std::string_view field, const char* at, const char* end)
{
    const std::size_t letters = field.find_first_of("*#%$[&");
    const char kind = letters == field.npos ? ' ' : field[letters];
    std::string& out = next(arguments);
    out += field.substr(0, letters);
    out += '=';
    Arguments value{out, ""};
    switch (kind) {
    case '*':
        addScalar<void*>(value, at);
        return at + 4;
    case '#':
        addScalar<std::uint32_t>(value, at);
        return at + 4;
    case '%':
        addScalar<float>(value, at);
        return at + 4;
    case '$': {
        const auto length = static_cast<std::size_t>(load<std::int32_t>(at - 4));
        out.append("\"").append(at, strnlen(at, length)).append("\"");
        return at + length;
    }
    case '[':
        addElements<std::int32_t>(value, at, (end - at) / 4);
        return end;
    case '&':
        addBytes(value, end - at);
        return end;
    default:
        addScalar<std::int32_t>(value, at);
        return at + 4;
    }
}

template <Op op, class F, int head, std::int64_t (*rest)(const char*)>
void addArguments(HandWritten<head, rest> layout, Arguments& arguments, const char* args)
{
    constexpr std::string_view fields = fieldsOf(op);
    static_assert(head == 0 || !fields.empty(), "the fields of the block have no names");
    const Extent extent = extentOf<F>(layout);
    const char* const end = args + head + (extent.rest ? extent.rest(args) : 0);
    const char* at = args;
    for (std::string_view left = fields; !left.empty();) {
        const std::size_t length = std::min(left.find(' '), left.size());
        at = addField(arguments, left.substr(0, length), at, end);
        left.remove_prefix(std::min(length + 1, left.size()));
    }
}

template <Op, class>
void addArguments(Refused, Arguments& arguments, const char*)
{
    next(arguments) += "must not be sent";
}

template <Op, class>
void addArguments(Ignored, Arguments& arguments, const char*)
{
    next(arguments) += "ignored";
}

// ---- The operations ----------------------------------------------------------------------------

struct Operation {
    const char* name;
    Extent extent;
    bool lengthless; // its record is measured by nothing
    void (*addArguments)(Arguments& arguments, const char* args);
};

template <Op op, class F, class L>
constexpr Operation operation(const char* name)
{
    return {
        name, extentOf<F>(L{}), std::is_same_v<L, LengthlessVector<unknowable>>,
        [](Arguments& arguments, const char* args) { addArguments<op, F>(L{}, arguments, args); }};
}

constexpr Operation operations[operationCount] = {
#define OPERATION(number, name, ...) operation<Op::name, decltype(::name), __VA_ARGS__>(#name),
#define BY_HAND OPERATION
#define UNPERFORMED(number, name, ...) operation<Op::name, void, __VA_ARGS__>(#name),
#include "coding/operations.def"
};

} // namespace

Record measureRecord(const char* at, std::int64_t room)
{
    if (room < opcodeBytes)
        return {-1, room, "half an opcode"};
    const int opcode = load<std::uint16_t>(at);
    if (opcode >= operationCount)
        return {opcode, room, "bad opcode " + std::to_string(opcode)};
    const Operation& operation = operations[opcode];
    if (operation.lengthless)
        return {opcode, room, std::string(operation.name) + ": nothing tells its vector's length"};

    const char* args = at + opcodeBytes;
    room -= opcodeBytes;
    const Extent& extent = operation.extent;
    if (blockFits(extent, args, room))
        return {opcode, opcodeBytes + extent.head + (extent.rest ? extent.rest(args) : 0), {}};
    const std::int64_t rest = extent.head > room ? 0 : extent.rest(args);
    std::string fault = operation.name;
    if (rest < 0)
        fault += " has an impossible count";
    else
        fault += std::string(" takes ") + (extent.head > room ? "at least " : "") +
                 std::to_string(extent.head + rest) + " bytes of arguments, " +
                 std::to_string(room) + " are left";
    return {opcode, opcodeBytes + room, fault};
}

void describeRecord(std::string& out, const Record& record, const char* at)
{
    const Operation& operation = operations[record.opcode];
    out += operation.name;
    Arguments arguments{out};
    operation.addArguments(arguments, at + opcodeBytes);
    out += arguments.separator[0] == '(' ? "()" : ")";
}

const char* operationName(int opcode) { return operations[opcode].name; }

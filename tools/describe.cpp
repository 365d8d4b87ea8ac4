#include "tools/describe.h"
#include "tools/glNames.h"
#include "wire/operations.h"

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace {

// ---- Values ------------------------------------------------------------------------------------

template <class T>
void appendNumber(std::string& out, T value)
{
    char digits[64];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

template <class T>
void appendValue(std::string& out, T value)
{
    if constexpr (std::is_floating_point_v<T> || sizeof(T) > 1)
        appendNumber(out, value);
    else
        appendNumber(out, int{value});
}

// A value by name, if it has one; names also come as floating-point numbers.
template <class T>
void appendValue(std::string& out, Vocabulary vocabulary, T value)
{
    if constexpr (std::is_floating_point_v<T>) {
        const Name* name = nullptr;
        if (vocabulary != Vocabulary::numbers && value >= 0 && value < 1 << 20)
            name = findName(vocabulary, static_cast<std::uint32_t>(value));
        if (name && static_cast<T>(name->value) == value)
            out += name->name;
        else
            appendNumber(out, value);
    } else if (vocabulary == Vocabulary::numbers)
        appendValue(out, value);
    else
        appendName(out, vocabulary, static_cast<std::uint32_t>(value));
}

// The arguments so far, "(a, b".
struct Arguments {
    std::string& out;
    std::span<const NamedParameter> named = {};
    Vocabulary behindPname = Vocabulary::numbers; // the last argument was a pname, or none
    const char* separator = "(";
};

std::string& next(Arguments& arguments)
{
    arguments.out += arguments.separator;
    arguments.separator = ", ";
    return arguments.out;
}

Vocabulary vocabularyOf(const Arguments& arguments, int parameter)
{
    const auto named = std::ranges::find(arguments.named, parameter, &NamedParameter::index);
    if (named == arguments.named.end())
        return Vocabulary::numbers;
    return named->vocabulary == Vocabulary::behindPname ? arguments.behindPname : named->vocabulary;
}

template <class T>
void addScalar(Arguments& arguments, int parameter, const char* at)
{
    const Vocabulary vocabulary = vocabularyOf(arguments, parameter);
    if constexpr (isAppHandle<T>) {
        const auto number = load<std::uint32_t>(at);
        if (vocabulary == Vocabulary::numbers)
            appendHex(next(arguments), number);
        else
            appendName(next(arguments), vocabulary, number);
    } else
        appendValue(next(arguments), vocabulary, load<T>(at));
    if constexpr (std::is_same_v<T, GLenum>) {
        const Name* name = findName(vocabulary, load<T>(at));
        arguments.behindPname = name ? name->behind : Vocabulary::numbers;
    }
}

// The first n parameters of prototype F.
template <class F, int n>
void addScalars(Arguments& arguments, const char* args)
{
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        using S = Signature<F>;
        (addScalar<typename S::template Parameter<i>>(arguments, i, args + S::offsets[i]), ...);
    }
    (std::make_integer_sequence<int, n>{});
}

void addBytes(Arguments& arguments, std::int64_t bytes)
{
    appendNumber(next(arguments), bytes);
    arguments.out += bytes == 1 ? " byte" : " bytes";
}

constexpr std::int64_t most = 16; // elements shown of an array

// Elements of type T, wholly when they are no more than a matrix has.
template <class T>
void addElements(Arguments& arguments, Vocabulary vocabulary, const char* at, std::int64_t count)
{
    std::string& out = next(arguments);
    for (std::int64_t i = 0; i < std::min(count, most); ++i) {
        out += i == 0 ? "[" : ", ";
        appendValue(out, vocabulary, load<T>(at + i * std::int64_t{sizeof(T)}));
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
        addElements<Element>(arguments, vocabularyOf(arguments, i), at,
                             bytes / std::int64_t{sizeof(Element)});
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

template <Op, class F, Count count, Null null, Memory memory>
void addArguments(DataBlock<count, null, memory>, Arguments& arguments, const char* args)
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

template <Op, class F, Memory memory, Components components, int typeAt>
void addArguments(ClientArray<memory, components, typeAt>, Arguments& arguments, const char* args)
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

void appendAttributeValue(std::string& out, Vocabulary vocabulary, std::uint32_t value)
{
    if (value == GLX_DONT_CARE)
        out += "GLX_DONT_CARE";
    else
        appendValue(out, vocabulary, static_cast<std::int32_t>(value));
}

// "[attribute, attribute value, None]". Those that stand alone do so in glXChooseVisual only.
template <class Block>
void addAttributes(Arguments& arguments, const Words& words)
{
    const auto word = [&words](std::int64_t i) {
        return load<std::uint32_t>(static_cast<const char*>(words.at) + 4 * i);
    };
    std::string& out = next(arguments) += '[';
    std::int64_t i = 0;
    for (int shown = 0; i < words.count && shown < most; ++shown) {
        out += i == 0 ? "" : ", ";
        const std::uint32_t attribute = word(i++);
        if (attribute == None) {
            out += "None";
            continue;
        }
        appendName(out, Vocabulary::glxNames, attribute);
        const Name* name = findName(Vocabulary::glxNames, attribute);
        Vocabulary vocabulary = name ? name->behind : Vocabulary::numbers;
        if (vocabulary == Vocabulary::nothing) {
            if (std::is_same_v<Block, ChooseVisualBlock>)
                continue;
            vocabulary = Vocabulary::numbers;
        }
        if (i < words.count)
            appendAttributeValue(out += ' ', vocabulary, word(i++));
    }
    if (i < words.count)
        out += ", ... " + std::to_string(words.count) + " words in all";
    out += ']';
}

void addField(Arguments& arguments, Vocabulary, const Text& text)
{
    const auto* at = static_cast<const char*>(text.at);
    const auto length = static_cast<std::size_t>(text.length);
    next(arguments).append("\"").append(at, strnlen(at, length)).append("\"");
}

void addField(Arguments& arguments, Vocabulary, const Data& data)
{
    addBytes(arguments, data.bytes);
}

template <class Kind>
void addField(Arguments& arguments, Vocabulary, AppHandle<Kind> handle)
{
    appendHex(next(arguments), handle.number);
}

template <class T>
requires std::is_arithmetic_v<T>
void addField(Arguments& arguments, Vocabulary vocabulary, T value)
{
    appendValue(next(arguments), vocabulary, value);
}

// Fields have the names of parameters, but for the case of some letters.
Vocabulary vocabularyOf(const Arguments& arguments, const char* field)
{
    for (const NamedParameter& named : arguments.named)
        if (strcasecmp(named.name, field) == 0)
            return named.vocabulary;
    return Vocabulary::numbers;
}

template <Op, class, class Block>
void addArguments(HandWritten<Block>, Arguments& arguments, const char* args)
{
    Block block;
    loadBlock(const_cast<char*>(args), block); // the fields only point there
    eachField(block, [&](const char* name, const auto& field) {
        next(arguments) += name;
        arguments.out += '=';
        Arguments value{.out = arguments.out, .separator = ""};
        if constexpr (std::is_same_v<decltype(field), const Words&>)
            addAttributes<Block>(value, field);
        else
            addField(value, vocabularyOf(arguments, name), field);
    });
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
    bool lengthless; // nothing measures its record
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
#include "wire/operations.def"
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
    Arguments arguments{out, namedParameters(static_cast<Op>(record.opcode))};
    operation.addArguments(arguments, at + opcodeBytes);
    out += arguments.separator[0] == '(' ? "()" : ")";
}

const char* operationName(int opcode) { return operations[opcode].name; }

// The calls of a stream, taken from it ahead of time: an array of {thunk, arguments} to be executed
// in order. It is filled by decoding the stream with entries that record their arguments.
#pragma once

#include "coding/fromWire.h"
#include "coding/queries.h"

#include <vector>

/// One call: its arguments, a tuple, follow the head.
struct CallHead {
    void (*thunk)(const void* arguments);
    std::size_t words; // of the head and the arguments
};

/// Calls in words of 8 bytes. Pointers among the arguments go into the buffers that were decoded.
struct Calls {
    std::vector<std::uint64_t> words;
    long count = 0;
};

/// Where recording entries put their calls.
inline Calls* recordedCalls;

/// Functions in the place of an operation's entry.
template <Op op, class F>
struct Entry;
template <Op op, class R, class... P>
struct Entry<op, R(P...)> {
    // Does nothing. The operand keeps the entries apart: the compiler must not merge them.
    [[gnu::noipa]] static R nothing(P...)
    {
        asm volatile("" : : "i"(static_cast<int>(op)));
        return R();
    }

    // Records the call, to be made through `Thunk`.
    template <void (*thunk)(const void*)>
    static R record(P... arguments)
    {
        using Arguments = std::tuple<P...>;
        constexpr std::size_t words = (sizeof(CallHead) + sizeof(Arguments) + 7) / 8;
        std::vector<std::uint64_t>& to = recordedCalls->words;
        to.resize(to.size() + words);
        std::uint64_t* at = to.data() + to.size() - words;
        new (at) CallHead{thunk, words};
        new (at + sizeof(CallHead) / 8) Arguments(arguments...);
        ++recordedCalls->count;
        return R();
    }

    // Thunks: one call with the recorded arguments, of the entry that does nothing or of the
    // table's.
    static void callNothing(const void* arguments)
    {
        std::apply(nothing, *static_cast<const std::tuple<P...>*>(arguments));
    }
    static void callTable(const void* arguments)
    {
        std::apply(entryOf<op>(glOpTable), *static_cast<const std::tuple<P...>*>(arguments));
    }
};

/// Makes every entry one that does nothing, also those that only the server itself asks for.
inline void installNothing(glOp* table)
{
    const auto install = [table]<Op op>() {
        if constexpr (requires { typename PrototypeOf<op>::Type; })
            table[indexOf(op)] = reinterpret_cast<glOp>(Entry<op, Prototype<op>>::nothing);
    };
#define OPERATION(number, name, ...) install.template operator()<Op::name>();
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "wire/operations.def"
}

/// Makes every entry one that records a call to the entry that does nothing, or (`throughTable`) to
/// whatever the table holds by then.
template <bool throughTable>
void installRecording(glOp* table)
{
#define OPERATION(number, name, ...)                                                               \
    {                                                                                              \
        using E = Entry<Op::name, decltype(::name)>;                                               \
        table[number] = reinterpret_cast<glOp>(                                                    \
            E::template record < throughTable ? E::callTable : E::callNothing >);                  \
    }
#define BY_HAND OPERATION
#define UNPERFORMED(number, name, ...)
#include "wire/operations.def"
}

/// Makes the calls from word `first` up to word `last`.
inline void makeCalls(const Calls& calls, std::size_t first, std::size_t last)
{
    const std::uint64_t* at = calls.words.data() + first;
    const std::uint64_t* const end = calls.words.data() + last;
    while (at < end) {
        const auto* call = reinterpret_cast<const CallHead*>(at);
        call->thunk(call + 1);
        at += call->words;
    }
}

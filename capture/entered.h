// Entries with something around them: where MOSA_CAPTURE_SERIAL or MOSA_CAPTURE_VERBOSE asks for it
// they are installed in the place of the library's own, which know nothing of it.
#pragma once

#include "capture/locks.h"
#include "capture/native.h"
#include "capture/reasons.h"
#include "capture/stream.h"

#include <utility>

/// While the program is in an entry of the library's.
struct Entered {
    std::unique_lock<std::recursive_mutex> lock{serialLock, std::defer_lock};
    const char* before;
    explicit Entered(const char* operation)
    {
        if (captureOptions.serial)
            lock.lock();
        before = std::exchange(enteredOperation, operation);
    }
    ~Entered() { enteredOperation = before; }
    Entered(const Entered&) = delete;
    Entered& operator=(const Entered&) = delete;
};

/// An entry and its name by a key of its own: an operation, or a function.
template <auto key, class F>
struct Around;
template <auto key, class R, class... P>
struct Around<key, R(P...)> {
    static inline R (*inner)(P...);
    static inline const char* operation;
    static R call(P... p)
    {
        const Entered entered(operation);
        return inner(p...);
    }
};

/// The entry that is to be installed for `entry`.
template <auto key, class F>
NativeEntry around(const char* operation, NativeEntry entry)
{
    if (!entry || !(captureOptions.serial || captureOptions.verbose))
        return entry;
    using Kind = Around<key, F>;
    Kind::inner = reinterpret_cast<F*>(entry);
    if (!Kind::operation)
        Kind::operation = operation;
    return reinterpret_cast<NativeEntry>(&Kind::call);
}

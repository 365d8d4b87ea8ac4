// The names of the system's libraries, as this library exports them. C++ cannot define functions
// from a list of their names alone, so each is a jump through its slot; a slot first leads to a
// place that finds out what the name stands for (x86-64).
#include "capture/entries.h"

#include <atomic>
#include <iterator>
#include <unordered_map>

#ifndef __x86_64__
#    error "the jumps below are for x86-64"
#endif

namespace {

constexpr const char* exportNames[] = {
#define EXPORTED(number, name) #name,
#include "exports.inc"
#undef EXPORTED
};

} // namespace

extern "C" {
// Read by the jumps below; a slot that is null leads to firstCall.
[[gnu::visibility("hidden")]] NativeEntry exportSlots[std::size(exportNames)] = {};

[[gnu::visibility("hidden"), gnu::used]] NativeEntry
resolveExport(unsigned long number, std::uintptr_t first, std::uintptr_t second)
{
    const auto [entry, always] = callOfExport(exportNames[number], first, second);
    if (always) // another thread may do the same; the jumps read it whole
        std::atomic_ref(exportSlots[number]).store(entry, std::memory_order_relaxed);
    return entry;
}

extern const NativeEntry exportedFunctions[]; // exportTable.cpp
}

NativeEntry exportedEntry(std::string_view name)
{
    static const auto& numbers = *new std::unordered_map<std::string_view, std::size_t>([] {
        std::unordered_map<std::string_view, std::size_t> all;
        for (std::size_t i = 0; i < std::size(exportNames); ++i)
            all[exportNames[i]] = i;
        return all;
    }());
    const auto found = numbers.find(name);
    return found == numbers.end() ? nullptr : exportedFunctions[found->second];
}

// A slot that is still null leads here with the number of the name: the arguments of the call that
// is under way are kept, in the registers that the calling convention passes them in.
asm(R"(
.pushsection .text
firstCall:
    push %rbp
    mov %rsp, %rbp
    push %rdi; push %rsi; push %rdx; push %rcx; push %r8; push %r9; push %rax; push %r10
    sub $128, %rsp
    movups %xmm0, 0(%rsp); movups %xmm1, 16(%rsp); movups %xmm2, 32(%rsp); movups %xmm3, 48(%rsp)
    movups %xmm4, 64(%rsp); movups %xmm5, 80(%rsp); movups %xmm6, 96(%rsp); movups %xmm7, 112(%rsp)
    mov -8(%rbp), %rsi
    mov -16(%rbp), %rdx
    mov %r11, %rdi
    call resolveExport
    mov %rax, %r11
    movups 0(%rsp), %xmm0; movups 16(%rsp), %xmm1; movups 32(%rsp), %xmm2; movups 48(%rsp), %xmm3
    movups 64(%rsp), %xmm4; movups 80(%rsp), %xmm5; movups 96(%rsp), %xmm6; movups 112(%rsp), %xmm7
    add $128, %rsp
    pop %r10; pop %rax; pop %r9; pop %r8; pop %rcx; pop %rdx; pop %rsi; pop %rdi
    pop %rbp
    jmp *%r11
.popsection
)");

#define EXPORTED(number, name)                                                                     \
    asm(".pushsection .text\n.globl " #name "\n.type " #name ", @function\n.balign 16\n" #name     \
        ":\n  mov exportSlots+8*" #number "(%rip), %r11\n  test %r11, %r11\n  jz 1f\n"             \
        "  jmp *%r11\n1: mov $" #number ", %r11d\n  jmp firstCall\n.popsection");
#include "exports.inc"

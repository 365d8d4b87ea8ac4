// The exported functions, in the order of their names' numbers. Apart, for this file must not know
// their prototypes.
extern "C" {
#define EXPORTED(number, name) void name();
#include "exports.inc"
#undef EXPORTED

using Function = void (*)();
[[gnu::visibility("hidden")]] extern const Function exportedFunctions[] = {
#define EXPORTED(number, name) name,
#include "exports.inc"
#undef EXPORTED
};
}

// The tables indexed by opcode, from the list of operations.
#include "coding/fromWire.h"

const char* opNames[operationCount] = {
#define OPERATION(number, name, ...) #name,
#define BY_HAND(number, name, ...) #name,
#define UNPERFORMED(number, name, ...) #name,
#include "wire/operations.def"
};

glBufOp glWrappers[operationCount] = {
#define OPERATION(number, name, ...) _##name,
#define BY_HAND(number, name, ...) _##name,
#define UNPERFORMED(number, name, ...) _##name,
#include "wire/operations.def"
};

// A system library that draws nothing and records its calls, for whole jobs: set SYSTEM_OPENGL_LIB
// to it, and RECORDER_LOG to a file name, to which the task's MPI rank is appended ("log.1").
#include "support/recorder.h"

#include <cstdio>
#include <cstdlib>

// The library exports every operation by name. C++ cannot define functions from a list of their
// names alone, so each is a jump through its entry of the table (x86-64).
#define OPERATION(number, name, ...)                                                               \
    asm(".pushsection .text\n.globl " #name "\n.type " #name ", @function\n" #name                 \
        ": jmp *recordingTable+8*" #number "(%rip)\n.popsection");
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "wire/operations.def"

namespace {

std::FILE* openLog()
{
    const char* name = std::getenv("RECORDER_LOG");
    const char* rank = std::getenv("PMI_RANK");
    if (!name)
        return nullptr;
    return std::fopen((std::string(name) + "." + (rank ? rank : "0")).c_str(), "w");
}

void writeLine(const std::string& line)
{
    static std::FILE* const file = openLog();
    if (!file)
        return;
    std::fprintf(file, "%s\n", line.c_str());
    std::fflush(file); // the reader does not wait for the process to end
}

[[gnu::constructor]] void prepare() { recorder.log = writeLine; }

} // namespace

// Invariants that hold in every build type.
#pragma once

#include <source_location>

/// Reports `expression` with its place and, while a buffer is being decoded, the latest operations;
/// then ends the process with SIGABRT, so that MPI ends the job.
[[noreturn]] void invariantFailed(const char* expression, const char* source, int line,
                                  const char* function);

/// Ends the process unless `holds`. `expression` is the text that the message shows.
inline void require(bool holds, const char* expression,
                    std::source_location where = std::source_location::current())
{
    if (!holds) [[unlikely]]
        invariantFailed(expression, where.file_name(), static_cast<int>(where.line()),
                        where.function_name());
}

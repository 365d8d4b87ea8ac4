// What a node finds when it is asked whether it is ready for its server.
#pragma once

#include "tools/process.h"

#include <string>

/// Begins an answer: mark, server, whether it is a fault, samples of a pixel, a free port, width
/// and height of the screen (0: unknown), what there is to say.
inline constexpr char answerMark[] = "mosa-wall-probe";

/// For the nodes to answer, and for what each looks at.
inline constexpr Timeout probeTime = std::chrono::seconds(60);

/// A file's length and checksum: tells contents apart, not who made them.
std::string sumOf(const std::string& file);

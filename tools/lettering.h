// Letters of 5 x 7 blocks, for pictures and streams that must not depend on a font.
#pragma once

#include <functional>
#include <string_view>

inline constexpr int letterAdvance = 6; // blocks from letter to letter
inline constexpr int letterHeight = 7;

/// Calls `block(x, y, w)` for each horizontal run of blocks of a line of text: the run's left end
/// and its row, counted from the text's lower left corner upward, in blocks. Letters are capitals;
/// a character that there is no letter for leaves its place empty.
void letterBlocks(std::string_view text, const std::function<void(int x, int y, int w)>& block);

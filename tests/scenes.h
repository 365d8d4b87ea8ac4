// Scenes for the pixel tests: one feature each, drawn across the seams of every wall.
#pragma once

#include "client/programWindow.h"

#include <span>

/// The application window in which every scene draws, in pixels, and how large the wall is.
inline constexpr int sceneWidth = 240;
inline constexpr int sceneHeight = 180;
inline constexpr int wallScale = 3;

struct Scene {
    const char* name;
    void (*draw)();  // adds to the frame that frameOf makes
    int differs = 0; // pixels of all tiles together that may differ from one display
};

/// All scenes.
std::span<const Scene> allScenes();

/// A whole frame: creation of context and window, the scene, a swap.
CommandBuffer frameOf(const Scene& scene);

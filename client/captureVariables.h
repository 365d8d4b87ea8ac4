// The environment by which mosa-wall tells the capture library of a program how to capture it, and
// what people may set themselves to look for faults.
#pragma once

namespace captureVariables {

inline constexpr char socket[] = "MOSA_CAPTURE";        // path; without it nothing is captured
inline constexpr char ahead[] = "MOSA_CAPTURE_AHEAD";   // frames on their way to the wall at most
inline constexpr char frames[] = "MOSA_CAPTURE_FRAMES"; // so many, then the program is held; 0: all
inline constexpr char window[] = "MOSA_CAPTURE_WINDOW"; // largest, all, or a title
inline constexpr char showing[] = "MOSA_CAPTURE_AS";    // calls or pictures
inline constexpr char fit[] = "MOSA_CAPTURE_FIT";       // middle, corner or stretch
inline constexpr char enlarge[] = "MOSA_CAPTURE_ENLARGE"; // smooth, sharp or auto
inline constexpr char samples[] = "MOSA_CAPTURE_SAMPLES"; // of a pixel, that every server has
inline constexpr char wall[] = "MOSA_CAPTURE_WALL";       // its size, WxH
inline constexpr char patience[] =
    "MOSA_CAPTURE_PATIENCE"; // seconds to wait for the wall; 0: for ever
// Paths of the node's own libraries.
inline constexpr char glx[] = "MOSA_CAPTURE_GLX";
inline constexpr char openGL[] = "MOSA_CAPTURE_OPENGL";
inline constexpr char egl[] = "MOSA_CAPTURE_EGL";
// People's own: whatever is captured one call at a time; every reason for which something is not
// followed each time; how many MiB of draws from buffer objects servers keep as lists.
inline constexpr char serial[] = "MOSA_CAPTURE_SERIAL";
inline constexpr char verbose[] = "MOSA_CAPTURE_VERBOSE";
inline constexpr char keep[] = "MOSA_CAPTURE_KEEP";

} // namespace captureVariables

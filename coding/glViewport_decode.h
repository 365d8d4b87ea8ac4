#pragma once

/// The application's window size as the latest glViewport carried it. Neither pointer may be null.
void getCurrentAppWindowSize(int* w, int* h);

// Who may use the virtual displays: this process and what it starts, by a cookie for each display.
#pragma once

#include <string>

/// A display's cookie, 16 random bytes, in a file for its X server that is this user's alone.
struct DisplayCookie {
    std::string bytes, file;
};

/// Throws std::runtime_error.
DisplayCookie newCookie();

/// Lets this process, and what it starts from now on, use a display of this machine: its cookie is
/// put into a file that XAUTHORITY names, before the user's own. Throws std::runtime_error.
void useCookie(const DisplayCookie& cookie, const std::string& display);

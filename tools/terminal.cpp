#include "tools/terminal.h"

#include <fcntl.h>
#include <unistd.h>

Terminal keepTerminal()
{
    Terminal terminal;
    const int fd = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    // In the background the settings are another's: those of a shell that waits for a line.
    if (fd >= 0 && tcgetpgrp(fd) == getpgrp() && tcgetattr(fd, &terminal.settings) == 0)
        terminal.fd = fd;
    else if (fd >= 0)
        close(fd);
    return terminal;
}

void restoreTerminal(Terminal& terminal)
{
    if (terminal.fd < 0)
        return;
    if (tcgetpgrp(terminal.fd) == getpgrp())
        tcsetattr(terminal.fd, TCSANOW, &terminal.settings);
    close(terminal.fd);
    terminal.fd = -1;
}

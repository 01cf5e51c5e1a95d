#include "tools/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

TerminalSize AskTerminalSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {80, 24};
    return {size.ws_col, size.ws_row};
}

bool IsReaderGone() {
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

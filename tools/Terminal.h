/// What standard output is connected to.
#pragma once

struct TerminalSize {
    int columns;
    int rows;
};

/// As it is now; 80x24 where the terminal does not tell.
TerminalSize AskTerminalSize();

/// True when standard output is a pipe that nobody reads any more.
bool IsReaderGone();

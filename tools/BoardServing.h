/// vexa-board serve: keeps a board for the processes of this user until it is interrupted.
#pragma once

#include <cstdint>

#include "software_board/BoardOptions.h"

/// Exit status. Throws std::runtime_error with what is wrong and what to do.
int ServeBoard(uint16_t bus, const software_board::BoardOptions& options);

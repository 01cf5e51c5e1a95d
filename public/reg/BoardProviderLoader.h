/// Finds the board provider: VEXA_BOARD_PROVIDER=<name or path>[:argument], or libvexa_board.so when it is unset.
#pragma once

#include <string>

#include "public/reg/BoardProvider.h"

struct BoardProviderChoice {
    const VexaBoardProvider* provider = nullptr;
    std::string argument;  ///< the text behind the colon; empty when there is none
};

/// The process's provider; loaded on the first call that succeeds and kept. On failure `provider` is null and one
/// error line has said what was looked for and how to name another.
const BoardProviderChoice& LoadBoardProvider();

/// Why the library cannot use a table; empty when it can.
std::string FaultOfBoardProvider(const VexaBoardProvider* provider);

/// Why the provider's last call failed, as the tail of a log line (": held by process 7"). Empty when it does not tell.
std::string LastErrorOf(const VexaBoardProvider& provider);

/// Puts a provider in place without looking for one (tests, tools that bring their own board); null forgets it.
void UseBoardProvider(const VexaBoardProvider* provider, const char* argument = "");

/// The registers as a host sees them: plain ones keep what was written, some have a meaning of their own.
#pragma once

#include <cstdint>

#include "software_board/BoardMemory.h"

namespace software_board {

/// Begins a bring-up, or starts an engine.
constexpr uint32_t START_VALUE = 1;

/// Stores the value, or passes it to a table's port. True when the engine must act on it (IsCommand).
bool WriteRegister(BoardMemory& memory, uint32_t index, uint32_t value);

uint64_t ReadRegister(const BoardMemory& memory, uint32_t index);

inline bool IsBroken(const BoardMemory& memory, EBroken what) { return (Load(memory.registers.broken) & what) != 0; }

/// True once the host has written all that the feed's snapshot connection needs, since it was last forgotten.
bool IsProgrammed(BoardMemory& memory, EMDQPDataType feed);
void ForgetProgramming(BoardMemory& memory);

/// What a host is told whose opening is refused by a broken board.
const char* WhyRefused(EBroken what);

/// A register whose write makes the board do something: bring-up, snapshot phase, engine start.
bool IsCommand(uint32_t index);

}  // namespace software_board

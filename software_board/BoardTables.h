/// The four instrument tables of the board, behind the two-step access protocol and its ports.
#pragma once

#include <cstdint>

#include "software_board/BoardMemory.h"

namespace software_board::board_tables {

/// The eight registers of each engine.
bool IsPort(uint32_t index);

/// False when the write was refused: its port is closed.
bool Write(BoardMemory& memory, uint32_t index, uint32_t value);
uint32_t Read(const BoardMemory& memory, uint32_t index);

void OpenPorts(BoardMemory& memory);
bool IsOpen(const BoardMemory& memory, EMDQPDataType feed);

/// A slot's words one by one, whoever writes them meanwhile.
SInstTableType CopyOf(const SInstTableType& shared);
/// Writes the words that have changed since.
void Assign(SInstTableType& shared, const SInstTableType& before, const SInstTableType& after);

/// `instNo` must lie within the feed's table.
SInstTableType& Slot(BoardMemory& memory, EMDQPDataType feed, int32_t instNo);
const SInstTableType& Slot(const BoardMemory& memory, EMDQPDataType feed, int32_t instNo);

}  // namespace software_board::board_tables

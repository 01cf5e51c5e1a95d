/// The two-step access to a board table: the address write commits a word, or fetches one. Never interleave two
/// accesses to the same table.
#pragma once

#include "common/RegisterMap.h"
#include "public/reg/DriveRegEnyx.h"

namespace board_table {

inline void WriteWord(const CDrvRegEnyx& board, const reg::TableRegisters& port, uint32_t word, uint32_t value) {
    board.WriteRegister(port.writeData, value);
    board.WriteRegister(port.writeAddr, word);
}

inline void ReadWord(const CDrvRegEnyx& board, const reg::TableRegisters& port, uint32_t word, uint32_t& value) {
    board.WriteRegister(port.readAddr, word);
    board.ReadRegister(port.readData, value);
}

/// The host no longer edits the table until the next bring-up.
inline void Close(const CDrvRegEnyx& board, const reg::TableRegisters& port) {
    WriteWord(board, port, reg::PORT_CLOSE_ADDRESS, reg::PORT_CLOSE_DATA);
}

}  // namespace board_table

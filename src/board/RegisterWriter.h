/// The decoder's way to the board's registers.
#pragma once

#include "public/reg/DriveRegEnyx.h"
#include "src/snapshot/MdqpDecoder.h"

class CRegisterWriter final : public IRegisterWriter {
public:
    explicit CRegisterWriter(const CDrvRegEnyx& board) : m_board(board) {}
    void Write(uint32_t index, uint32_t value) override { m_board.WriteRegister(index, value); }

private:
    const CDrvRegEnyx& m_board;
};

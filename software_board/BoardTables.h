/// The four instrument tables of the board, behind the two-step access protocol and its ports.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "common/FpgaStructCommon.h"

namespace software_board {

class BoardTables {
public:
    BoardTables();

    /// The eight registers of each engine.
    static bool IsPort(uint32_t index) { return (index & ~7U) == ENGINE_2PS || (index & ~7U) == ENGINE_4PS; }

    /// False when the write was refused: its port is closed.
    bool Write(uint32_t index, uint32_t value);
    uint32_t Read(uint32_t index) const;

    void OpenPorts();
    bool IsOpen(EMDQPDataType feed) const { return m_tables[static_cast<std::size_t>(feed)].isOpen; }

    SInstTableType& Slot(EMDQPDataType feed, int32_t instNo) {
        return m_tables[static_cast<std::size_t>(feed)].slots[static_cast<std::size_t>(instNo)];
    }
    const SInstTableType& Slot(EMDQPDataType feed, int32_t instNo) const {
        return m_tables[static_cast<std::size_t>(feed)].slots[static_cast<std::size_t>(instNo)];
    }

private:
    static constexpr uint32_t ENGINE_2PS = 0x11000;
    static constexpr uint32_t ENGINE_4PS = 0x21000;

    struct Table {
        std::vector<SInstTableType> slots;
        uint32_t writeData = 0;
        uint32_t readAddress = 0;
        bool isOpen = false;
    };

    static std::size_t TableOf(uint32_t index);
    static bool WriteWord(Table& table, uint32_t word);

    std::array<Table, FEED_COUNT> m_tables;
};

}  // namespace software_board

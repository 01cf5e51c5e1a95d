/// A board that a target answers for: four tables and a register file, and every operation open to be answered
/// otherwise.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "testing/ProviderAdapter.h"

namespace fuzz {

class Board : public BoardOperations {
public:
    Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Registers as they were at first; a table's words hold what no session writes.
    void Clear();

    /// What a bring-up does.
    void ReopenTables();

    /// Opens the process's registers on this board.
    void Open();

    uint32_t TableWord(EMDQPDataType feed, std::size_t word) const { return m_tables[feed].words[word]; }
    bool IsTableClosed(EMDQPDataType feed) const { return m_tables[feed].isClosed; }

    std::map<uint32_t, uint32_t> registers;

    // Of either width, with results as the provider's operations give them.
    virtual int32_t Write(uint32_t index, uint32_t value);
    virtual int32_t Read(uint32_t index, uint64_t& value);

    /// Hands over a copy of which no more can be read than a provider promises.
    static void Hand(const std::vector<uint8_t>& message, VexaBoardMessageHandler handler, void* user);

private:
    struct Table {
        uint32_t first;  ///< register: write address, write data, read address, read data
        std::size_t slots;
        std::vector<uint32_t> words;
        uint32_t data = 0;
        uint32_t readAt = 0;
        bool isClosed = false;
    };

    int32_t Write32(VexaBoardRegisters*, uint32_t index, uint32_t value) final { return Write(index, value); }
    int32_t Read32(VexaBoardRegisters* area, uint32_t index, uint32_t* value) final;
    int32_t Read64(VexaBoardRegisters* area, uint32_t index, uint64_t* value) final;
    const char* LastError() final { return "as the input says"; }

    Table* TableOf(uint32_t index);

    std::array<Table, FEED_COUNT> m_tables;
    ProviderAdapter m_adapter{*this, "fuzz"};
};

}  // namespace fuzz

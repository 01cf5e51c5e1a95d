/// A board that a target answers for: four tables and a register file, and every operation open to be answered
/// otherwise. It counts what is open, so that a handle that is kept is seen.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "public/reg/BoardProvider.h"

namespace fuzz {

class Board {
public:
    Board();
    virtual ~Board();
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

    int openRegisters = 0;
    int openStreams = 0;
    uint64_t calls = 0;  ///< of all operations, in the board's life
    std::map<uint32_t, uint32_t> registers;

    // Results as the provider's operations give them.
    virtual int32_t OpenRegisters() { return 0; }
    virtual int32_t OpenStream() { return 0; }
    virtual int32_t Write(uint32_t index, uint32_t value);
    virtual int32_t Read(uint32_t index, uint64_t& value);
    virtual int32_t Receive(VexaBoardMessageHandler, void*) { return 0; }

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

    Table* TableOf(uint32_t index);

    std::array<Table, FEED_COUNT> m_tables;
};

}  // namespace fuzz

/// The instrument tables on their way to the board: pairs of accesses, ports open or closed, every word in its place.
/// Sits in the road of five million writes a start, so the usual case is a handful of comparisons.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/FpgaStructCommon.h"
#include "simulation/base/SessionPhase.h"

namespace simulation {

class TableRules {
public:
    static bool IsPort(uint32_t index) { return (index & ~7U) == 0x11000 || (index & ~7U) == 0x21000; }

    static bool IsWriteAddress(uint32_t index) { return (index & 3U) == 0; }
    static bool IsReadAddress(uint32_t index) { return (index & 3U) == 2; }

    /// The usual case alone: one half of a zero word's way to a slot that never held anything else, in its place. True
    /// when it was that; the board need not be told.
    bool TakesEmptyWord(uint32_t index, uint32_t value) {
        if (m_word < m_emptyFrom) return false;
        if (index == m_addressPort + 1 && value == 0 && m_pending == EPending::Nothing) {
            m_pending = EPending::EmptyData;
            return true;
        }
        if (index != m_addressPort || value != m_word || m_pending != EPending::EmptyData) return false;
        m_pending = EPending::Nothing;
        if (++m_word == m_wordsEnd) m_emptyFrom = UINT32_MAX;
        return true;
    }

    /// False when the board need not be told: a word's data before its address, or a zero on its way to a slot that
    /// never held anything else.
    bool OnWrite(uint32_t index, uint32_t value, ESessionPhase phase);
    void OnRead(uint32_t index);

    void OpenPorts();  ///< a bring-up begins
    void BeginTables(const std::array<bool, FEED_COUNT>& isEnabled, const std::array<int32_t, FEED_COUNT>& counts);
    void EndTables();

    /// The slot holds something that did not come through the port.
    void Touch(EMDQPDataType feed, int32_t slot) {
        m_touched[static_cast<std::size_t>(feed)] = std::max(m_touched[static_cast<std::size_t>(feed)], slot + 1);
    }
    /// One past the highest slot that ever held anything.
    int32_t SlotsTouched(EMDQPDataType feed) const { return m_touched[static_cast<std::size_t>(feed)]; }
    uint32_t Data() const { return m_data; }
    uint64_t Writes() const { return m_writes; }
    uint64_t Hash() const { return m_hash; }

private:
    enum class EPending : uint8_t { Nothing, Data, EmptyData, ReadAddress };

    void OnData(std::size_t table, uint32_t value, ESessionPhase phase);
    bool OnAddress(std::size_t table, uint32_t word, ESessionPhase phase);
    void OnReadAddress(std::size_t table);
    void BeginTable(std::size_t table);
    void Advance(std::size_t table, uint32_t word);
    bool IsOurs(std::size_t table) const { return m_pending == EPending::Nothing || m_pendingTable == table; }

    EPending m_pending = EPending::Nothing;
    std::size_t m_pendingTable = 0;
    uint32_t m_data = 0;
    std::array<bool, FEED_COUNT> m_isOpen{};
    std::array<uint32_t, FEED_COUNT> m_firstWord{};  ///< of the part of the table that must be written
    std::array<int32_t, FEED_COUNT> m_touched{};
    std::size_t m_table = FEED_COUNT;  ///< being written as a whole
    uint32_t m_word = 0;               ///< to be written next
    // Of the table being written, while its words are looked at the short way.
    uint32_t m_addressPort = 0;
    uint32_t m_emptyFrom = UINT32_MAX;
    uint32_t m_wordsEnd = 0;
    uint64_t m_writes = 0;
    uint64_t m_hash = 0;
};

}  // namespace simulation

#include "simulation/rules/TableRules.h"

#include <algorithm>

#include "simulation/base/EventTrace.h"
#include "simulation/rules/BoardMap.h"
#include "simulation/rules/Rules.h"

namespace simulation {
namespace {

enum EPort : uint32_t { WRITE_ADDRESS, WRITE_DATA, READ_ADDRESS, READ_DATA };
constexpr uint32_t INE_BIT = 4;
constexpr uint32_t ENGINE_4PS_BIT = 0x20000;
constexpr uint32_t PORT_MASK = 3;

std::size_t TableOf(uint32_t index) {
    const bool is4ps = (index & ENGINE_4PS_BIT) != 0;
    if ((index & INE_BIT) != 0) return is4ps ? INE_4PS : INE_2PS;
    return is4ps ? SHFE_4PS : SHFE_2PS;
}

uint32_t WordsOf(std::size_t table) { return static_cast<uint32_t>(board::FEEDS[table].slots) * WORDS_PER_SLOT; }

std::string TableName(std::size_t table) { return "table " + std::to_string(table); }

}  // namespace

bool TableRules::OnWrite(uint32_t index, uint32_t value, ESessionPhase phase) {
    ++m_writes;
    const std::size_t table = TableOf(index);
    switch (index & PORT_MASK) {
        case WRITE_DATA: OnData(table, value, phase); return false;
        case WRITE_ADDRESS: return OnAddress(table, value, phase);
        default: OnReadAddress(table); return true;
    }
}

void TableRules::OnData(std::size_t table, uint32_t value, ESessionPhase phase) {
    Require(phase == ESessionPhase::Tables || phase == ESessionPhase::Subscribing || phase == ESessionPhase::Engines,
            ERule::Order, [=] { return TableName(table) + " written in phase " + SessionPhaseName(phase); });
    Require(m_pending != EPending::ReadAddress && IsOurs(table), ERule::TablePairs,
            [=] { return "data for " + TableName(table) + " inside another access"; });
    m_pending = EPending::Data;
    m_pendingTable = table;
    m_data = value;
}

bool TableRules::OnAddress(std::size_t table, uint32_t word, ESessionPhase phase) {
    Require(m_pending == EPending::Data && m_pendingTable == table, ERule::TablePairs,
            [=] { return "address " + Hex(word) + " of " + TableName(table) + " without its data"; });
    m_pending = EPending::Nothing;
    Require(m_isOpen[table], ERule::RegisterMap,
            [=] { return "write to " + TableName(table) + " through its closed port"; });
    if (word == board::CLOSE_ADDRESS) {
        m_isOpen[table] = false;
        return true;
    }
    Require(word < WordsOf(table), ERule::RegisterMap,
            [=] { return "word " + Hex(word) + " is outside " + TableName(table); });
    if (phase == ESessionPhase::Tables) Advance(table, word);
    const auto slot = static_cast<int32_t>(word / WORDS_PER_SLOT);
    if (slot >= m_touched[table]) {
        if (m_data == 0) return false;
        m_touched[table] = slot + 1;
        if (m_table == table) m_emptyFrom = (word / WORDS_PER_SLOT + 1) * WORDS_PER_SLOT;
    }
    m_hash = Mix(m_hash, uint64_t{word} << 32 | m_data);
    return true;
}

void TableRules::OnReadAddress(std::size_t table) {
    Require(m_pending == EPending::Nothing, ERule::TablePairs,
            [=] { return "read address for " + TableName(table) + " inside another access"; });
    m_pending = EPending::ReadAddress;
    m_pendingTable = table;
}

void TableRules::OnRead(uint32_t index) {
    const std::size_t table = TableOf(index);
    Require((index & PORT_MASK) == READ_DATA, ERule::RegisterMap, [=] { return "read of register " + Hex(index); });
    Require(m_pending == EPending::ReadAddress && m_pendingTable == table, ERule::TablePairs,
            [=] { return "data read from " + TableName(table) + " without its address"; });
    m_pending = EPending::Nothing;
}

void TableRules::OpenPorts() {
    m_emptyFrom = UINT32_MAX;
    m_isOpen.fill(true);
    m_pending = EPending::Nothing;
}

// A feed that is not enabled keeps its used slots as they were.
void TableRules::BeginTables(const std::array<bool, FEED_COUNT>& isEnabled,
                             const std::array<int32_t, FEED_COUNT>& counts) {
    for (std::size_t table = 0; table < FEED_COUNT; ++table) {
        m_firstWord[table] = isEnabled[table] ? 0 : static_cast<uint32_t>(counts[table]) * WORDS_PER_SLOT;
    }
    BeginTable(0);
}

void TableRules::BeginTable(std::size_t table) {
    m_table = table;
    m_word = m_firstWord[table];
    m_addressPort = board::FEEDS[table].table;
    m_wordsEnd = WordsOf(table);
    m_emptyFrom = static_cast<uint32_t>(m_touched[table]) * WORDS_PER_SLOT;
}

void TableRules::Advance(std::size_t table, uint32_t word) {
    if (m_word == WordsOf(m_table) && m_table + 1 < FEED_COUNT) BeginTable(m_table + 1);
    Require(table == m_table && word == m_word, ERule::Tables, [=, this] {
        return TableName(table) + " word " + Hex(word) + " written where " + TableName(m_table) + " word " +
               Hex(m_word) + " was next";
    });
    ++m_word;
}

void TableRules::EndTables() {
    m_emptyFrom = UINT32_MAX;
    const bool isComplete = m_table + 1 == FEED_COUNT && m_word == WordsOf(m_table);
    Require(isComplete, ERule::Tables,
            [this] { return "writing ended at " + TableName(m_table) + " word " + Hex(m_word); });
}

}  // namespace simulation

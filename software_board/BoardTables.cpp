#include "software_board/BoardTables.h"

#include <cstring>

#include "src/RegisterMap.h"

namespace software_board {

namespace {
enum PortRegister : uint32_t { WRITE_ADDRESS = 0, WRITE_DATA = 1, READ_ADDRESS = 2, READ_DATA = 3 };
constexpr uint32_t INE_PORT_BIT = 4;
constexpr uint32_t PORT_MASK = 3;
}  // namespace

static_assert(reg::FEEDS[SHFE_2PS].table.writeAddr == 0x11000 && reg::FEEDS[INE_2PS].table.writeAddr == 0x11004);
static_assert(reg::FEEDS[SHFE_4PS].table.writeAddr == 0x21000 && reg::FEEDS[INE_4PS].table.writeAddr == 0x21004);

BoardTables::BoardTables() {
    for (std::size_t feed = 0; feed < m_tables.size(); ++feed) {
        m_tables[feed].slots.resize(static_cast<std::size_t>(reg::FEEDS[feed].capacity));
    }
}

void BoardTables::OpenPorts() {
    for (Table& table : m_tables) table.isOpen = true;
}

std::size_t BoardTables::TableOf(uint32_t index) {
    const bool isIne = (index & INE_PORT_BIT) != 0;
    const bool is4ps = (index & ~7U) == ENGINE_4PS;
    return static_cast<std::size_t>(isIne ? (is4ps ? INE_4PS : INE_2PS) : (is4ps ? SHFE_4PS : SHFE_2PS));
}

bool BoardTables::Write(uint32_t index, uint32_t value) {
    Table& table = m_tables[TableOf(index)];
    switch (index & PORT_MASK) {
        case WRITE_DATA: table.writeData = value; return true;
        case WRITE_ADDRESS: return WriteWord(table, value);
        case READ_ADDRESS: table.readAddress = value; return true;
        default: return true;
    }
}

bool BoardTables::WriteWord(Table& table, uint32_t word) {
    if (!table.isOpen) return false;
    if (word == reg::PORT_CLOSE_ADDRESS) {
        if (table.writeData == reg::PORT_CLOSE_DATA) table.isOpen = false;
        return true;
    }
    if (word / WORDS_PER_SLOT >= table.slots.size()) return true;
    auto* slot = reinterpret_cast<unsigned char*>(&table.slots[word / WORDS_PER_SLOT]);
    std::memcpy(slot + word % WORDS_PER_SLOT * sizeof(uint32_t), &table.writeData, sizeof(uint32_t));
    return true;
}

uint32_t BoardTables::Read(uint32_t index) const {
    const Table& table = m_tables[TableOf(index)];
    if ((index & PORT_MASK) != READ_DATA || table.readAddress / WORDS_PER_SLOT >= table.slots.size()) return 0;
    const auto* slot = reinterpret_cast<const unsigned char*>(&table.slots[table.readAddress / WORDS_PER_SLOT]);
    uint32_t value = 0;
    std::memcpy(&value, slot + table.readAddress % WORDS_PER_SLOT * sizeof(uint32_t), sizeof value);
    return value;
}

}  // namespace software_board

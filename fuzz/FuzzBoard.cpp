#include "fuzz/FuzzBoard.h"

#include <algorithm>
#include <memory>

#include "fuzz/Oracle.h"

namespace fuzz {
namespace {
constexpr uint32_t STRANGE_WORD = 0xA5A5A5A5U;
}  // namespace

Board::Board()
    : m_tables{{{0x11000, SHFE_INST_CAPACITY, {}},
                {0x21000, SHFE_INST_CAPACITY, {}},
                {0x11004, INE_INST_CAPACITY, {}},
                {0x21004, INE_INST_CAPACITY, {}}}} {
    Clear();
}

void Board::Clear() {
    registers.clear();
    for (Table& table : m_tables) table.words.assign(table.slots * WORDS_PER_SLOT, STRANGE_WORD);
    ReopenTables();
}

void Board::ReopenTables() {
    for (Table& table : m_tables) table.isClosed = false;
}

void Board::Open() { FUZZ_REQUIRE(CDrvRegEnyx::GetInstance().Init(0, 0) == 0); }

int32_t Board::Read32(VexaBoardRegisters* area, uint32_t index, uint32_t* value) {
    uint64_t read = *value;
    const int32_t result = Read64(area, index, &read);
    *value = static_cast<uint32_t>(read);
    return result;
}

int32_t Board::Read64(VexaBoardRegisters*, uint32_t index, uint64_t* value) {
    uint64_t read = 0;
    const int32_t result = Read(index, read);
    if (result == 0) *value = read;
    return result;
}

Board::Table* Board::TableOf(uint32_t index) {
    const auto found =
        std::find_if(m_tables.begin(), m_tables.end(), [=](const Table& table) { return index - table.first < 4; });
    return found == m_tables.end() ? nullptr : &*found;
}

int32_t Board::Write(uint32_t index, uint32_t value) {
    Table* table = TableOf(index);
    if (table == nullptr) {
        registers[index] = value;
        return 0;
    }
    switch (index - table->first) {
        case 0:
            if (value == 0xFFFFFFFFU && table->data == 1) {
                table->isClosed = true;
            } else {
                FUZZ_REQUIRE(value < table->words.size());
                table->words[value] = table->data;
            }
            break;
        case 1: table->data = value; break;
        case 2:
            FUZZ_REQUIRE(value < table->words.size());
            table->readAt = value;
            break;
        default: break;
    }
    return 0;
}

int32_t Board::Read(uint32_t index, uint64_t& value) {
    if (const Table* table = TableOf(index)) {
        value = table->words[table->readAt];
        return 0;
    }
    const auto found = registers.find(index);
    if (found != registers.end()) value = found->second;
    return 0;
}

void Board::Hand(const std::vector<uint8_t>& message, VexaBoardMessageHandler handler, void* user) {
    const std::size_t readable = std::max<std::size_t>(message.size(), DMA_READABLE_BYTES);
    const std::unique_ptr<uint8_t[]> block(new uint8_t[readable]());
    std::copy(message.begin(), message.end(), block.get());
    handler(block.get(), static_cast<unsigned int>(message.size()), user);
}

}  // namespace fuzz

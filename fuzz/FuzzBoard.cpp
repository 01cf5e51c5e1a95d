// The one board of a fuzz target and the provider's table that leads to it.
#include "fuzz/FuzzBoard.h"

#include <algorithm>
#include <memory>

#include "fuzz/Oracle.h"
#include "public/reg/BoardProviderLoader.h"
#include "public/reg/DriveRegEnyx.h"

namespace fuzz {
namespace {

constexpr uint32_t STRANGE_WORD = 0xA5A5A5A5U;

Board* g_board = nullptr;
int g_handle = 0;

int32_t OpenRegisters(const char*, uint16_t, uint16_t, VexaBoardRegisters** registers) {
    ++g_board->calls;
    const int32_t result = g_board->OpenRegisters();
    if (result != 0) return result;
    ++g_board->openRegisters;
    *registers = reinterpret_cast<VexaBoardRegisters*>(&g_handle);
    return 0;
}

void CloseRegisters(VexaBoardRegisters*) { --g_board->openRegisters; }

int32_t Write32(VexaBoardRegisters*, uint32_t index, uint32_t value) {
    ++g_board->calls;
    return g_board->Write(index, value);
}

int32_t DoRead64(VexaBoardRegisters*, uint32_t index, uint64_t* value) {
    ++g_board->calls;
    uint64_t read = 0;
    const int32_t result = g_board->Read(index, read);
    if (result == 0) *value = read;
    return result;
}

int32_t DoRead32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
    uint64_t read = *value;
    const int32_t result = DoRead64(registers, index, &read);
    *value = static_cast<uint32_t>(read);
    return result;
}

int32_t OpenStream(const char*, uint16_t, const char*, VexaBoardStream** stream) {
    ++g_board->calls;
    const int32_t result = g_board->OpenStream();
    if (result != 0) return result;
    ++g_board->openStreams;
    *stream = reinterpret_cast<VexaBoardStream*>(&g_handle);
    return 0;
}

void CloseStream(VexaBoardStream*) { --g_board->openStreams; }

int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler handler, void* user) {
    ++g_board->calls;
    return g_board->Receive(handler, user);
}

const char* LastError() { return "as the input says"; }

constexpr VexaBoardProvider PROVIDER{VEXA_BOARD_PROVIDER_VERSION,
                                     sizeof(VexaBoardProvider),
                                     "fuzz",
                                     OpenRegisters,
                                     CloseRegisters,
                                     Write32,
                                     DoRead32,
                                     DoRead64,
                                     OpenStream,
                                     CloseStream,
                                     Receive,
                                     LastError};

}  // namespace

Board::Board()
    : m_tables{{{0x11000, SHFE_INST_CAPACITY, {}},
                {0x21000, SHFE_INST_CAPACITY, {}},
                {0x11004, INE_INST_CAPACITY, {}},
                {0x21004, INE_INST_CAPACITY, {}}}} {
    Clear();
    g_board = this;
    UseBoardProvider(&PROVIDER);
}

Board::~Board() {
    CDrvRegEnyx::GetInstance().Destory();
    UseBoardProvider(nullptr);
    g_board = nullptr;
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

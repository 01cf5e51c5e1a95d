#include "software_board/BoardTables.h"

#include <array>
#include <bit>

#include "common/Feed.h"
#include "common/RegisterMap.h"

namespace software_board::board_tables {

namespace {

constexpr uint32_t ENGINE_2PS = 0x11000;
constexpr uint32_t ENGINE_4PS = 0x21000;
constexpr uint32_t INE_PORT_BIT = 4;
constexpr uint32_t PORT_MASK = 3;
constexpr uint32_t ENGINE_MASK = ~7U;
enum PortRegister : uint32_t { WRITE_ADDRESS = 0, WRITE_DATA = 1, READ_ADDRESS = 2, READ_DATA = 3 };

static_assert(TraitsOf(SHFE_2PS).registers.table.writeAddr == ENGINE_2PS);
static_assert(TraitsOf(SHFE_4PS).registers.table.writeAddr == ENGINE_4PS);
static_assert(TraitsOf(INE_2PS).registers.table.writeAddr == (ENGINE_2PS | INE_PORT_BIT));
static_assert(TraitsOf(INE_4PS).registers.table.writeAddr == (ENGINE_4PS | INE_PORT_BIT));

EMDQPDataType FeedOfPort(uint32_t index) {
    const bool isIne = (index & INE_PORT_BIT) != 0;
    const bool is4ps = (index & ENGINE_MASK) == ENGINE_4PS;
    return isIne ? (is4ps ? INE_4PS : INE_2PS) : (is4ps ? SHFE_4PS : SHFE_2PS);
}

std::size_t FirstSlot(EMDQPDataType feed) {
    std::size_t first = 0;
    for (std::size_t before = 0; before < IndexOf(feed); ++before) {
        first += static_cast<std::size_t>(FEEDS[before].capacity);
    }
    return first;
}

bool IsInTable(EMDQPDataType feed, uint32_t word) {
    return word / WORDS_PER_SLOT < static_cast<uint32_t>(TraitsOf(feed).capacity);
}

TablePortState& PortOf(BoardMemory& memory, EMDQPDataType feed) { return memory.registers.ports[IndexOf(feed)]; }

/// A slot as the host and the tools see it: words, whatever members they make up.
using SlotWord [[gnu::may_alias]] = uint32_t;
using SlotPair [[gnu::may_alias]] = uint64_t;  // two words at once, where a whole slot is copied
using SlotWords = std::array<uint64_t, WORDS_PER_SLOT / 2>;
static_assert(offsetof(BoardMemory, slots) % sizeof(uint64_t) == 0 && sizeof(SlotWords) == sizeof(SInstTableType));

const SlotWord* WordsOf(const SInstTableType& slot) { return reinterpret_cast<const SlotWord*>(&slot); }
SlotWord* WordsOf(SInstTableType& slot) { return reinterpret_cast<SlotWord*>(&slot); }

bool WriteWord(BoardMemory& memory, EMDQPDataType feed, uint32_t word) {
    TablePortState& port = PortOf(memory, feed);
    if (Load(port.isOpen) == 0) return false;
    const uint32_t value = Load(port.writeData);
    if (word == reg::PORT_CLOSE_ADDRESS) {
        if (value == reg::PORT_CLOSE_DATA) Store(port.isOpen, 0U);
        return true;
    }
    if (!IsInTable(feed, word)) return true;
    SInstTableType& slot = memory.slots[FirstSlot(feed) + word / WORDS_PER_SLOT];
    __atomic_store_n(WordsOf(slot) + word % WORDS_PER_SLOT, value, __ATOMIC_RELAXED);
    return true;
}

}  // namespace

bool IsPort(uint32_t index) { return (index & ENGINE_MASK) == ENGINE_2PS || (index & ENGINE_MASK) == ENGINE_4PS; }

bool Write(BoardMemory& memory, uint32_t index, uint32_t value) {
    const EMDQPDataType feed = FeedOfPort(index);
    switch (index & PORT_MASK) {
        case WRITE_DATA: Store(PortOf(memory, feed).writeData, value); return true;
        case WRITE_ADDRESS: return WriteWord(memory, feed, value);
        case READ_ADDRESS: Store(PortOf(memory, feed).readAddress, value); return true;
        default: return true;
    }
}

uint32_t Read(const BoardMemory& memory, uint32_t index) {
    const EMDQPDataType feed = FeedOfPort(index);
    const uint32_t word = Load(memory.registers.ports[IndexOf(feed)].readAddress);
    if ((index & PORT_MASK) != READ_DATA || !IsInTable(feed, word)) return 0;
    const SInstTableType& slot = memory.slots[FirstSlot(feed) + word / WORDS_PER_SLOT];
    return __atomic_load_n(WordsOf(slot) + word % WORDS_PER_SLOT, __ATOMIC_RELAXED);
}

SInstTableType CopyOf(const SInstTableType& shared) {
    SlotWords words;
    const auto* from = reinterpret_cast<const SlotPair*>(&shared);
    for (std::size_t pair = 0; pair < words.size(); ++pair)
        words[pair] = __atomic_load_n(from + pair, __ATOMIC_RELAXED);
    return std::bit_cast<SInstTableType>(words);
}

void Assign(SInstTableType& shared, const SInstTableType& before, const SInstTableType& after) {
    const auto old = std::bit_cast<SlotWords>(before);
    const auto words = std::bit_cast<SlotWords>(after);
    auto* to = reinterpret_cast<SlotPair*>(&shared);
    for (std::size_t pair = 0; pair < words.size(); ++pair) {
        if (old[pair] != words[pair]) __atomic_store_n(to + pair, words[pair], __ATOMIC_RELAXED);
    }
}

void OpenPorts(BoardMemory& memory) {
    for (TablePortState& port : memory.registers.ports) Store(port.isOpen, 1U);
}

bool IsOpen(const BoardMemory& memory, EMDQPDataType feed) {
    return Load(memory.registers.ports[IndexOf(feed)].isOpen) != 0;
}

SInstTableType& Slot(BoardMemory& memory, EMDQPDataType feed, int32_t instNo) {
    return memory.slots[FirstSlot(feed) + static_cast<std::size_t>(instNo)];
}

const SInstTableType& Slot(const BoardMemory& memory, EMDQPDataType feed, int32_t instNo) {
    return memory.slots[FirstSlot(feed) + static_cast<std::size_t>(instNo)];
}

}  // namespace software_board::board_tables

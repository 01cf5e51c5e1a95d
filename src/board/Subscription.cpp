#include "src/board/Subscription.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "public/log/LogLine.h"
#include "src/board/BoardTable.h"
#include "src/snapshot/InstId.h"

namespace {

bool IsChannel(int32_t channel) { return channel >= 0 && channel < CHANNEL_SIZE; }

uint32_t Capped(uint32_t count, const char* name, int32_t capacity) {
    if (count <= static_cast<uint32_t>(capacity)) return count;
    VEXA_LOG_AS("_ContractSubscribeManager", LOG_INFO, "if %s > %d, set %s = %d.", name, capacity, name, capacity);
    return static_cast<uint32_t>(capacity);
}

}  // namespace

void CSubscription::Renew(int32_t channel) {
    if (!IsChannel(channel)) return;
    uint32_t shfeInstCount = 0;
    uint32_t ineInstCount = 0;
    m_board.ReadRegister(reg::SHFE_INST_COUNT, shfeInstCount);
    m_board.ReadRegister(reg::INE_INST_COUNT, ineInstCount);
    shfeInstCount = Capped(shfeInstCount, "shfeInstCount", SHFE_INST_CAPACITY);
    ineInstCount = Capped(ineInstCount, "ineInstCount", INE_INST_CAPACITY);
    for (const FeedTraits& feed : FEEDS) {
        const uint32_t count = IsShfe(feed.feed) ? shfeInstCount : ineInstCount;
        Unsubscribe(feed.feed, feed.registers.table, static_cast<int32_t>(count), channel);
    }
    std::vector<CInstrumentType> entries;
    m_config.channelInfo[channel].insts.SplitByChar(entries, ',');
    if (entries.empty()) return;
    CSelection shfe = SelectionOf(SHFE_2PS, SHFE_4PS, static_cast<int32_t>(shfeInstCount), channel);
    CSelection ine = SelectionOf(INE_2PS, INE_4PS, static_cast<int32_t>(ineInstCount), channel);
    for (const CInstrumentType& entry : entries) {
        VEXA_LOG_AS("_ContractSubscribeManager", LOG_INFO, "shfeInstCount[%u] ineInstCount[%u] listen_insts[%s]",
                    shfeInstCount, ineInstCount, entry.data());
        SubscribeSelected(shfe, channel, {entry.data(), entry.Length()});
        SubscribeSelected(ine, channel, {entry.data(), entry.Length()});
    }
}

// What a channel may have of an exchange's two feeds, slot by slot in turn.
CSelection CSubscription::SelectionOf(EMDQPDataType feed2ps, EMDQPDataType feed4ps, int32_t count, int32_t channel) {
    CSelection selection(m_config.channelInfo[channel]);
    for (int32_t instNo = 0; instNo < count; ++instNo) {
        for (const EMDQPDataType feed : {feed2ps, feed4ps}) {
            if (!HasFeed(m_config.enabled_mask, feed)) continue;
            const std::string_view id = InstId(m_store.Table(feed)[instNo]);
            if (!HasPriceError(id)) selection.Add({id, instNo, feed});
        }
    }
    selection.Sort();
    return selection;
}

bool CSubscription::HasPriceError(std::string_view id) const {
    return !m_priceErrors.empty() && m_priceErrors.count(std::string(id)) != 0;
}

void CSubscription::SubscribeSelected(CSelection& selection, int32_t channel, std::string_view entry) {
    for (const CSelection::Slot& slot : selection.Of(entry)) {
        Subscribe(slot.feed, TraitsOf(slot.feed).registers.table, slot.instNo, channel, entry);
    }
}

void CSubscription::Unsubscribe(EMDQPDataType feed, const reg::TableRegisters& registers, int32_t count,
                                int32_t channel) {
    if (!IsChannel(channel)) return;
    m_store.Touch(feed, count);
    SInstTableType* table = m_store.Table(feed);
    for (int32_t i = 0; i < std::min(count, TraitsOf(feed).capacity); ++i) {
        const uint32_t first = static_cast<uint32_t>(i) * WORDS_PER_SLOT;
        uint32_t words[WORDS_PER_SLOT];
        std::memcpy(words, &table[i], sizeof words);  // a word that cannot be read stays as it is
        for (uint32_t word = 0; word < WORDS_PER_SLOT; ++word) {
            board_table::ReadWord(m_board, registers, first + word, words[word]);
        }
        std::memcpy(&table[i], words, sizeof words);
        const uint32_t config = table[i].config & ~(uint32_t{1} << channel);
        m_board.WriteRegister(registers.writeData, config);
        // A slot that no channel wants any more is switched off entirely.
        if (config == SLOT_IN_USE) m_board.WriteRegister(registers.writeData, 0);
        m_board.WriteRegister(registers.writeAddr, first);
    }
}

void CSubscription::Subscribe(EMDQPDataType feed, const reg::TableRegisters& registers, int32_t instNo, int32_t channel,
                              std::string_view entry) {
    if (instNo < 0 || instNo >= TraitsOf(feed).capacity || !IsChannel(channel)) return;
    SInstTableType& slot = m_store.Table(feed)[instNo];
    const std::string id(InstId(slot));
    if (!IsSelected(m_config.channelInfo[channel], id, entry)) return;
    if (HasPriceError(id)) return;

    const uint32_t word = static_cast<uint32_t>(instNo) * WORDS_PER_SLOT;
    uint32_t config = slot.config;
    board_table::ReadWord(m_board, registers, word, config);
    config = IsTas(id) ? config | SLOT_TAS : config & ~SLOT_TAS;
    config |= SLOT_IN_USE | (uint32_t{1} << channel);
    const auto tell = [&] {
        VEXA_LOG_AS("_ContractSubscribe", LOG_DEBUG, "subscribe %s %d %u", id.c_str(), static_cast<int32_t>(word),
                    config);
    };
    tell();
    board_table::WriteWord(m_board, registers, word, config);
    board_table::ReadWord(m_board, registers, word, config);
    slot.config = config;
    tell();
}

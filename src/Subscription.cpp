// Which user channel wants which instrument: one bit per channel in each slot's control word on the board.
// Runs on the thread that starts or receives, after the tables are on the board. Host slots serve as the buffer.
// Invariant: an instrument that failed the price check is never subscribed; no slot outside a table is touched.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "public/log/LogLine.h"
#include "src/BoardTable.h"
#include "src/Selection.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

std::string_view InstId(const SInstTableType& slot) {
    return {slot.inst_id, strnlen(slot.inst_id, sizeof slot.inst_id)};
}

bool IsChannel(int32_t channel) { return channel >= 0 && channel < CHANNEL_SIZE; }

}  // namespace

int32_t CVexaShfeMdApiImpl::_ContractSubscribeManager(int32_t channel) {
    if (!IsChannel(channel)) return 0;
    uint32_t shfeInstCount = 0;
    uint32_t ineInstCount = 0;
    m_drvRegEnyx.ReadRegister(reg::SHFE_INST_COUNT, shfeInstCount);
    m_drvRegEnyx.ReadRegister(reg::INE_INST_COUNT, ineInstCount);
    if (shfeInstCount > SHFE_INST_CAPACITY) {
        VEXA_LOG(LOG_INFO, "if shfeInstCount > %d, set shfeInstCount = %d.", SHFE_INST_CAPACITY, SHFE_INST_CAPACITY);
        shfeInstCount = SHFE_INST_CAPACITY;
    }
    if (ineInstCount > INE_INST_CAPACITY) {
        VEXA_LOG(LOG_INFO, "if ineInstCount > %d, set ineInstCount = %d.", INE_INST_CAPACITY, INE_INST_CAPACITY);
        ineInstCount = INE_INST_CAPACITY;
    }
    const auto countOf = [&](EMDQPDataType feed) {
        return static_cast<int32_t>(TraitsOf(feed).capacity == SHFE_INST_CAPACITY ? shfeInstCount : ineInstCount);
    };
    for (const EMDQPDataType feed : ALL_FEEDS) {
        const reg::TableRegisters& port = TraitsOf(feed).registers.table;
        _ContractUnsubscribe(FeedTable(m_u50InstTable, feed), port.readAddr, port.readData, port.writeAddr,
                             port.writeData, countOf(feed), channel);
    }
    std::vector<CInstrumentType> entries;
    m_u50ConfigInfo.channelInfo[channel].insts.SplitByChar(entries, ',');
    if (entries.empty()) return 0;
    CSelection shfe = _SelectionOf(SHFE_2PS, SHFE_4PS, static_cast<int32_t>(shfeInstCount), channel);
    CSelection ine = _SelectionOf(INE_2PS, INE_4PS, static_cast<int32_t>(ineInstCount), channel);
    for (CInstrumentType& entry : entries) {
        VEXA_LOG(LOG_INFO, "shfeInstCount[%u] ineInstCount[%u] listen_insts[%s]", shfeInstCount, ineInstCount,
                 entry.data());
        _SubscribeSelected(shfe, channel, entry);
        _SubscribeSelected(ine, channel, entry);
    }
    return 0;
}

// What a channel may have of an exchange's two feeds, slot by slot in turn.
CSelection CVexaShfeMdApiImpl::_SelectionOf(EMDQPDataType feed2ps, EMDQPDataType feed4ps, int32_t count,
                                            int32_t channel) {
    CSelection selection(m_u50ConfigInfo.channelInfo[channel]);
    for (int32_t instNo = 0; instNo < count; ++instNo) {
        for (const EMDQPDataType feed : {feed2ps, feed4ps}) {
            if (!HasFeed(m_u50ConfigInfo.enabled_mask, feed)) continue;
            const std::string_view id = InstId(FeedTable(m_u50InstTable, feed)[instNo]);
            if (!_HasPriceError(id)) selection.Add({id, instNo, feed});
        }
    }
    selection.Sort();
    return selection;
}

bool CVexaShfeMdApiImpl::_HasPriceError(std::string_view id) const {
    return !m_setPriceErrorInstId.empty() && m_setPriceErrorInstId.count(std::string(id)) != 0;
}

void CVexaShfeMdApiImpl::_SubscribeSelected(CSelection& selection, int32_t channel, CInstrumentType& entry) {
    for (const CSelection::Slot& slot : selection.Of({entry.data(), entry.Length()})) {
        const reg::TableRegisters& port = TraitsOf(slot.feed).registers.table;
        _ContractSubscribe(FeedTable(m_u50InstTable, slot.feed), true, port.readAddr, port.readData, port.writeAddr,
                           port.writeData, slot.instNo, channel, entry);
    }
}

int32_t CVexaShfeMdApiImpl::_ContractUnsubscribe(SInstTableType* table, uint32_t readAddrReg, uint32_t readDataReg,
                                                 uint32_t writeAddrReg, uint32_t writeDataReg, int32_t count,
                                                 int32_t channel) {
    const std::optional<EMDQPDataType> feed = FeedOfTable(m_u50InstTable, table);
    if (!feed || !IsChannel(channel)) return 0;
    const reg::TableRegisters port{writeAddrReg, writeDataReg, readAddrReg, readDataReg};
    _MarkSlots(*feed, count);
    for (int32_t i = 0; i < std::min(count, TraitsOf(*feed).capacity); ++i) {
        const uint32_t first = static_cast<uint32_t>(i) * WORDS_PER_SLOT;
        uint32_t words[WORDS_PER_SLOT];
        std::memcpy(words, &table[i], sizeof words);  // a word that cannot be read stays as it is
        for (uint32_t word = 0; word < WORDS_PER_SLOT; ++word) {
            board_table::ReadWord(m_drvRegEnyx, port, first + word, words[word]);
        }
        std::memcpy(&table[i], words, sizeof words);
        const uint32_t config = table[i].config & ~(uint32_t{1} << channel);
        m_drvRegEnyx.WriteRegister(writeDataReg, config);
        // A slot that no channel wants any more is switched off entirely.
        if (config == SLOT_IN_USE) m_drvRegEnyx.WriteRegister(writeDataReg, 0);
        m_drvRegEnyx.WriteRegister(writeAddrReg, first);
    }
    return 0;
}

int32_t CVexaShfeMdApiImpl::_ContractSubscribe(SInstTableType* table, bool enabled, uint32_t readAddrReg,
                                               uint32_t readDataReg, uint32_t writeAddrReg, uint32_t writeDataReg,
                                               int32_t instNo, int32_t channel, CInstrumentType& entry) {
    const std::optional<EMDQPDataType> feed = FeedOfTable(m_u50InstTable, table);
    if (!enabled || !feed || instNo < 0 || instNo >= TraitsOf(*feed).capacity || !IsChannel(channel)) return 0;
    SInstTableType& slot = table[instNo];
    const std::string id(InstId(slot));
    if (!IsSelected(m_u50ConfigInfo.channelInfo[channel], id, {entry.data(), entry.Length()})) return 0;
    if (_HasPriceError(id)) return 0;

    const reg::TableRegisters port{writeAddrReg, writeDataReg, readAddrReg, readDataReg};
    const uint32_t word = static_cast<uint32_t>(instNo) * WORDS_PER_SLOT;
    uint32_t config = slot.config;
    board_table::ReadWord(m_drvRegEnyx, port, word, config);
    config = isShfeTasInst(id) ? config | SLOT_TAS : config & ~SLOT_TAS;
    config |= SLOT_IN_USE | (uint32_t{1} << channel);
    VEXA_LOG(LOG_DEBUG, "subscribe %s %d %u", id.c_str(), static_cast<int32_t>(word), config);
    board_table::WriteWord(m_drvRegEnyx, port, word, config);
    board_table::ReadWord(m_drvRegEnyx, port, word, config);
    slot.config = config;
    VEXA_LOG(LOG_DEBUG, "subscribe %s %d %u", id.c_str(), static_cast<int32_t>(word), config);
    return 0;
}

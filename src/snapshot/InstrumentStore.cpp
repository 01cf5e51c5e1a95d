#include "src/snapshot/InstrumentStore.h"

#include <algorithm>
#include <cstring>

#include "public/log/LogLine.h"

bool CInstrumentStore::shfe_cnt_flag = true;
bool CInstrumentStore::ine_cnt_flag = true;
bool CInstrumentStore::shfe_cnt_80_flag = true;
bool CInstrumentStore::ine_cnt_80_flag = true;

bool CInstrumentStore::Find(uint16_t port, EMDQPDataType& feed) const {
    if (port == 0) return false;  // 0 stands for a port that is not known
    for (const FeedTraits& candidate : FEEDS) {
        if (m_state.ports.*candidate.dstPort != port) continue;
        feed = candidate.feed;
        return true;
    }
    return false;
}

bool CInstrumentStore::Protect(EMDQPDataType feed, int32_t instNo) {
    constexpr const char* OPERATION = "_ProtectInstNo";
    if (IndexOf(feed) >= FEEDS.size()) {
        VEXA_LOG_AS(OPERATION, LOG_INFO, "refMDQPDataType is error, %d.", static_cast<int>(feed));
        return false;
    }
    if (instNo < TraitsOf(feed).capacity) return true;
    bool& isToTell = IsShfe(feed) ? shfe_cnt_flag : ine_cnt_flag;
    if (isToTell && IsShfe(feed)) {
        VEXA_LOG_AS(OPERATION, LOG_WARNING, "shfe inst_no[%d] is out of range [%d]", instNo, SHFE_INST_CAPACITY);
    } else if (isToTell) {
        VEXA_LOG_AS(OPERATION, LOG_WARNING, "ine inst_no[%d] is out of range  [%d]", instNo, INE_INST_CAPACITY);
    }
    isToTell = false;
    return false;
}

SInstTableType* CInstrumentStore::Slot(EMDQPDataType feed, int32_t instNo) {
    SInstTableType* table = Table(feed);
    if (table == nullptr || instNo < 0 || instNo >= TraitsOf(feed).capacity) return nullptr;
    Touch(feed, instNo + 1);
    return table + instNo;
}

void CInstrumentStore::Touch(EMDQPDataType feed, int32_t slots) {
    int32_t& touched = m_touched[IndexOf(feed)];
    touched = std::min(std::max(slots, touched), TraitsOf(feed).capacity);
}

void CInstrumentStore::Count(EMDQPDataType feed, int32_t instNo) {
    uint64_t& count = m_state.counts.*TraitsOf(feed).instCount;
    count = std::max(count, static_cast<uint64_t>(instNo) + 1);
}

void CInstrumentStore::NoteDay(int32_t day) { m_state.tradingDay = std::max(m_state.tradingDay, day); }

void CInstrumentStore::Finish(EMDQPDataType feed) {
    m_state.finished.enabled_mask = static_cast<uint8_t>(m_state.finished.enabled_mask | FeedBit(feed));
    Bind(feed, 0);
}

void CInstrumentStore::Forget() {
    m_state.finished.enabled_mask = 0;
    m_state.ports = U50DstPort();
    for (const EMDQPDataType feed : ALL_FEEDS) {
        int32_t& touched = m_touched[IndexOf(feed)];
        std::memset(Table(feed), 0, static_cast<std::size_t>(touched) * sizeof(SInstTableType));
        touched = 0;
    }
}

void CInstrumentStore::Clear() {
    Forget();
    m_state.counts = U50InstCount();
}

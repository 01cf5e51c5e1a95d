#include "simulation/rules/TruthHistory.h"

namespace simulation {
namespace {
constexpr EMDQPDataType LISTED[] = {SHFE_2PS, INE_2PS};
}

TruthHistory::TruthHistory(const exchange::ExchangeOptions& options) : m_twin(options) {
    for (const EMDQPDataType feed : LISTED) {
        m_history[static_cast<std::size_t>(feed)].resize(static_cast<std::size_t>(Count(feed)));
        for (int32_t instNo = 0; instNo < Count(feed); ++instNo) Remember(feed, instNo);
    }
}

void TruthHistory::Follow(uint64_t moves, uint64_t lost, const OnMove& onMove) {
    const uint64_t firstLost = moves - (lost - m_lost);
    m_lost = lost;
    while (m_moves < moves) {
        const bool isLost = m_moves >= firstLost;
        const exchange::LiveUpdate moved = Move(isLost);
        ++m_moves;
        Remember(moved.feed, moved.instNo);
        onMove(moved.feed, moved.instNo, isLost);
    }
}

exchange::LiveUpdate TruthHistory::Move(bool isLost) {
    if (!m_isInRound || isLost) return m_twin.Next();
    for (;;) {
        const int32_t position = m_roundPosition++;
        const bool isShfe = position < Count(SHFE_2PS);
        const EMDQPDataType feed = isShfe ? SHFE_2PS : INE_2PS;
        const int32_t instNo = isShfe ? position : position - Count(SHFE_2PS);
        if (IsListed(feed, instNo) || instNo >= Count(feed)) return m_twin.Move(feed, instNo);
    }
}

void TruthHistory::OnSnapshots(bool hasShfe, bool hasIne, const exchange::Faults& faults) {
    if (!faults.Has(exchange::EFault::AbsentValues)) return;
    if (hasShfe) m_twin.SnapshotMessages(SHFE_2PS, faults);
    if (hasIne) m_twin.SnapshotMessages(INE_2PS, faults);
}

void TruthHistory::BeginRound() {
    m_isInRound = true;
    m_roundPosition = 0;
}

void TruthHistory::Remember(EMDQPDataType feed, int32_t instNo) {
    m_history[static_cast<std::size_t>(feed)][static_cast<std::size_t>(instNo)].push_back(m_twin.Truth(feed, instNo));
}

const VexaShfeMdType* TruthHistory::Find(EMDQPDataType feed, uint32_t instNo, uint32_t changeNo) const {
    const auto& instruments = m_history[static_cast<std::size_t>(feed)];
    if (instNo >= instruments.size() || changeNo == 0 || changeNo > instruments[instNo].size()) return nullptr;
    return &instruments[instNo][changeNo - 1];
}

}  // namespace simulation

/// What every instrument was at every change: a second exchange of the same seed moves as often as the board's.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "exchange/Exchange.h"
#include "interface/VexaShfeMdStruct.h"

namespace simulation {

class TruthHistory {
public:
    using OnMove = std::function<void(EMDQPDataType feed, int32_t instNo, bool isLost)>;

    explicit TruthHistory(const exchange::ExchangeOptions& options);

    const exchange::Exchange& Market() const { return m_twin; }
    int32_t Count(EMDQPDataType feed) const { return static_cast<int32_t>(m_twin.Instruments(feed).size()); }

    /// The exchange's list changes.
    void Relist(uint64_t number) { m_twin.Relist(number); }
    bool IsListed(EMDQPDataType feed, int32_t instNo) const { return m_twin.IsListed(feed, instNo); }
    int32_t ListedEnd(EMDQPDataType feed) const { return m_twin.ListedEnd(feed); }

    /// Catches up with the board: `moves` and `lost` are its own counts, the lost ones the last of the new moves.
    void Follow(uint64_t moves, uint64_t lost, const OnMove& onMove);

    /// The board's exchange has written these feeds' snapshots: some faults change the truth with that.
    void OnSnapshots(bool hasShfe, bool hasIne, const exchange::Faults& faults);

    /// From now on every instrument in turn, as the board's closing round does; begins anew with each engine start.
    void BeginRound();
    void RestartRound() { m_roundPosition = 0; }
    bool IsInRound() const { return m_isInRound; }

    /// Null when that change never was.
    const VexaShfeMdType* Find(EMDQPDataType feed, uint32_t instNo, uint32_t changeNo) const;
    const VexaShfeMdType& Latest(EMDQPDataType feed, int32_t instNo) const { return m_twin.Truth(feed, instNo); }

private:
    exchange::LiveUpdate Move(bool isLost);
    void Remember(EMDQPDataType feed, int32_t instNo);

    exchange::Exchange m_twin;
    std::array<std::vector<std::vector<VexaShfeMdType>>, FEED_COUNT> m_history;  ///< from change number 1 on
    uint64_t m_moves = 0;
    uint64_t m_lost = 0;
    bool m_isInRound = false;
    int32_t m_roundPosition = 0;
};

}  // namespace simulation

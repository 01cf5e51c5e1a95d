/// What one channel's application is handed: true, subscribed, in order, once.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <utility>

#include "simulation/base/SessionPlan.h"
#include "simulation/rules/QuirkLedger.h"
#include "simulation/rules/TruthHistory.h"

namespace simulation {

class DeliveryRules {
public:
    DeliveryRules(const SessionPlan& plan, const TruthHistory& truth, QuirkLedger& ledger, int32_t channel);

    void OnRecord(const VexaShfeMdType& record);

    /// Updates are missing: some that still wait may come from before the loss, until its event is handed over.
    void OnLoss() {
        m_isContinuous.clear();
        m_isRoundWhole = false;
        m_isLossUntold = true;
    }
    /// From here on change numbers need not follow those of before: a recovery, or the event of a loss.
    void OnGap() {
        m_isContinuous.clear();
        m_isRoundWhole = false;
        m_isLossUntold = false;
    }
    /// From here on every instrument moves once more.
    void OnRound() { m_isRoundWhole = true; }
    /// Nothing was lost since then: a channel that is never rebuilt is owed no more.
    bool IsRoundWhole() const { return m_isRoundWhole; }
    /// A new session: change numbers begin anew.
    void OnSession();
    /// Nothing more arrives.
    void CheckComplete() const;

    /// The record's instrument was last handed over just before this change, and nothing is missing.
    bool HasSeen(EMDQPDataType feed, const VexaShfeMdType& record) const {
        const auto last = m_last.find({feed, record.inst_no});
        return last != m_last.end() && last->second.change_no + 1 == record.change_no;
    }

    uint64_t Records() const { return m_records; }

private:
    using Key = std::pair<int32_t, uint32_t>;  ///< feed, instrument number

    EMDQPDataType RequireFeed(const VexaShfeMdType& record) const;
    void CheckTruth(EMDQPDataType feed, const VexaShfeMdType& record);
    void CheckSubscribed(const VexaShfeMdType& record) const;
    void CheckOrder(EMDQPDataType feed, const VexaShfeMdType& record);
    bool IsExpectedComplete(EMDQPDataType feed, int32_t instNo) const;

    const SessionPlan& m_plan;
    const TruthHistory& m_truth;
    QuirkLedger& m_ledger;
    int32_t m_channel;
    std::map<Key, VexaShfeMdType> m_last;
    std::map<Key, bool> m_isContinuous;
    bool m_isLossUntold = false;
    bool m_isRoundWhole = false;
    uint64_t m_records = 0;
};

std::string IdOf(const VexaShfeMdType& record);

}  // namespace simulation

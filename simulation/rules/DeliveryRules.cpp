#include "simulation/rules/DeliveryRules.h"

#include <cstring>

#include "simulation/rules/Rules.h"
#include "simulation/rules/Wanted.h"

namespace simulation {

std::string IdOf(const VexaShfeMdType& record) {
    return {record.inst_id, strnlen(record.inst_id, sizeof record.inst_id)};
}

DeliveryRules::DeliveryRules(const SessionPlan& plan, const TruthHistory& truth, QuirkLedger& ledger, int32_t channel)
    : m_plan(plan), m_truth(truth), m_ledger(ledger), m_channel(channel) {}

void DeliveryRules::OnSession() {
    m_last.clear();
    OnGap();
}

void DeliveryRules::OnRecord(const VexaShfeMdType& record) {
    ++m_records;
    const EMDQPDataType feed = RequireFeed(record);
    CheckTruth(feed, record);
    CheckSubscribed(record);
    CheckOrder(feed, record);
    m_last[{feed, record.inst_no}] = record;
}

EMDQPDataType DeliveryRules::RequireFeed(const VexaShfeMdType& record) const {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        if (record.max_inst_no == static_cast<uint32_t>(m_plan.settings.maxInstNo[feed])) return feed;
    }
    ThrowBreach(ERule::Truth, "a record with max_inst_no " + std::to_string(record.max_inst_no));
}

void DeliveryRules::CheckTruth(EMDQPDataType feed, const VexaShfeMdType& record) {
    const VexaShfeMdType* found = m_truth.Find(feed, record.inst_no, record.change_no);
    if (found != nullptr) {
        VexaShfeMdType expected = *found;
        expected.max_inst_no = record.max_inst_no;
        if (std::memcmp(&record, &expected, sizeof record) == 0) return;
    }
    if (m_ledger.IsDifferenceExpected(feed, static_cast<int32_t>(record.inst_no))) return;
    ThrowBreach(ERule::Truth, IdOf(record) + " change " + std::to_string(record.change_no) +
                                  (found == nullptr ? " never was" : " differs from the exchange's state"));
}

void DeliveryRules::CheckSubscribed(const VexaShfeMdType& record) const {
    const bool isWanted = IsWanted(m_plan.channels[m_channel], IdOf(record));
    Require(isWanted, ERule::Subscribed, [&] { return IdOf(record) + " on channel " + std::to_string(m_channel); });
}

void DeliveryRules::CheckOrder(EMDQPDataType feed, const VexaShfeMdType& record) {
    const Key key{feed, record.inst_no};
    const auto last = m_last.find(key);
    bool& isContinuous = m_isContinuous[key];
    const auto tell = [&] {
        return IdOf(record) + " change " + std::to_string(record.change_no) + " after " +
               std::to_string(last->second.change_no);
    };
    if (last != m_last.end()) {
        Require(record.change_no >= last->second.change_no, ERule::NeverBack, tell);
        Require(record.change_no > last->second.change_no, ERule::Once, tell);
        Require(!isContinuous || record.change_no == last->second.change_no + 1, ERule::Once, tell);
    }
    isContinuous = !m_isLossUntold;
}

bool DeliveryRules::IsExpectedComplete(EMDQPDataType feed, int32_t instNo) const {
    const std::string& id = m_truth.Market().Instruments(feed)[static_cast<std::size_t>(instNo)].id;
    return IsWanted(m_plan.channels[m_channel], id);
}

void DeliveryRules::CheckComplete() const {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        const bool isEnabled = feed == SHFE_2PS ? m_plan.hasShfe : m_plan.hasIne;
        for (int32_t instNo = 0; isEnabled && instNo < m_truth.Count(feed); ++instNo) {
            if (!m_truth.IsListed(feed, instNo) || !IsExpectedComplete(feed, instNo)) continue;
            const auto last = m_last.find({feed, static_cast<uint32_t>(instNo)});
            VexaShfeMdType expected = m_truth.Latest(feed, instNo);
            expected.max_inst_no = static_cast<uint32_t>(m_plan.settings.maxInstNo[feed]);
            const bool isSame = last != m_last.end() && std::memcmp(&last->second, &expected, sizeof expected) == 0;
            if (isSame || m_ledger.IsDifferenceExpected(feed, instNo)) continue;
            ThrowBreach(ERule::Complete,
                        IdOf(expected) + (last == m_last.end() ? " never arrived" : " differs from the truth"));
        }
    }
}

}  // namespace simulation

/// The register record of the sixteen subscription passes, access by access: every used slot of all four tables is read
/// and loses the channel's bit, then every slot that an entry of its list selects gets it. In the road of a hundred
/// thousand accesses a start, so the usual one is two comparisons.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "simulation/base/SessionPlan.h"
#include "simulation/rules/BoardMap.h"

namespace simulation {

class SubscriptionRecord {
public:
    using Slots = std::set<std::pair<int32_t, int32_t>>;  ///< feed, slot

    explicit SubscriptionRecord(const SessionPlan& plan) : m_plan(plan) {}

    /// What the tables hold: the id of each used slot of each feed, and which of them failed the price check.
    void OnTables(std::array<std::vector<std::string>, FEED_COUNT> ids, const Slots& refused);
    void BeginChannel();
    /// Nothing of the last channel's pass is missing.
    void RequireComplete() const;

    /// True when it is one word of a slot that is being read as a whole.
    bool TakesReadAddress(uint32_t index, uint32_t value) {
        if (index != m_readAddress || value != m_word || m_word == m_wordEnd || m_isDataDue) return false;
        m_isDataDue = true;
        return true;
    }
    bool TakesReadData(uint32_t index) {
        if (!m_isDataDue || m_word == m_wordEnd || index != m_readAddress + 1) return false;
        m_isDataDue = false;
        ++m_word;
        return true;
    }
    /// Whether the word about to be read is the control word.
    bool IsControlWord() const { return m_word + board::TABLE_WORDS == m_wordEnd; }
    void OnControlWord(uint32_t word) { m_control = word; }

    /// Every other access to a table.
    void OnWrite(uint32_t index, uint32_t value);
    void OnRead(uint32_t index);

private:
    /// What is left of the slot at hand, beyond its reading as a whole.
    enum class EDue : uint8_t { Nothing, Cleared, SwitchedOff, ClearedAt, Selected, Set, SetAt, ReadBack };

    bool IsEnabled(int32_t feed) const { return feed == SHFE_2PS ? m_plan.hasShfe : feed == INE_2PS && m_plan.hasIne; }
    int32_t UsedSlots(int32_t feed) const;
    void Select(const std::string& entry);
    void BeginSlot();
    void BeginSelected();
    void Expect(EDue due, uint32_t index, uint32_t value, uint32_t toldIndex, uint32_t toldValue) const;
    uint32_t WithChannel() const;

    const SessionPlan& m_plan;
    std::array<std::vector<std::string>, FEED_COUNT> m_ids;
    Slots m_refused;
    int32_t m_channel = -1;
    int32_t m_feed = FEED_COUNT;
    int32_t m_slot = 0;
    std::vector<std::pair<int32_t, int32_t>> m_selected;
    std::size_t m_nextSelected = 0;
    EDue m_due = EDue::Nothing;
    uint32_t m_control = 0;
    // Of the slot that is being read as a whole.
    uint32_t m_readAddress = 0;
    uint32_t m_word = 0;
    uint32_t m_wordEnd = 0;
    bool m_isDataDue = false;
};

}  // namespace simulation

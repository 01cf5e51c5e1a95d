#include "simulation/rules/SubscriptionRecord.h"

#include <algorithm>

#include "simulation/rules/Rules.h"
#include "simulation/rules/Wanted.h"

namespace simulation {
namespace {
constexpr uint32_t IN_USE = 0x80000000;
constexpr uint32_t AT_SETTLEMENT = 0x40000000;
}  // namespace

void SubscriptionRecord::OnTables(std::array<std::vector<std::string>, FEED_COUNT> ids, const Slots& refused) {
    m_ids = std::move(ids);
    m_refused = refused;
    m_channel = -1;
    m_feed = FEED_COUNT;
    m_due = EDue::Nothing;
    m_selected.clear();
    m_nextSelected = 0;
    m_word = m_wordEnd = 0;
    m_isDataDue = false;
}

// One count serves both feeds of an exchange.
int32_t SubscriptionRecord::UsedSlots(int32_t feed) const {
    const int32_t first = feed < INE_2PS ? SHFE_2PS : INE_2PS;
    const auto size = [this](int32_t of) { return static_cast<int32_t>(m_ids[static_cast<std::size_t>(of)].size()); };
    return std::max(size(first), size(first + 1));
}

void SubscriptionRecord::BeginChannel() {
    ++m_channel;
    m_selected.clear();
    m_nextSelected = 0;
    const std::string& list = m_plan.channels[m_channel].insts;
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        Select(list.substr(begin, end - begin));
        begin = end + 1;
    }
    m_feed = SHFE_2PS;
    m_slot = 0;
    BeginSlot();
}

// Slot by slot, the feeds of one exchange side by side; the second exchange behind the first.
void SubscriptionRecord::Select(const std::string& entry) {
    const ChannelPlan only{m_plan.channels[m_channel].insts == "all" ? "all" : entry,
                           m_plan.channels[m_channel].hasOptions};
    for (const int32_t exchange : {SHFE_2PS, INE_2PS}) {
        for (int32_t slot = 0; slot < UsedSlots(exchange); ++slot) {
            for (int32_t feed = exchange; feed < exchange + 2; ++feed) {
                if (!IsEnabled(feed) || m_refused.count({feed, slot}) != 0) continue;
                const std::string& id = m_ids[static_cast<std::size_t>(feed)][static_cast<std::size_t>(slot)];
                if (IsEntryWanted(only, entry, id)) m_selected.emplace_back(feed, slot);
            }
        }
    }
}

void SubscriptionRecord::BeginSlot() {
    while (m_feed < FEED_COUNT && m_slot >= UsedSlots(m_feed)) {
        ++m_feed;
        m_slot = 0;
    }
    if (m_feed == FEED_COUNT) return BeginSelected();
    m_due = EDue::Cleared;
    m_readAddress = board::FEEDS[static_cast<std::size_t>(m_feed)].table + 2;
    m_word = static_cast<uint32_t>(m_slot) * board::TABLE_WORDS;
    m_wordEnd = m_word + board::TABLE_WORDS;
}

void SubscriptionRecord::BeginSelected() {
    m_due = EDue::Nothing;
    if (m_nextSelected == m_selected.size()) return;
    const auto [feed, slot] = m_selected[m_nextSelected++];
    m_due = EDue::Selected;
    m_feed = feed;
    m_slot = slot;
    m_readAddress = board::FEEDS[static_cast<std::size_t>(feed)].table + 2;
    m_word = m_wordEnd = 0;
}

uint32_t SubscriptionRecord::WithChannel() const {
    const std::string& id = m_ids[static_cast<std::size_t>(m_feed)][static_cast<std::size_t>(m_slot)];
    const uint32_t kind = IsSettlementTrade(id) ? m_control | AT_SETTLEMENT : m_control & ~AT_SETTLEMENT;
    return kind | IN_USE | uint32_t{1} << m_channel;
}

void SubscriptionRecord::Expect(EDue due, uint32_t index, uint32_t value, uint32_t toldIndex,
                                uint32_t toldValue) const {
    const bool isWordLeft = m_word != m_wordEnd;
    Require(m_due == due && !isWordLeft && !m_isDataDue && index == toldIndex && value == toldValue, ERule::Passes,
            [=, this] {
                return "channel " + std::to_string(m_channel) + ", feed " + std::to_string(m_feed) + ", slot " +
                       std::to_string(m_slot) + ": register " + Hex(toldIndex) + " is told " + Hex(toldValue) +
                       ", not " + Hex(index) + " " + Hex(value) + (isWordLeft ? " before the slot was read" : "");
            });
}

void SubscriptionRecord::OnWrite(uint32_t index, uint32_t value) {
    const uint32_t address = m_readAddress - 2;
    const uint32_t word = static_cast<uint32_t>(m_slot) * board::TABLE_WORDS;
    const uint32_t without = m_control & ~(uint32_t{1} << (m_channel & 31));
    switch (m_due) {
        case EDue::Cleared:
            Expect(m_due, address + 1, without, index, value);
            m_due = without == IN_USE ? EDue::SwitchedOff : EDue::ClearedAt;
            return;
        case EDue::SwitchedOff:
            Expect(m_due, address + 1, 0, index, value);
            m_due = EDue::ClearedAt;
            return;
        case EDue::ClearedAt:
            Expect(m_due, address, word, index, value);
            ++m_slot;
            return BeginSlot();
        case EDue::Selected:  // its control word is read like a slot of one word
        case EDue::ReadBack:
            Expect(m_due, m_readAddress, word, index, value);
            m_isDataDue = true;
            return;
        case EDue::Set:
            Expect(m_due, address + 1, WithChannel(), index, value);
            m_due = EDue::SetAt;
            return;
        case EDue::SetAt:
            Expect(m_due, address, word, index, value);
            m_due = EDue::ReadBack;
            return;
        case EDue::Nothing: break;
    }
    ThrowBreach(ERule::Passes,
                "channel " + std::to_string(m_channel) + " writes register " + Hex(index) + " behind its last slot");
}

void SubscriptionRecord::OnRead(uint32_t index) {
    const bool isDue =
        m_isDataDue && index == m_readAddress + 1 && (m_due == EDue::Selected || m_due == EDue::ReadBack);
    Require(isDue, ERule::Passes, [=] { return "read of register " + Hex(index) + " that was not due"; });
    m_isDataDue = false;
    if (m_due == EDue::Selected) {
        m_due = EDue::Set;
    } else {
        BeginSelected();
    }
}

void SubscriptionRecord::RequireComplete() const {
    Require(m_due == EDue::Nothing, ERule::Passes, [this] {
        return "channel " + std::to_string(m_channel) + " left out feed " + std::to_string(m_feed) + ", slot " +
               std::to_string(m_slot);
    });
}

}  // namespace simulation

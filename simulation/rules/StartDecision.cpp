#include "simulation/rules/StartDecision.h"

#include <algorithm>
#include <iterator>

#include "simulation/rules/BoardMap.h"

namespace simulation {
namespace {

constexpr std::size_t EVENTS = FEED_COUNT;  // place of the last counter

std::array<uint32_t, 256> MakeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = byte;
        for (int bit = 0; bit < 8; ++bit) table[byte] = table[byte] >> 1 ^ (table[byte] & 1) * 0x82F63B78U;
    }
    return table;
}

}  // namespace

uint32_t ChecksumOf(const std::string& file) {
    static const std::array<uint32_t, 256> TABLE = MakeTable();
    uint32_t checksum = 0xFFFFFFFF;
    for (const char c : file) checksum = checksum >> 8 ^ TABLE[(checksum ^ static_cast<unsigned char>(c)) & 0xFF];
    return ~checksum;
}

void StartDecision::OnStart(bool isAsked, uint32_t fileChecksum, bool isRunning) {
    m_isAsked = isAsked;
    m_fileChecksum = fileChecksum;
    m_shown = static_cast<EShown>(m_random.Below(static_cast<uint32_t>(EShown::Count_)));
    m_flowing = m_random.Below(FEED_COUNT);
    if (!isRunning && (m_shown == EShown::Flow || m_shown == EShown::FlowAndEvent)) m_shown = EShown::Board;
    m_isSampled.fill(false);
    m_isSameFile = m_hasFlowed = m_hasEvent = false;
}

// Of the second sample against the first, where it is not the board's own.
uint64_t StartDecision::Shift(std::size_t counter) const {
    const bool isFlow = m_shown == EShown::Flow || m_shown == EShown::FlowAndEvent;
    const bool isEvent = m_shown == EShown::EventAlone || m_shown == EShown::FlowAndEvent;
    if (counter == EVENTS) return isEvent ? uint64_t{1} << 32 : 0;
    return isFlow && counter == m_flowing ? 1 : 0;
}

uint64_t StartDecision::ShownValue(uint32_t index, uint64_t value) {
    if (index == board::CHECKSUM) m_isSameFile = static_cast<uint32_t>(value) == m_fileChecksum;
    const auto* packets = std::find(std::begin(board::PACKETS), std::end(board::PACKETS), index);
    if (packets == std::end(board::PACKETS) && index != board::EVENTS) return value;
    const auto counter = static_cast<std::size_t>(packets - std::begin(board::PACKETS));
    if (!m_isSampled[counter]) {
        m_isSampled[counter] = true;
        return m_first[counter] = value;
    }
    if (m_shown != EShown::Board) value = m_first[counter] + Shift(counter);
    bool& hasMoved = counter == EVENTS ? m_hasEvent : m_hasFlowed;
    hasMoved = hasMoved || value != m_first[counter];
    return value;
}

std::array<const char*, 5> StartDecision::AllShown() {
    return {"samples as they are", "samples idle", "samples flow", "samples flow+event", "samples event"};
}

}  // namespace simulation

#include "simulation/rules/SnapshotRules.h"

#include <algorithm>

#include "simulation/rules/Rules.h"

namespace simulation {
namespace {

constexpr uint32_t IP_AT = 14;
constexpr uint32_t TCP_AT = 34;
constexpr uint32_t HEADERS = 54;
constexpr uint8_t PLAIN_IP_HEAD = 0x45;
constexpr uint8_t PROTOCOL_TCP = 6;

uint16_t BigEndian(const unsigned char* bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

/// Sum of big-endian words; a last single byte counts as the higher one.
uint32_t Sum(const unsigned char* bytes, uint32_t length) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < length; ++i) sum += i % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
    return sum;
}

}  // namespace

bool SnapshotRules::IsSound(const unsigned char* frame, uint32_t length) const {
    if (length < HEADERS || frame[IP_AT] != PLAIN_IP_HEAD || frame[IP_AT + 9] != PROTOCOL_TCP) return false;
    const uint32_t total = BigEndian(frame + IP_AT + 2);
    const uint32_t headers = 20 + (frame[TCP_AT + 12] >> 4) * 4U;
    if (total > length - IP_AT || headers < 40 || total < headers) return false;
    if (std::count(m_ports.begin(), m_ports.end(), BigEndian(frame + TCP_AT)) == 0) return false;
    // With the checksum itself in it, a right sum is all ones.
    const uint32_t tcpLength = total - 20;
    uint32_t sum = Sum(frame + IP_AT + 12, 8) + PROTOCOL_TCP + tcpLength + Sum(frame + TCP_AT, tcpLength);
    while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
    return sum == 0xFFFF;
}

void SnapshotRules::OnFrame(const unsigned char* frame, uint32_t length, uint8_t wanted) {
    m_isDue = m_mask == wanted && IsSound(frame, length);
}

void SnapshotRules::OnUsed() const {
    Require(!m_isRefused, ERule::SnapshotUse,
            [] { return std::string("a snapshot that failed its price check was used"); });
}

void SnapshotRules::OnFinishedMask(uint8_t mask, uint64_t clears) {
    Require(!m_isDue || mask != m_mask, ERule::SnapshotUse,
            [] { return std::string("a complete snapshot was not used"); });
    const bool isLosing = (m_mask & ~mask) != 0;
    Require(!isLosing || (mask == 0 && clears != m_clears), ERule::FinishedFeeds,
            [&] { return "finished feeds went from " + Hex(m_mask) + " to " + Hex(mask); });
    if (m_mask == 0 && mask != 0) m_isRefused = false;  // the next one
    m_isDue = false;
    m_mask = mask;
    m_clears = clears;
}

}  // namespace simulation

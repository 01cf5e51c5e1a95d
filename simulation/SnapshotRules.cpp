#include "simulation/SnapshotRules.h"

#include "simulation/Invariants.h"

namespace simulation {
namespace {

constexpr uint32_t ETHERNET = 14;
constexpr uint32_t PROTOCOL_AT = 23;
constexpr uint32_t TCP_AT = 34;
constexpr uint32_t HEADERS = 54;
constexpr uint8_t PROTOCOL_TCP = 6;
constexpr uint8_t RST = 0x04;

uint16_t BigEndian(const unsigned char* bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

}  // namespace

void SnapshotRules::BeginRound() {
    m_ports.clear();
    m_sent.clear();
    m_segmentsAfter = 0;
    m_isRefused = false;
}

void SnapshotRules::OnFrame(const unsigned char* frame, uint32_t length, std::size_t feeds) {
    if (length < HEADERS || frame[PROTOCOL_AT] != PROTOCOL_TCP) return;
    const uint16_t port = BigEndian(frame + TCP_AT + 2);
    const bool isReset = (frame[TCP_AT + 13] & RST) != 0;
    if (isReset || (m_ports.count(port) == 0 && m_ports.size() == feeds)) BeginRound();
    if (isReset) return;
    m_ports.insert(port);
    if (m_sent.size() == feeds) ++m_segmentsAfter;
    Require(m_segmentsAfter <= 1 || m_isRefused, 14, [] { return std::string("a complete snapshot was not used"); });
    if (BigEndian(frame + ETHERNET + 2) == HEADERS - ETHERNET) m_sent.insert(port);
}

void SnapshotRules::OnUsed() const {
    Require(!m_isRefused, 14, [] { return std::string("a snapshot that failed its price check was used"); });
}

void SnapshotRules::OnFinishedMask(uint8_t mask, uint64_t clears) {
    const bool isLosing = (m_mask & ~mask) != 0;
    Require(!isLosing || (mask == 0 && clears != m_clears), 27,
            [&] { return "finished feeds went from " + Hex(m_mask) + " to " + Hex(mask); });
    m_mask = mask;
    m_clears = clears;
}

}  // namespace simulation

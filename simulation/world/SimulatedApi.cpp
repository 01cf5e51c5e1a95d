#include "simulation/world/SimulatedApi.h"

namespace simulation {
namespace {

constexpr uint32_t IP_AT = 14;
constexpr uint32_t CARRY_OVERS_MAX = 512;

uint32_t SeqOf(const tcp_lost_buf_t& entry) {
    const uint8_t* seq = entry.buf + IP_AT + (entry.buf[IP_AT] & 0x0F) * 4 + 4;
    return uint32_t{seq[0]} << 24 | uint32_t{seq[1]} << 16 | uint32_t{seq[2]} << 8 | seq[3];
}

/// The early segments of a connection; -1 when their links or their order are wrong.
int64_t CountEarly(const tcp_session_t& session) {
    int64_t count = 0;
    const tcp_lost_buf_t* before = nullptr;
    for (const tcp_lost_buf_t* entry = session.lost_buf_head; entry != nullptr; entry = entry->next, ++count) {
        if (entry->before != before || count > LOST_BUF_LIMIT || entry->len > EARLY_FRAME_CAPACITY) return -1;
        // What equals a later one is stored in front of it.
        if (before != nullptr && SeqOf(*before) > SeqOf(*entry)) return -1;
        before = entry;
    }
    return count;
}

}  // namespace

const char* SimulatedApi::Inconsistency() const {
    int64_t early = 0;
    uint32_t carryOvers = 0;
    const CReassembly& reassembly = m_reassembly;
    for (uint32_t i = 0; i < reassembly.TouchedSessions(); ++i) {
        const tcp_session_t& session = m_sessions[reassembly.TouchedPort(i)];
        const int64_t count = CountEarly(session);
        if (count < 0) return "the list of early segments is out of order";
        if (count > session.lost_buf_size || session.lost_buf_size > LOST_BUF_LIMIT) return "lost_buf_size is wrong";
        if ((session.lost_flag == 1) != (count > 0)) return "lost_flag is wrong";
        if (session.frag_buf_offset >= FRAG_BUF_LIMIT) return "frag_buf_offset is beyond its limit";
        if (session.frag_flag == 0 && session.frag_buf_offset != 0) return "frag_flag is wrong";
        if (session.frag_flag == 1 && session.frag_buf == nullptr) return "a carry-over without its buffer";
        early += count;
        carryOvers += session.frag_buf != nullptr ? 1 : 0;
    }
    if (carryOvers > CARRY_OVERS_MAX) return "there are too many carry-over buffers";
    if (early != reassembly.EarlySegments()) return "early segments are alive that no list holds";
    return carryOvers == reassembly.CarryOverBuffers() ? nullptr
                                                       : "carry-over buffers are alive that no connection holds";
}

}  // namespace simulation

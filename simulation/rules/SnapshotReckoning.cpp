#include "simulation/rules/SnapshotReckoning.h"

#include <algorithm>
#include <cstring>

namespace simulation {
namespace {

constexpr uint32_t IP_AT = 14;
constexpr uint32_t TCP_AT = 34;
constexpr uint32_t HEADER = 8;
constexpr uint32_t FIRST_PAYLOAD_MIN = 45;
constexpr uint32_t CARRIED_MAX = 65535;
constexpr uint32_t EARLY_MAX = 500;
constexpr uint8_t RESET = 0x14;  // RST and ACK
constexpr uint8_t MORE = 0x11;
constexpr uint8_t LAST = 0x01;
constexpr uint32_t TOPIC_FIELD = 0x1001;
constexpr uint32_t TOPIC_BYTES = 6;

uint32_t Big16(const uint8_t* bytes) { return uint32_t{bytes[0]} << 8 | bytes[1]; }
uint32_t Big32(const uint8_t* bytes) { return Big16(bytes) << 16 | Big16(bytes + 2); }
uint32_t Little16(const uint8_t* bytes) { return uint32_t{bytes[1]} << 8 | bytes[0]; }
uint32_t SizeOf(const uint8_t* message) { return HEADER + Little16(message + 2); }
bool IsMessage(const uint8_t* bytes) { return (bytes[0] == MORE || bytes[0] == LAST) && bytes[1] == '2'; }

}  // namespace

void SnapshotReckoning::Clear() {
    m_connections.clear();
    m_portOf.fill(0);
    m_contents.Clear();
    m_insane.clear();
}

void SnapshotReckoning::OnBringUp() {
    Clear();
    m_isKnown = true;
    m_isUsedAndCleared = false;
    m_told.clear();
}

SnapshotReckoning::EOutcome SnapshotReckoning::OnFrame(const uint8_t* frame) {
    m_told.clear();
    m_dropped = {};
    m_isUsedAndCleared = false;
    EOutcome outcome = EOutcome::GoesOn;
    const uint32_t wanted = (m_plan.hasShfe ? 1U << SHFE_2PS : 0) | (m_plan.hasIne ? 1U << INE_2PS : 0);
    if (m_contents.FinishedMask() == wanted) {
        m_insane = m_contents.Insane();
        if (!m_insane.empty() && !m_plan.isShielded) {
            Clear();
            return EOutcome::Refused;
        }
        outcome = EOutcome::Used;
    }
    const uint8_t* tcp = frame + TCP_AT;
    if ((tcp[13] & RESET) == RESET) {
        m_isUsedAndCleared = outcome == EOutcome::Used;
        Clear();
        return outcome;
    }
    const uint32_t headers = (tcp[12] >> 4) * 4U;
    const uint32_t length = Big16(frame + IP_AT + 2) - 20 - headers;
    const uint8_t* payload = tcp + headers;
    const uint32_t seq = Big32(tcp + 4);
    const auto port = static_cast<uint16_t>(Big16(tcp + 2));
    const uint32_t fromIp = Big32(frame + IP_AT + 12);
    const uint32_t toIp = Big32(frame + IP_AT + 16);
    Connection& connection = m_connections[port];
    if (!connection.isBound) {
        connection = Connection();
        connection.fromIp = fromIp;
        connection.toIp = toIp;
        connection.expected = seq + length;
        if (Begin(port, connection, payload, length)) {
            Parse(port, connection, SizeOf(payload));
        } else {
            ++m_dropped.refused;
        }
    } else if (connection.fromIp != fromIp || connection.toIp != toIp) {
        ++m_dropped.otherHost;
    } else {
        if (seq == connection.expected) {
            connection.expected += length;
            Deliver(port, connection, payload, length);
            Drain(port, connection);
        } else if (seq < connection.expected) {
            ++m_dropped.repeated;
        } else if (length == 0) {
            ++m_dropped.earlyEmpty;
        } else {
            Keep(connection, seq, payload, length);
        }
    }
    return outcome;
}

// A connection begins with a segment whose first message tells the topic.
bool SnapshotReckoning::Begin(uint16_t port, Connection& connection, const uint8_t* payload, uint32_t length) {
    if (length < FIRST_PAYLOAD_MIN || payload[0] != MORE || payload[1] != '2') return false;
    for (uint32_t at = HEADER; at + 4 <= length; at += 4 + Little16(payload + at + 2)) {
        if (Little16(payload + at) != TOPIC_FIELD || Little16(payload + at + 2) != TOPIC_BYTES) continue;
        if (at + 4 + TOPIC_BYTES > length) break;
        if (!Bind(port, connection, static_cast<int16_t>(Little16(payload + at + 4)))) return false;
    }
    connection.kept.assign(payload, payload + length);
    return true;
}

bool SnapshotReckoning::Bind(uint16_t port, Connection& connection, int16_t topic) {
    for (const EMDQPDataType feed : {INE_2PS, SHFE_2PS, INE_4PS, SHFE_4PS}) {
        if (m_plan.settings.topics[feed] != topic) continue;
        const bool isEnabled = (feed == SHFE_2PS && m_plan.hasShfe) || (feed == INE_2PS && m_plan.hasIne);
        if (!isEnabled || (m_contents.FinishedMask() >> feed & 1) != 0) return false;
        m_portOf[feed] = port;
        connection.isBound = true;
        return true;
    }
    return false;
}

// `step`: the size that every message of a first segment is taken to have; 0: each its own.
void SnapshotReckoning::Parse(uint16_t port, Connection& connection, uint32_t step) {
    std::vector<uint8_t> kept = std::move(connection.kept);
    connection.kept.clear();
    std::size_t at = 0;
    while (kept.size() - at >= HEADER) {
        const uint32_t size = step != 0 ? step : SizeOf(kept.data() + at);
        if (size > kept.size() - at) break;
        if (SizeOf(kept.data() + at) <= kept.size() - at) Hand(port, kept.data() + at);
        at += size;
    }
    connection.kept.assign(kept.begin() + static_cast<std::ptrdiff_t>(at), kept.end());
}

void SnapshotReckoning::Deliver(uint16_t port, Connection& connection, const uint8_t* payload, uint32_t length) {
    if (connection.kept.empty() && (length < 2 || !IsMessage(payload))) return;
    if (connection.kept.size() + length > CARRIED_MAX) {
        connection = Connection();
        return;
    }
    connection.kept.insert(connection.kept.end(), payload, payload + length);
    if (connection.kept.size() >= 2 && IsMessage(connection.kept.data())) Parse(port, connection, 0);
}

// In the order of their numbers. What equals the first one is not kept; what equals a later one is, in front of it.
void SnapshotReckoning::Keep(Connection& connection, uint32_t seq, const uint8_t* payload, uint32_t length) {
    std::vector<Segment>& early = connection.early;
    if (!early.empty() && connection.stored >= EARLY_MAX) return Clear();
    if (!early.empty() && early.front().seq == seq) {
        ++m_dropped.repeated;
        return;
    }
    const auto at = std::find_if(early.begin(), early.end(), [=](const Segment& kept) { return kept.seq >= seq; });
    early.insert(at, {seq, {payload, payload + length}});
    ++connection.stored;
}

void SnapshotReckoning::Drain(uint16_t port, Connection& connection) {
    while (!connection.early.empty() && connection.early.front().seq <= connection.expected) {
        const Segment segment = std::move(connection.early.front());
        connection.early.erase(connection.early.begin());
        if (connection.early.empty()) connection.stored = 0;
        if (segment.seq < connection.expected) {
            ++m_dropped.repeated;
            continue;
        }
        const auto length = static_cast<uint32_t>(segment.payload.size());
        const bool isLost = connection.kept.empty() && (length < 2 || !IsMessage(segment.payload.data()));
        connection.expected += length;
        Deliver(port, connection, segment.payload.data(), length);
        if (isLost) return;
    }
}

// A feed that has ended forgets its connection.
void SnapshotReckoning::Hand(uint16_t port, const uint8_t* message) {
    const auto feed = std::find(m_portOf.begin(), m_portOf.end(), port);
    if (feed == m_portOf.end()) return;
    const auto found = static_cast<EMDQPDataType>(feed - m_portOf.begin());
    if (!m_contents.Read(found, message, m_told)) return;
    m_connections[port].isBound = false;
    *feed = 0;
}

}  // namespace simulation

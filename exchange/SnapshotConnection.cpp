// Plans the arrivals of one connection: the segments of the stream in the order in which they come, what comes between
// them, and how it ends. Each frame is built when it is due. Every fault draws from a stream of its own.
#include "exchange/SnapshotConnection.h"

#include <algorithm>
#include <utility>

#include "common/Mdqp.h"

namespace exchange {
namespace {

constexpr uint32_t SWAPS = 8;
constexpr uint32_t SWAP_WINDOW = 3;
constexpr uint32_t DELAYED_ONE_IN = 16;      // segments
constexpr std::size_t DELAY_MIN = 2;         // places
constexpr uint32_t DELAY_SPREAD = 4;         // places
constexpr uint32_t VISITED_ONE_IN = 16;      // segments
constexpr uint32_t ACKNOWLEDGED_ONE_IN = 4;  // segments
constexpr std::size_t EARLY_AT_MOST = 400;   // behind a segment that never comes; receivers keep fewer than 500
constexpr std::size_t FLOOD_SEGMENTS = 512;
constexpr uint32_t BEYOND_MAX = 1000;  // bytes by which a total length is too large
constexpr uint32_t HEADER_WORDS_TRUE = 5;
constexpr uint32_t SYSTEM_PORTS = 1023;  // no snapshot server listens there

/// Bytes that a receiver has without a gap once these segments have come.
std::size_t InOrderEnd(std::vector<Segment> segments) {
    std::sort(segments.begin(), segments.end(),
              [](const Segment& left, const Segment& right) { return left.begin < right.begin; });
    std::size_t end = 0;
    for (const Segment& segment : segments) {
        if (segment.begin > end) break;
        end = std::max(end, segment.end);
    }
    return end;
}

}  // namespace

SnapshotConnection::SnapshotConnection(const TcpEndpoints& endpoints, uint32_t initialSeq,
                                       const std::vector<std::vector<uint8_t>>& messages, const Faults& faults,
                                       uint64_t seed)
    : m_endpoints(endpoints), m_initialSeq(initialSeq) {
    for (const std::vector<uint8_t>& message : messages) {
        m_stream.insert(m_stream.end(), message.begin(), message.end());
    }
    std::vector<Segment> order = CutSegments(messages, faults, seed);
    if (faults.Has(EFault::Drop)) DelaySome(order, seed);
    if (faults.Has(EFault::Reorder)) SwapSome(order, seed);
    CutShort(order, faults);
    PlanArrivals(order, faults, seed);
    PlanEnding(order, faults);
}

// ---- the order ------------------------------------------------------------------------------------------------------

/// Receivers compare sequence numbers plainly: what changes places across their wrap-around would be lost to them.
bool SnapshotConnection::IsWrapped(const Segment& segment) const {
    return m_initialSeq + static_cast<uint32_t>(segment.begin) < m_initialSeq;
}

/// A second one of this segment would meet a receiver that has wrapped around, and be kept as an early one for ever.
bool SnapshotConnection::IsLastBeforeWrap(const std::vector<Segment>& order, std::size_t at) const {
    const Segment& segment = order[at];
    if (IsWrapped(segment)) return false;
    const bool isNextWrapped = at + 1 < order.size() && IsWrapped(order[at + 1]);
    return isNextWrapped || IsWrapped({segment.end, segment.end});
}

/// The first segment stays in front: it names the feed.
void SnapshotConnection::DelaySome(std::vector<Segment>& order, uint64_t seed) const {
    Random chance(seed, FaultName(EFault::Drop));
    for (std::size_t at = 1; at + 1 < order.size(); ++at) {
        if (!chance.OneIn(DELAYED_ONE_IN)) continue;
        const std::size_t to = std::min(at + DELAY_MIN + chance.Below(DELAY_SPREAD), order.size() - 1);
        if (IsWrapped(order[at]) != IsWrapped(order[to])) continue;
        const auto left = order.begin() + static_cast<std::ptrdiff_t>(at);
        std::rotate(left, left + 1, order.begin() + static_cast<std::ptrdiff_t>(to) + 1);
    }
}

void SnapshotConnection::SwapSome(std::vector<Segment>& order, uint64_t seed) const {
    if (order.size() < 3) return;
    Random chance(seed, FaultName(EFault::Reorder));
    const std::size_t last = order.size() - 1;
    for (uint32_t swap = 0; swap < SWAPS; ++swap) {
        const std::size_t at = 1 + chance.Below(static_cast<uint32_t>(last - 1));
        const std::size_t with = std::min(at + 1 + chance.Below(SWAP_WINDOW), last);
        if (IsWrapped(order[at]) == IsWrapped(order[with])) std::swap(order[at], order[with]);
    }
}

/// Of a stream of one segment that one stays: what ends a connection needs one that has begun.
void SnapshotConnection::CutShort(std::vector<Segment>& order, const Faults& faults) {
    const std::size_t half = std::max(order.size() / 2, std::min<std::size_t>(order.size(), 1));
    const bool isReset = faults.Has(EFault::Reset);
    if (isReset || faults.Has(EFault::Stall)) {
        order.resize(half);
        m_ending = isReset ? EEnding::Over : EEnding::Silence;
    } else if (faults.Has(EFault::DropForGood)) {
        const std::size_t missing = std::max(half, order.size() - std::min(order.size(), EARLY_AT_MOST));
        if (missing < order.size()) order.erase(order.begin() + static_cast<std::ptrdiff_t>(missing));
        m_ending = EEnding::Silence;
    } else if (faults.Has(EFault::EarlyFlood)) {
        order.resize(half);
        m_ending = EEnding::Over;
    }
}

// ---- the arrivals ---------------------------------------------------------------------------------------------------

/// With the number of the segment that comes next, or of what comes behind it.
void SnapshotConnection::PlanAcknowledgement(const Segment& next, Random& chance) {
    const std::size_t position = chance.OneIn(2) ? next.begin : next.end;
    m_arrivals.push_back({{position, position}, EArrival::Acknowledgement});
}

/// What visits a segment comes right in front of it. Nobody but the server itself comes before the first segment with
/// right checksum and ports: a receiver would take it for the connection.
void SnapshotConnection::PlanArrivals(const std::vector<Segment>& order, const Faults& faults, uint64_t seed) {
    struct Visitor {
        EFault fault;
        EArrival kind;
        std::size_t first;
        Random chance;
    };
    std::vector<Visitor> visitors;
    const auto invite = [&](EFault fault, EArrival kind, std::size_t first) {
        if (faults.Has(fault)) visitors.push_back({fault, kind, first, Random(seed, FaultName(fault))});
    };
    invite(EFault::CorruptChecksum, EArrival::DamagedCopy, 0);
    invite(EFault::CorruptLength, EArrival::LyingCopy, 0);
    invite(EFault::ForeignPort, EArrival::ForeignPort, 0);
    invite(EFault::ForeignHost, EArrival::ForeignHost, 1);
    Random repeats(seed, FaultName(EFault::Duplicate));
    Random acknowledgements(seed, FaultName(EFault::BareAck));
    const std::size_t half = order.size() / 2;
    for (std::size_t at = 0; at < order.size(); ++at) {
        if (at == half && faults.Has(EFault::ResetWithoutAck)) {
            const auto begin = order.begin();
            const std::size_t end = InOrderEnd({begin, begin + static_cast<std::ptrdiff_t>(half)});
            m_arrivals.push_back({{end, end}, EArrival::ResetWithoutAck});
        }
        if (faults.Has(EFault::BareAck) && acknowledgements.OneIn(ACKNOWLEDGED_ONE_IN)) {
            PlanAcknowledgement(order[at], acknowledgements);
        }
        for (Visitor& visitor : visitors) {
            if (at < visitor.first || !visitor.chance.OneIn(VISITED_ONE_IN)) continue;
            m_arrivals.push_back({order[at], visitor.kind, visitor.chance.Below(UINT32_MAX)});
        }
        m_arrivals.push_back({order[at]});
        if (faults.Has(EFault::Duplicate) && repeats.OneIn(VISITED_ONE_IN) && !IsLastBeforeWrap(order, at)) {
            m_arrivals.push_back({order[at]});
        }
    }
}

/// The flood's segments hold one byte each, so that the smallest stream has enough of them; what the stream does not
/// hold is made up, for nobody ever reads it.
void SnapshotConnection::PlanEnding(const std::vector<Segment>& order, const Faults& faults) {
    if (m_ending != EEnding::Over) return;
    const std::size_t end = InOrderEnd(order);
    if (faults.Has(EFault::Reset)) {
        m_arrivals.push_back({{end, end}, EArrival::Reset});
        return;
    }
    m_stream.resize(std::max(m_stream.size(), end + 1 + FLOOD_SEGMENTS));
    for (std::size_t at = end + 1; at <= end + FLOOD_SEGMENTS; ++at) m_arrivals.push_back({{at, at + 1}});
}

// ---- the frames -----------------------------------------------------------------------------------------------------

bool SnapshotConnection::NextFrame(std::vector<uint8_t>& frame) {
    if (m_next < m_arrivals.size()) {
        frame = FrameOf(m_arrivals[m_next++]);
        return true;
    }
    if (m_ending != EEnding::Acknowledgements) return false;
    frame = Writer(m_endpoints, m_stream.size()).Flags(TCP_ACK).Frame();
    return true;
}

bool SnapshotConnection::IsHalfWay() const { return m_next >= m_arrivals.size() / 2; }

bool SnapshotConnection::IsSent() const { return m_next >= m_arrivals.size() && m_ending == EEnding::Acknowledgements; }

bool SnapshotConnection::IsOver() const { return m_next >= m_arrivals.size() && m_ending == EEnding::Over; }

std::vector<uint8_t> SnapshotConnection::FrameOf(const Arrival& arrival) const {
    const std::size_t position = arrival.segment.begin;
    TcpEndpoints foreign = m_endpoints;
    switch (arrival.kind) {
        case EArrival::Segment: break;
        case EArrival::DamagedCopy: return DamagedFrame(arrival);
        case EArrival::LyingCopy: return LyingFrame(arrival);
        case EArrival::ForeignPort:
            foreign.srcPort = static_cast<uint16_t>(1 + arrival.draw % SYSTEM_PORTS);
            return ForeignFrame(arrival, foreign);
        case EArrival::ForeignHost:
            foreign.srcIp ^= 1 + arrival.draw % UINT8_MAX;
            return ForeignFrame(arrival, foreign);
        case EArrival::Acknowledgement: return Writer(m_endpoints, position).Flags(TCP_ACK).Frame();
        case EArrival::ResetWithoutAck: return Writer(m_endpoints, position).Flags(TCP_RST).Frame();
        case EArrival::Reset: return Writer(m_endpoints, position).Flags(TCP_RST | TCP_ACK).Frame();
    }
    return Writer(m_endpoints, position).Payload(PayloadOf(arrival)).Frame();
}

std::vector<uint8_t> SnapshotConnection::DamagedFrame(const Arrival& arrival) const {
    std::vector<uint8_t> frame = Writer(m_endpoints, arrival.segment.begin).Payload(PayloadOf(arrival)).Frame();
    const std::size_t bit = arrival.draw % ((frame.size() - frame_headers::BYTES_MIN) * 8);
    frame[frame_headers::BYTES_MIN + bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
    return frame;
}

/// The checksum agrees with what the headers say. None of these lies leaves a segment that could be taken for one of
/// the stream.
std::vector<uint8_t> SnapshotConnection::LyingFrame(const Arrival& arrival) const {
    const std::vector<uint8_t> payload = PayloadOf(arrival);
    const uint32_t size = arrival.draw / 4;
    FrameWriter writer = Writer(m_endpoints, arrival.segment.begin);
    writer.Payload(payload);
    switch (arrival.draw % 4) {
        case 0: return writer.WithTotalLengthOff(static_cast<int>(1 + size % BEYOND_MAX)).Frame();
        case 1: return writer.WithTotalLengthOff(-static_cast<int>(payload.size() + 1 + size % 20)).Frame();
        case 2: return writer.WithIpHeaderWords(static_cast<uint8_t>(size % HEADER_WORDS_TRUE)).Frame();
        default: return writer.WithTcpHeaderWords(static_cast<uint8_t>(size % HEADER_WORDS_TRUE)).Frame();
    }
}

/// Begins as the right segment does and goes on otherwise.
std::vector<uint8_t> SnapshotConnection::ForeignFrame(const Arrival& arrival, const TcpEndpoints& foreign) const {
    std::vector<uint8_t> payload = PayloadOf(arrival);
    for (std::size_t i = sizeof(mdqp_t); i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(~payload[i]);
    return Writer(foreign, arrival.segment.begin).Payload(std::move(payload)).Frame();
}

std::vector<uint8_t> SnapshotConnection::PayloadOf(const Arrival& arrival) const {
    return {m_stream.begin() + static_cast<std::ptrdiff_t>(arrival.segment.begin),
            m_stream.begin() + static_cast<std::ptrdiff_t>(arrival.segment.end)};
}

FrameWriter SnapshotConnection::Writer(const TcpEndpoints& endpoints, std::size_t position) const {
    FrameWriter writer(endpoints);
    writer.Seq(m_initialSeq + static_cast<uint32_t>(position)).Flags(TCP_PSH | TCP_ACK);
    return writer;
}

}  // namespace exchange

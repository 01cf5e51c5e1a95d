// Cuts a snapshot into segments, plans their arrival with the faults asked for, and builds each frame when it is due.
// Cuts and faults draw from streams of their own: a fault never moves a cut.
#include "exchange/SnapshotConnection.h"

#include <algorithm>
#include <utility>

#include "src/Mdqp.h"

namespace exchange {
namespace {

constexpr std::size_t MSS = 1400;
constexpr uint32_t FLUSH_ONE_IN = 8;  // messages at whose end the server flushes, so that a segment ends there
constexpr uint32_t REORDER_PLACES = 8;
constexpr uint32_t REORDER_WINDOW = 3;
constexpr uint32_t REPEAT_ONE_IN = 16;   // segments
constexpr uint32_t CORRUPT_ONE_IN = 16;  // segments
constexpr std::size_t FRAME_HEADERS = 14 + 20 + 20;

}  // namespace

SnapshotConnection::SnapshotConnection(const TcpEndpoints& endpoints, uint32_t initialSeq,
                                       const std::vector<std::vector<uint8_t>>& messages, const Faults& faults,
                                       uint64_t seed)
    : m_endpoints(endpoints), m_initialSeq(initialSeq), m_cuts(seed, "cuts"), m_chance(seed, "faults") {
    Cut(messages);
    PlanArrivals(faults);
    m_willReset = faults.reset;
    if (faults.reset || faults.stall) m_breakAt = HalfWay();
}

/// A segment is full, or ends where the server flushed. One that would end inside a message's header ends before it:
/// receivers lose the place in a stream whose segment leaves less than a header behind.
void SnapshotConnection::Cut(const std::vector<std::vector<uint8_t>>& messages) {
    std::size_t begin = 0;
    for (const std::vector<uint8_t>& message : messages) {
        const std::size_t start = m_stream.size();
        m_stream.insert(m_stream.end(), message.begin(), message.end());
        while (m_stream.size() - begin > MSS) {
            const std::size_t full = begin + MSS;
            const bool isInHeader = full > start && full - start < sizeof(mdqp_t);
            m_segments.push_back({begin, isInHeader ? start : full});
            begin = m_segments.back().end;
        }
        const bool isFlushed = &message == &messages.front() || m_cuts.OneIn(FLUSH_ONE_IN);
        if (isFlushed && m_stream.size() > begin) {
            m_segments.push_back({begin, m_stream.size()});
            begin = m_stream.size();
        }
    }
    if (m_stream.size() > begin) m_segments.push_back({begin, m_stream.size()});
}

void SnapshotConnection::PlanArrivals(const Faults& faults) {
    for (const Segment& segment : m_segments) {
        if (faults.corrupt && m_chance.OneIn(CORRUPT_ONE_IN)) m_arrivals.push_back({segment, true});
        m_arrivals.push_back({segment, false});
        if (faults.duplicate && m_chance.OneIn(REPEAT_ONE_IN)) m_arrivals.push_back({segment, false});
    }
    if (faults.reorder) Reorder();
}

/// The first segment and its copies stay in front: it names the feed.
void SnapshotConnection::Reorder() {
    std::size_t first = 0;
    while (first < m_arrivals.size() && m_arrivals[first].segment.begin == 0) ++first;
    const std::size_t movable = m_arrivals.size() - first;
    for (uint32_t place = 0; place < REORDER_PLACES && movable > 1; ++place) {
        const std::size_t at = m_chance.Below(static_cast<uint32_t>(movable - 1));
        const std::size_t with = std::min(at + 1 + m_chance.Below(REORDER_WINDOW), movable - 1);
        std::swap(m_arrivals[first + at], m_arrivals[first + with]);
    }
}

/// Fewer arrivals than there are segments, so that copies cannot complete the stream.
std::size_t SnapshotConnection::HalfWay() const {
    const std::size_t incomplete = m_segments.empty() ? 0 : m_segments.size() - 1;
    return std::min(m_arrivals.size() / 2, incomplete);
}

bool SnapshotConnection::NextFrame(std::vector<uint8_t>& frame) {
    if (m_isReset) return false;
    if (m_next >= m_breakAt) {
        if (!m_willReset) return false;
        m_isReset = true;
        frame = Writer(m_next == 0 ? 0 : m_arrivals[m_next - 1].segment.end).Flags(TCP_RST | TCP_ACK).Frame();
        return true;
    }
    frame = IsSent() ? Writer(m_stream.size()).Flags(TCP_ACK).Frame() : FrameOf(m_arrivals[m_next++]);
    return true;
}

bool SnapshotConnection::IsSent() const { return m_next >= m_arrivals.size() && m_breakAt == SIZE_MAX; }

bool SnapshotConnection::IsReset() const { return m_isReset; }

std::vector<uint8_t> SnapshotConnection::FrameOf(const Arrival& arrival) {
    const auto begin = m_stream.begin() + static_cast<std::ptrdiff_t>(arrival.segment.begin);
    const auto end = m_stream.begin() + static_cast<std::ptrdiff_t>(arrival.segment.end);
    std::vector<uint8_t> frame =
        Writer(arrival.segment.begin).Flags(TCP_PSH | TCP_ACK).Payload(std::vector<uint8_t>(begin, end)).Frame();
    if (arrival.isDamaged && frame.size() > FRAME_HEADERS) {
        const auto payloadSize = static_cast<uint32_t>(frame.size() - FRAME_HEADERS);
        const uint32_t bit = m_chance.Below(8);
        frame[FRAME_HEADERS + m_chance.Below(payloadSize)] ^= static_cast<uint8_t>(1U << bit);
    }
    return frame;
}

FrameWriter SnapshotConnection::Writer(std::size_t position) const {
    FrameWriter writer(m_endpoints);
    writer.Seq(m_initialSeq + static_cast<uint32_t>(position));
    return writer;
}

}  // namespace exchange

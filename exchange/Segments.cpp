// Cuts the stream of a connection. Each way of cutting draws from a stream of its own; no other fault moves a cut.
#include "exchange/Segments.h"

#include <algorithm>

#include "exchange/Random.h"
#include "src/Mdqp.h"

namespace exchange {
namespace {

using Messages = std::vector<std::vector<uint8_t>>;

constexpr uint32_t FLUSH_ONE_IN = 8;  // messages at whose end the server flushes, so that a segment ends there
constexpr uint32_t ONE_BYTE_ONE_IN = 4;
constexpr uint32_t SMALL_BYTES = 200;

/// A segment is full, or ends where the server flushed. One that would end inside a message's header ends before it:
/// receivers lose the place in a stream whose segment leaves less than a header behind.
std::vector<Segment> CutFull(const Messages& messages, uint64_t seed) {
    Random chance(seed, "cuts");
    std::vector<Segment> segments;
    std::size_t begin = 0;
    std::size_t start = 0;
    for (const std::vector<uint8_t>& message : messages) {
        const std::size_t end = start + message.size();
        while (end - begin > SEGMENT_BYTES_MAX) {
            const std::size_t full = begin + SEGMENT_BYTES_MAX;
            const bool isInHeader = full > start && full - start < sizeof(mdqp_t);
            segments.push_back({begin, isInHeader ? start : full});
            begin = segments.back().end;
        }
        const bool isFlushed = &message == &messages.front() || chance.OneIn(FLUSH_ONE_IN);
        if (isFlushed && end > begin) {
            segments.push_back({begin, end});
            begin = end;
        }
        start = end;
    }
    if (start > begin) segments.push_back({begin, start});
    return segments;
}

/// Walks over message starts in rising order.
class HeaderEnds {
public:
    explicit HeaderEnds(const Messages& messages) : m_messages(messages) {}

    /// `position`, or the end of the header that it lies in.
    std::size_t AtOrBehind(std::size_t position) {
        while (m_next < m_messages.size() && m_start + m_messages[m_next].size() <= position) {
            m_start += m_messages[m_next++].size();
        }
        return position > m_start ? std::max(position, m_start + sizeof(mdqp_t)) : position;
    }

private:
    const Messages& m_messages;
    std::size_t m_next = 0;
    std::size_t m_start = 0;  ///< of the message that holds the position
};

template <typename Adjust>
std::vector<Segment> CutByChance(const Messages& messages, uint32_t longest, Random chance, Adjust adjust) {
    std::size_t size = 0;
    for (const std::vector<uint8_t>& message : messages) size += message.size();
    std::vector<Segment> segments;
    if (size == 0) return segments;
    segments.push_back({0, std::min(messages.front().size(), SEGMENT_BYTES_MAX)});
    while (segments.back().end < size) {
        const std::size_t begin = segments.back().end;
        const std::size_t length = chance.OneIn(ONE_BYTE_ONE_IN) ? 1 : 1 + chance.Below(longest);
        segments.push_back({begin, std::min(adjust(begin + length), size)});
    }
    return segments;
}

}  // namespace

std::vector<Segment> CutSegments(const Messages& messages, const Faults& faults, uint64_t seed) {
    if (faults.Has(EFault::SplitAnywhere)) {
        return CutByChance(messages, SEGMENT_BYTES_MAX, Random(seed, FaultName(EFault::SplitAnywhere)),
                           [](std::size_t end) { return end; });
    }
    if (faults.Has(EFault::SplitSmall)) {
        HeaderEnds headers(messages);
        return CutByChance(messages, SMALL_BYTES, Random(seed, FaultName(EFault::SplitSmall)),
                           [&](std::size_t end) { return headers.AtOrBehind(end); });
    }
    return CutFull(messages, seed);
}

}  // namespace exchange

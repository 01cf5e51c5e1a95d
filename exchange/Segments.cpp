// Cuts the stream of a connection. Each way of cutting draws from a stream of its own; no other fault moves a cut.
#include "exchange/Segments.h"

#include <algorithm>
#include <set>

#include "common/Mdqp.h"
#include "exchange/Random.h"

namespace exchange {
namespace {

using Messages = std::vector<std::vector<uint8_t>>;

constexpr uint32_t FLUSH_ONE_IN = 8;  // messages at whose end the server flushes, so that a segment ends there
constexpr uint32_t ONE_BYTE_ONE_IN = 4;
constexpr uint32_t SMALL_BYTES = 200;
constexpr uint32_t CUT_HEADER_ONE_IN = 2;  // messages
constexpr std::size_t KNOWN_BY_BYTES = 2;  // flag and type: by them a receiver knows the header whose rest it has not

std::size_t SizeOf(const Messages& messages) {
    std::size_t size = 0;
    for (const std::vector<uint8_t>& message : messages) size += message.size();
    return size;
}

/// The first message alone, as far as it goes. What a long first segment brings behind it is shorter than the first
/// message, but for a second one of the same size: receivers step through the first segment by the size of the first.
std::size_t FirstEnd(const Messages& messages, const Faults& faults, uint64_t seed) {
    const std::size_t size = messages.front().size();
    const std::size_t steps = messages.size() > 1 && messages[1].size() == size ? 2 : 1;
    const std::size_t longest = std::min({SizeOf(messages), SEGMENT_BYTES_MAX, (steps + 1) * size - 1});
    const std::size_t shortest = size + sizeof(mdqp_t);
    if (!faults.Has(EFault::LongFirstSegment) || longest < shortest) return std::min(size, SEGMENT_BYTES_MAX);
    Random chance(seed, FaultName(EFault::LongFirstSegment));
    const std::size_t drawn = shortest + chance.Below(static_cast<uint32_t>(longest - shortest + 1));
    const std::size_t end = chance.OneIn(2) ? longest : drawn;
    // Whole headers behind the second message, too.
    const bool isInHeader = steps == 2 && end > 2 * size && end < 2 * size + sizeof(mdqp_t);
    return isInHeader ? 2 * size : end;
}

/// A segment is full, or ends where the server flushed. One that would end inside a message's header ends before it:
/// receivers lose the place in a stream whose segment leaves less than a header behind.
std::vector<Segment> CutFull(const Messages& messages, std::size_t firstEnd, uint64_t seed) {
    Random chance(seed, "cuts");
    std::vector<Segment> segments{{0, firstEnd}};
    std::size_t begin = firstEnd;
    std::size_t start = 0;
    for (const std::vector<uint8_t>& message : messages) {
        const std::size_t end = start + message.size();
        while (end > begin + SEGMENT_BYTES_MAX) {
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
std::vector<Segment> CutByChance(const Messages& messages, std::size_t firstEnd, uint32_t longest, Random chance,
                                 Adjust adjust) {
    const std::size_t size = SizeOf(messages);
    std::vector<Segment> segments{{0, firstEnd}};
    while (segments.back().end < size) {
        const std::size_t begin = segments.back().end;
        const std::size_t length = chance.OneIn(ONE_BYTE_ONE_IN) ? 1 : 1 + chance.Below(longest);
        segments.push_back({begin, std::min(adjust(begin + length), size)});
    }
    return segments;
}

std::vector<Segment> CutWhole(const Messages& messages, const Faults& faults, uint64_t seed) {
    const std::size_t firstEnd = FirstEnd(messages, faults, seed);
    if (faults.Has(EFault::SplitAnywhere)) {
        return CutByChance(messages, firstEnd, SEGMENT_BYTES_MAX, Random(seed, FaultName(EFault::SplitAnywhere)),
                           [](std::size_t end) { return end; });
    }
    if (faults.Has(EFault::SplitSmall)) {
        HeaderEnds headers(messages);
        return CutByChance(messages, firstEnd, SMALL_BYTES, Random(seed, FaultName(EFault::SplitSmall)),
                           [&](std::size_t end) { return headers.AtOrBehind(end); });
    }
    return CutFull(messages, firstEnd, seed);
}

/// Further ends, wherever they fall: in front of a message, behind two to seven bytes of its header, now and then
/// behind one more.
std::vector<Segment> CutHeaders(const std::vector<Segment>& whole, const Messages& messages, Random chance) {
    std::set<std::size_t> ends;
    for (const Segment& segment : whole) ends.insert(segment.end);
    std::size_t start = 0;
    for (const std::vector<uint8_t>& message : messages) {
        if (start >= whole.front().end && chance.OneIn(CUT_HEADER_ONE_IN)) {
            const std::size_t cut = start + KNOWN_BY_BYTES + chance.Below(sizeof(mdqp_t) - KNOWN_BY_BYTES);
            ends.insert({start, cut});
            if (chance.OneIn(ONE_BYTE_ONE_IN)) ends.insert(cut + 1);
        }
        start += message.size();
    }
    std::vector<Segment> segments;
    segments.reserve(ends.size());
    for (const std::size_t end : ends) segments.push_back({segments.empty() ? 0 : segments.back().end, end});
    return segments;
}

}  // namespace

std::vector<Segment> CutSegments(const Messages& messages, const Faults& faults, uint64_t seed) {
    if (SizeOf(messages) == 0) return {};
    std::vector<Segment> whole = CutWhole(messages, faults, seed);
    if (!faults.Has(EFault::SplitHeaders)) return whole;
    return CutHeaders(whole, messages, Random(seed, FaultName(EFault::SplitHeaders)));
}

}  // namespace exchange

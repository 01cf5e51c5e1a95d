/// Where a snapshot server's stream is cut into TCP segments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "exchange/Faults.h"

namespace exchange {

constexpr std::size_t SEGMENT_BYTES_MAX = 1400;

/// Bytes `begin` to `end` of the stream.
struct Segment {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// The segments of these messages, one behind the other. The first one carries the first message alone, as far as it
/// goes, and none ends one to seven bytes into a message: a server that flushes whole headers behaves so, and receivers
/// rely on it. Of the faults, split-small makes them tiny, long-first-segment and split-headers break these rules in
/// ways that receivers can follow, and split-anywhere in any way.
std::vector<Segment> CutSegments(const std::vector<std::vector<uint8_t>>& messages, const Faults& faults,
                                 uint64_t seed);

}  // namespace exchange

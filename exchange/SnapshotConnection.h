/// One TCP connection of a snapshot server, as the frames that arrive at the host. Nothing answers it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "exchange/Faults.h"
#include "exchange/FrameWriter.h"
#include "exchange/Random.h"

namespace exchange {

class SnapshotConnection {
public:
    /// `messages` are whole MDQP messages. The first segment carries the first message alone, and no segment ends one
    /// to seven bytes into a message: a server that flushes whole headers behaves so, and receivers rely on it.
    /// `faults` are those of this connection; what they do is drawn from `seed`.
    SnapshotConnection(const TcpEndpoints& endpoints, uint32_t initialSeq,
                       const std::vector<std::vector<uint8_t>>& messages, const Faults& faults, uint64_t seed);

    /// The next frame to arrive. Once the stream has been sent, a bare acknowledgement each time (so that the receiver
    /// has a segment on which to notice that all is there). False when nothing comes (stalled, or reset).
    bool NextFrame(std::vector<uint8_t>& frame);

    bool IsSent() const;   ///< every message has been handed out
    bool IsReset() const;  ///< the connection was reset

private:
    /// Bytes `begin` to `end` of the stream.
    struct Segment {
        std::size_t begin = 0;
        std::size_t end = 0;
    };

    struct Arrival {
        Segment segment;
        bool isDamaged = false;
    };

    void Cut(const std::vector<std::vector<uint8_t>>& messages);
    void PlanArrivals(const Faults& faults);
    void Reorder();
    std::size_t HalfWay() const;
    std::vector<uint8_t> FrameOf(const Arrival& arrival);
    FrameWriter Writer(std::size_t position) const;

    TcpEndpoints m_endpoints;
    uint32_t m_initialSeq;
    Random m_cuts;
    Random m_chance;
    std::vector<uint8_t> m_stream;
    std::vector<Segment> m_segments;
    std::vector<Arrival> m_arrivals;
    std::size_t m_breakAt = SIZE_MAX;  ///< the arrival before which a reset or a stall takes place
    std::size_t m_next = 0;
    bool m_willReset = false;
    bool m_isReset = false;
};

}  // namespace exchange

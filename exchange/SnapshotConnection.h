/// One TCP connection of a snapshot server, as the frames that arrive at the host. Nothing answers it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "exchange/Faults.h"
#include "exchange/FrameWriter.h"
#include "exchange/Random.h"
#include "exchange/Segments.h"

namespace exchange {

class SnapshotConnection {
public:
    /// `messages` are whole MDQP messages. `faults` are those of this connection, at whatever moment; what they do is
    /// drawn from `seed`. Of several that end it early the first in the order of EFault counts.
    SnapshotConnection(const TcpEndpoints& endpoints, uint32_t initialSeq,
                       const std::vector<std::vector<uint8_t>>& messages, const Faults& faults, uint64_t seed);

    /// The next frame to arrive. Once the stream has been sent, a bare acknowledgement each time (so that the receiver
    /// has a segment on which to notice that all is there). False when nothing comes any more.
    bool NextFrame(std::vector<uint8_t>& frame);

    bool IsHalfWay() const;  ///< half of the frames have been handed out, or more
    bool IsSent() const;     ///< every message has been handed out
    bool IsOver() const;     ///< handed out whatever makes a receiver forget all its connections

private:
    enum class EArrival : uint8_t {
        Segment,
        DamagedCopy,
        LyingCopy,
        ForeignPort,
        ForeignHost,
        Acknowledgement,
        ResetWithoutAck,
        Reset,
    };

    struct Arrival {
        Segment segment;
        EArrival kind = EArrival::Segment;
        uint32_t draw = 0;  ///< chance for whatever the kind leaves open
    };

    enum class EEnding : uint8_t { Acknowledgements, Silence, Over };

    bool IsWrapped(const Segment& segment) const;
    bool IsLastBeforeWrap(const std::vector<Segment>& order, std::size_t at) const;
    void DelaySome(std::vector<Segment>& order, uint64_t seed) const;
    void SwapSome(std::vector<Segment>& order, uint64_t seed) const;
    void CutShort(std::vector<Segment>& order, const Faults& faults);
    void PlanAcknowledgement(const Segment& next, Random& chance);
    void PlanArrivals(const std::vector<Segment>& order, const Faults& faults, uint64_t seed);
    void PlanEnding(const std::vector<Segment>& order, const Faults& faults);

    std::vector<uint8_t> PayloadOf(const Arrival& arrival) const;
    std::vector<uint8_t> FrameOf(const Arrival& arrival) const;
    std::vector<uint8_t> DamagedFrame(const Arrival& arrival) const;
    std::vector<uint8_t> LyingFrame(const Arrival& arrival) const;
    std::vector<uint8_t> ForeignFrame(const Arrival& arrival, const TcpEndpoints& foreign) const;
    FrameWriter Writer(const TcpEndpoints& endpoints, std::size_t position) const;

    TcpEndpoints m_endpoints;
    uint32_t m_initialSeq;
    std::vector<uint8_t> m_stream;
    std::vector<Arrival> m_arrivals;
    std::size_t m_next = 0;
    EEnding m_ending = EEnding::Acknowledgements;
};

}  // namespace exchange

/// The receiving half of the snapshot connections, worked out a second time from the frames alone: which messages are
/// whole, which feed is whose, when everything begins again, and what must become of a complete snapshot.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "simulation/base/SessionPlan.h"
#include "simulation/rules/SnapshotContents.h"

namespace simulation {

class SnapshotReckoning {
public:
    enum class EOutcome : uint8_t { GoesOn, Used, Refused };

    /// What the last frame makes the receiver drop.
    struct Dropped {
        uint64_t otherHost = 0;
        uint64_t repeated = 0;
        uint64_t earlyEmpty = 0;
        uint64_t refused = 0;
        bool operator==(const Dropped&) const = default;
    };
    const Dropped& LastDropped() const { return m_dropped; }

    explicit SnapshotReckoning(const SessionPlan& plan) : m_plan(plan) {}

    void OnBringUp();
    /// From here to the next bring-up nothing is known: memory ran out, or the stream loses its place by itself.
    void GiveUp() { m_isKnown = false; }
    bool IsKnown() const { return m_isKnown; }
    /// The last frame ended the snapshot and everything else: what was used has been cleared.
    bool IsUsedAndCleared() const { return m_isUsedAndCleared; }

    /// One sound frame. What must become of the snapshot before the frame itself is looked at.
    EOutcome OnFrame(const uint8_t* frame);

    /// Registers that the last frame lets the host write, in order.
    const std::vector<SnapshotContents::RegisterWrite>& RegisterWrites() const { return m_told; }
    const SnapshotContents& Contents() const { return m_contents; }
    uint8_t FinishedMask() const { return m_contents.FinishedMask(); }

    /// Instruments that failed the check and are not to be subscribed to.
    const std::set<std::pair<int32_t, int32_t>>& Insane() const { return m_insane; }

private:
    struct Segment {
        uint32_t seq;
        std::vector<uint8_t> payload;
    };

    struct Connection {
        bool isBound = false;
        uint32_t fromIp = 0;
        uint32_t toIp = 0;
        uint32_t expected = 0;
        std::vector<uint8_t> kept;  ///< the beginning of the stream that is not parsed yet
        std::vector<Segment> early;
        uint32_t stored = 0;  ///< early ones since there were none
    };

    void Clear();
    bool Begin(uint16_t port, Connection& connection, const uint8_t* payload, uint32_t length);
    bool Bind(uint16_t port, Connection& connection, int16_t topic);
    void Parse(uint16_t port, Connection& connection, uint32_t step);
    void Deliver(uint16_t port, Connection& connection, const uint8_t* payload, uint32_t length);
    void Keep(Connection& connection, uint32_t seq, const uint8_t* payload, uint32_t length);
    void Drain(uint16_t port, Connection& connection);
    void Hand(uint16_t port, const uint8_t* message);

    const SessionPlan& m_plan;
    bool m_isKnown = true;
    bool m_isUsedAndCleared = false;
    std::map<uint16_t, Connection> m_connections;  ///< by local port
    std::array<uint16_t, FEED_COUNT> m_portOf{};   ///< 0: none
    SnapshotContents m_contents;
    std::set<std::pair<int32_t, int32_t>> m_insane;
    std::vector<SnapshotContents::RegisterWrite> m_told;
    Dropped m_dropped;
};

}  // namespace simulation

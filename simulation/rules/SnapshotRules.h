/// The snapshot as it arrives: once every feed has finished it is used at the next sound segment, unless its prices are
/// refused. A finished feed stays finished.
#pragma once

#include <array>
#include <cstdint>

#include "common/FpgaStructCommon.h"

namespace simulation {

class SnapshotRules {
public:
    /// A segment of a snapshot server that nothing is wrong with.
    bool IsSound(const unsigned char* frame, uint32_t length) const;

    /// `ports`: any of which a snapshot server may use.
    explicit SnapshotRules(const std::array<uint16_t, FEED_COUNT>& ports) : m_ports(ports) {}

    void OnBringUp() { *this = SnapshotRules(m_ports); }

    /// One frame about to be handed to the library; `wanted` is the mask of the feeds that load.
    void OnFrame(const unsigned char* frame, uint32_t length, uint8_t wanted);
    void OnPriceCheckFailed() { m_isRefused = true; }
    void OnUsed() const;

    /// After each message that did not end the phase: the mask of finished feeds, and how often everything was cleared.
    void OnFinishedMask(uint8_t mask, uint64_t clears);
    uint8_t FinishedMask() const { return m_mask; }

private:
    std::array<uint16_t, FEED_COUNT> m_ports;
    bool m_isDue = false;
    bool m_isRefused = false;
    uint8_t m_mask = 0;
    uint64_t m_clears = 0;
};

}  // namespace simulation

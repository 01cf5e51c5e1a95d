/// Whether a start may leave a board that runs as it is: asked to by the configuration, with this very file in force,
/// data flowing on at least one feed and no event, between two samples of the counters. What the samples show is drawn.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "common/FpgaStructCommon.h"
#include "exchange/Random.h"

namespace simulation {

/// The checksum (Castagnoli's, as usual) that a start keeps on the board.
uint32_t ChecksumOf(const std::string& file);

class StartDecision {
public:
    explicit StartDecision(uint64_t seed) : m_random(seed, "samples") {}

    /// A start of the managing channel; data flow only on a board that runs.
    void OnStart(bool isAsked, uint32_t fileChecksum, bool isRunning);

    /// What the host is to see in a register that is about to be read, of which the board says `value`.
    uint64_t ShownValue(uint32_t index, uint64_t value);

    bool MayLeaveAlone() const { return m_isAsked && m_isSameFile && m_hasFlowed && !m_hasEvent; }
    /// What the samples show, for the reach.
    const char* Shown() const { return AllShown()[static_cast<std::size_t>(m_shown)]; }
    static std::array<const char*, 5> AllShown();

private:
    enum class EShown : uint8_t { Board, Idle, Flow, FlowAndEvent, EventAlone, Count_ };

    uint64_t Shift(std::size_t counter) const;

    exchange::Random m_random;
    bool m_isAsked = false;
    uint32_t m_fileChecksum = 0;
    EShown m_shown = EShown::Board;
    std::size_t m_flowing = 0;  ///< the one counter that moves
    std::array<uint64_t, FEED_COUNT + 1> m_first{};
    std::array<bool, FEED_COUNT + 1> m_isSampled{};
    bool m_isSameFile = false;
    bool m_hasFlowed = false;
    bool m_hasEvent = false;
};

}  // namespace simulation

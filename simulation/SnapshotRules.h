/// The snapshot as it arrives: complete, it is used at the next segment; refused, never. A finished feed stays
/// finished.
#pragma once

#include <cstdint>
#include <set>

namespace simulation {

class SnapshotRules {
public:
    void OnBringUp() { *this = SnapshotRules(); }

    /// One frame handed to the library, `feeds` being the number of feeds that load.
    void OnFrame(const unsigned char* frame, uint32_t length, std::size_t feeds);
    void OnPriceCheckFailed() { m_isRefused = true; }
    void OnUsed() const;

    /// After each message: the mask of finished feeds, and whether everything was cleared since the last one.
    void OnFinishedMask(uint8_t mask, uint64_t clears);
    uint8_t FinishedMask() const { return m_mask; }

private:
    void BeginRound();

    std::set<uint16_t> m_ports;
    std::set<uint16_t> m_sent;  ///< connections whose bare acknowledgement has been seen: all of their data is there
    uint32_t m_segmentsAfter = 0;
    bool m_isRefused = false;
    uint8_t m_mask = 0;
    uint64_t m_clears = 0;
};

}  // namespace simulation

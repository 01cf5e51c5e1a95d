/// What snapshot messages say, read a second time: the slots of each feed, their counts and the feeds that have ended.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "simulation/base/Settings.h"

namespace simulation {

class SnapshotContents {
public:
    /// A register that a message lets the host write.
    struct RegisterWrite {
        uint32_t index;
        uint32_t value;
    };

    void Clear() { *this = SnapshotContents(); }

    /// A whole message of a feed; what it has told the board is added to `told`. True when it ends the feed.
    bool Read(EMDQPDataType feed, const uint8_t* message, std::vector<RegisterWrite>& told);

    /// Slots from 0 to the highest number that was described.
    const std::vector<SInstTableType>& Slots(EMDQPDataType feed) const { return m_slots[Index(feed)]; }
    int32_t Count(EMDQPDataType feed) const { return m_counts[Index(feed)]; }
    uint8_t FinishedMask() const { return m_finished; }

    /// The slots as they go to the board: with the fault that the configuration asks for.
    std::vector<SInstTableType> ForBoard(EMDQPDataType feed, const Settings& settings) const;

    /// Slots whose book is not sane.
    std::set<std::pair<int32_t, int32_t>> Insane() const;

private:
    static std::size_t Index(EMDQPDataType feed) { return static_cast<std::size_t>(feed); }
    SInstTableType* Slot(EMDQPDataType feed, int32_t instNo);
    void ReadField(EMDQPDataType feed, uint32_t id, const uint8_t* data, bool isBookNew,
                   std::vector<RegisterWrite>& told);
    void Describe(EMDQPDataType feed, const uint8_t* data);
    static void PutDeal(SInstTableType& slot, const uint8_t* data);
    static void PutLevel(SInstTableType& slot, const uint8_t* data, bool isBookNew);
    static void PutOrders(SInstTableType& slot, const uint8_t* data);

    std::array<std::vector<SInstTableType>, FEED_COUNT> m_slots;
    std::array<int32_t, FEED_COUNT> m_counts{};
    uint8_t m_finished = 0;
};

}  // namespace simulation

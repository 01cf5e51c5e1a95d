/// Which slots of one exchange an entry of a channel's instrument list selects, found without a look at any other slot.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "common/Feed.h"
#include "common/FpgaStructCommon.h"

/// Products ("cu") and futures ("cu2612") select by prefix; any other entry is a whole id and selects that instrument,
/// option or not. Where a channel takes everything, each entry does.
bool IsSelected(const U50ChannelInfo& channel, std::string_view id, std::string_view entry);

class CSelection {
public:
    struct Slot {
        std::string_view id;
        int32_t instNo;
        EMDQPDataType feed;
    };

    explicit CSelection(const U50ChannelInfo& channel) : m_channel(channel) {}

    /// Slots come in the order in which they are to be subscribed; `id` must stay where it is.
    void Add(const Slot& slot) { m_all.push_back(slot); }

    /// All have been added.
    void Sort();

    /// What the entry selects, in the order of adding; good until the next call.
    const std::vector<Slot>& Of(std::string_view entry);

private:
    void TakeRange(const std::vector<Slot>& byId, std::string_view entry);

    const U50ChannelInfo& m_channel;
    std::vector<Slot> m_all;         ///< by id once sorted
    std::vector<Slot> m_wanted;      ///< what a prefix may select: options only where they are wanted
    std::vector<Slot> m_everything;  ///< the same in the order of adding
    std::vector<Slot> m_found;
};

/// The host's instrument tables while a snapshot fills them: which connection is which feed's, which slots are in use,
/// which feeds have finished. One thread.
///
/// Invariants: no slot outside a feed's table is ever handed out, whatever the number; what was handed out is cleared.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/Feed.h"

class CInstrumentStore {
public:
    /// What it keeps in order, and what outlives it.
    struct State {
        U50InstTable& tables;
        U50InstCount& counts;
        U50DstPort& ports;
        UEnabledMask& finished;
        int32_t& tradingDay;
    };

    explicit CInstrumentStore(const State& state) : m_state(state) {}
    CInstrumentStore(const CInstrumentStore&) = delete;
    CInstrumentStore& operator=(const CInstrumentStore&) = delete;

    // ---- connections ----

    void Bind(EMDQPDataType feed, uint16_t port) { m_state.ports.*TraitsOf(feed).dstPort = port; }

    /// False, and `feed` untouched, for a port that no feed has.
    bool Find(uint16_t port, EMDQPDataType& feed) const;

    // ---- slots ----

    /// Whether the feed's table reaches as far; told once in a process and exchange when it does not. A negative number
    /// passes, and has no slot.
    static bool Protect(EMDQPDataType feed, int32_t instNo);

    /// The slot of a number, to be written to; null when there is none.
    SInstTableType* Slot(EMDQPDataType feed, int32_t instNo);

    SInstTableType* Table(EMDQPDataType feed) { return FeedTable(m_state.tables, feed); }

    /// The first `slots` of the feed are written to from outside.
    void Touch(EMDQPDataType feed, int32_t slots);

    /// Notes that there is an instrument of this number.
    void Count(EMDQPDataType feed, int32_t instNo);

    /// One past the highest number met.
    uint64_t Instruments(EMDQPDataType feed) const { return m_state.counts.*TraitsOf(feed).instCount; }

    /// Slots in use; never more than there are.
    int32_t UsedSlots(EMDQPDataType feed) const {
        return std::min(static_cast<int32_t>(Instruments(feed)), TraitsOf(feed).capacity);
    }

    /// Notes a day of trading, yyyymmdd; the latest one counts.
    void NoteDay(int32_t day);

    // ---- the end of a feed, and of everything ----

    /// Later messages of the feed's connection must no longer reach the table, so its port is forgotten.
    void Finish(EMDQPDataType feed);

    bool HasFinished(EMDQPDataType feed) const { return HasFeed(m_state.finished, feed); }
    uint8_t Finished() const { return m_state.finished.enabled_mask; }

    /// Feeds, connections and slots, as after a loss: the counts stay until the next bring-up.
    void Forget();

    void Clear();

    // Set while a warning is still to be given in this process: of a number beyond the table, and of a table that is
    // 80 % full.
    static bool shfe_cnt_flag;
    static bool ine_cnt_flag;
    static bool shfe_cnt_80_flag;
    static bool ine_cnt_80_flag;

private:
    State m_state;
    std::array<int32_t, FEED_COUNT> m_touched{};  ///< one past the highest slot handed out
};

/// What the session dropped, refused or began again. Every such thing moves exactly one counter.
#pragma once

#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>

enum class ECounter : uint32_t {
    MessageTooLong,  ///< DMA message beyond 2048 bytes
    FrameMalformed,  ///< IP or TCP header or length that does not fit the frame
    FrameForeign,    ///< not TCP over IP, or not from a snapshot port
    ChecksumWrong,
    SegmentOtherHost,     ///< addresses differ from the connection's
    SegmentRepeated,      ///< below the expected sequence number, or stored already
    SegmentEarlyDropped,  ///< empty, too long for an early entry, or no memory
    SegmentRefused,       ///< does not begin a connection: no snapshot header, no or a foreign or finished feed
    PayloadNotMdqp,       ///< begins with no message, or comes behind bytes that do not
    CarryOverGivenUp,     ///< "ignore tcp message!"
    FieldMalformed,       ///< a record or a message that would be read beyond what is there
    FieldUnknown,
    InstNoOutOfRange,
    MessageOfNoFeed,
    ResetByPeer,          ///< RST+ACK: everything begins again
    EarlyOverflow,        ///< too many early segments: everything begins again
    PriceCheckFailed,     ///< everything begins again
    EventLoss,            ///< board events that made the session rebuild
    UpdateUndeliverable,  ///< no Spi, or no record to copy into
    PollFailed,           ///< polls of a stream that had failed
    RegisterFailed,       ///< register accesses that the board did not answer; of the whole process
    Count_,
};

inline constexpr std::array<const char*, static_cast<std::size_t>(ECounter::Count_)> COUNTER_NAMES{
    "message_too_long", "frame_malformed",       "frame_foreign",        "checksum_wrong",       "segment_other_host",
    "segment_repeated", "segment_early_dropped", "segment_refused",      "payload_not_mdqp",     "carry_over_given_up",
    "field_malformed",  "field_unknown",         "inst_no_out_of_range", "message_of_no_feed",   "reset_by_peer",
    "early_overflow",   "price_check_failed",    "event_loss",           "update_undeliverable", "poll_failed",
    "register_failed"};
static_assert(COUNTER_NAMES.back() != nullptr, "each counter has a name");

class CCounters {
public:
    void Add(ECounter counter) { ++m_values[static_cast<std::size_t>(counter)]; }
    /// Of things that are counted elsewhere.
    void Set(ECounter counter, uint64_t value) { m_values[static_cast<std::size_t>(counter)] = value; }
    uint64_t operator[](ECounter counter) const { return m_values[static_cast<std::size_t>(counter)]; }

    /// True if anything was counted since the last call; `text` then holds " name=value" of every counter above zero.
    template <std::size_t N>
    bool TakeNews(char (&text)[N]) {
        if (m_values == m_told) return false;
        m_told = m_values;
        std::size_t length = 0;
        for (std::size_t i = 0; i < m_values.size() && length < N; ++i) {
            if (m_values[i] == 0) continue;
            length += static_cast<std::size_t>(
                std::snprintf(text + length, N - length, " %s=%" PRIu64, COUNTER_NAMES[i], m_values[i]));
        }
        return true;
    }

private:
    std::array<uint64_t, static_cast<std::size_t>(ECounter::Count_)> m_values{};
    std::array<uint64_t, static_cast<std::size_t>(ECounter::Count_)> m_told{};
};

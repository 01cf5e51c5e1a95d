/// A plain reader of snapshot messages, and the comparison of what it saw with the truth.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/Mdqp.h"
#include "exchange/Exchange.h"
#include "tests/support/FaultSet.h"

namespace exchange {

inline constexpr std::array<EMDQPDataType, 2> QUOTED_FEEDS{SHFE_2PS, INE_2PS};

using Messages = std::vector<std::vector<uint8_t>>;
using Level = std::pair<int32_t, uint32_t>;
using Levels = std::array<Level, BOOK_LEVELS>;

/// Members of packed records are copied before anything takes a reference to them.
template <typename T>
T Copy(T value) {
    return value;
}

inline Level At(int32_t price, uint32_t volume) { return {price, volume}; }

inline Levels Bids(const VexaShfeMdType& record) {
    return {At(record.bid1_px, record.bid1_vol), At(record.bid2_px, record.bid2_vol),
            At(record.bid3_px, record.bid3_vol), At(record.bid4_px, record.bid4_vol),
            At(record.bid5_px, record.bid5_vol)};
}

inline Levels Asks(const VexaShfeMdType& record) {
    return {At(record.ask1_px, record.ask1_vol), At(record.ask2_px, record.ask2_vol),
            At(record.ask3_px, record.ask3_vol), At(record.ask4_px, record.ask4_vol),
            At(record.ask5_px, record.ask5_vol)};
}

/// An absent value counts as 0.
inline int64_t Hundredths(double value) { return value == DBL_MAX ? 0 : static_cast<int64_t>(value * 100.0 + 0.5); }

/// What a reader knows of one instrument once a snapshot has been read.
struct Seen {
    inst_info_t info{};
    deal_info_t deal{};
    order_statistics_info_t statistics{};
    Levels bids{};
    Levels asks{};
};

/// Reads a snapshot the plain way: a price level goes to the first place that is empty or no better than it.
class SnapshotReader {
public:
    explicit SnapshotReader(const Messages& messages) {
        for (const std::vector<uint8_t>& message : messages) Read(message);
    }

    const std::map<int32_t, Seen>& Instruments() const { return m_seen; }
    const std::vector<uint8_t>& Flags() const { return m_flags; }
    const snap_t& Snap() const { return m_snap; }
    const packet_no_t& PacketNo() const { return m_packetNo; }
    const std::vector<uint16_t>& UnknownFields() const { return m_unknownFields; }
    std::size_t ShortestTail() const { return m_shortestTail; }

private:
    template <typename Record>
    static Record Take(const uint8_t* data) {
        Record record;
        std::memcpy(&record, data, sizeof(record));
        return record;
    }

    void Read(const std::vector<uint8_t>& message) {
        const auto header = Take<mdqp_t>(message.data());
        ASSERT_EQ(message.size(), header.length + sizeof(mdqp_t));
        ASSERT_EQ(header.type_id, mdqp::TYPE_SNAPSHOT);
        m_flags.push_back(header.flag);
        m_idBefore = 0;
        for (std::size_t at = sizeof(mdqp_t); at < message.size();) {
            const auto field = Take<field_t>(&message[at]);
            ASSERT_LE(at + sizeof(field_t) + field.field_size, message.size());
            m_shortestTail = std::min(m_shortestTail, message.size() - at);
            ReadField(field.field_id, message.data() + at + sizeof(field_t), field.field_size);
            m_idBefore = field.field_id;
            at += sizeof(field_t) + field.field_size;
        }
    }

    void ReadField(uint16_t id, const uint8_t* data, std::size_t size) {
        int32_t instNo = 0;
        std::memcpy(&instNo, data, std::min<std::size_t>(sizeof(instNo), size));
        switch (id) {
            case mdqp::FIELD_SNAP: m_snap = Take<snap_t>(data); break;
            case mdqp::FIELD_PACKET_NO: m_packetNo = Take<packet_no_t>(data); break;
            case mdqp::FIELD_INST_INFO:
                instNo = Take<inst_info_t>(data).inst_no;
                m_seen[instNo].info = Take<inst_info_t>(data);
                break;
            case mdqp::FIELD_DEAL_INFO: m_seen[instNo].deal = Take<deal_info_t>(data); break;
            case mdqp::FIELD_ORDER_STATISTICS: m_seen[instNo].statistics = Take<order_statistics_info_t>(data); break;
            case mdqp::FIELD_PRICE_DETAIL: ReadLevel(Take<price_detail_t>(data)); break;
            default: m_unknownFields.push_back(id);
        }
    }

    void ReadLevel(const price_detail_t& level) {
        Seen& seen = m_seen[level.inst_no];
        if (m_idBefore != mdqp::FIELD_PRICE_DETAIL) seen.bids = seen.asks = Levels{};
        const bool isBid = level.direction == '0';
        const auto price = static_cast<int32_t>(Hundredths(level.price));
        Levels& levels = isBid ? seen.bids : seen.asks;
        std::size_t place = 0;
        for (; place + 1 < levels.size(); ++place) {
            const int32_t held = levels[place].first;
            if (held <= 0 || (isBid ? held <= price : held >= price)) break;
        }
        levels[place] = {price, static_cast<uint32_t>(level.volume)};
    }

    std::map<int32_t, Seen> m_seen;
    std::vector<uint8_t> m_flags;
    snap_t m_snap{};
    packet_no_t m_packetNo{};
    std::vector<uint16_t> m_unknownFields;
    uint16_t m_idBefore = 0;
    std::size_t m_shortestTail = SIZE_MAX;
};

inline void ExpectDeal(const Seen& seen, const Instrument& instrument, const VexaShfeMdType& truth) {
    EXPECT_EQ(Hundredths(seen.deal.last_price), Copy(truth.last_px));
    EXPECT_EQ(Hundredths(seen.deal.highest_price), Copy(truth.high_price));
    EXPECT_EQ(Hundredths(seen.deal.lowest_price), Copy(truth.low_price));
    EXPECT_EQ(Hundredths(seen.deal.turnover), Copy(truth.turnover));
    EXPECT_EQ(static_cast<int64_t>(seen.deal.open_interest + 0.5), Copy(truth.open_interest));
    EXPECT_EQ(static_cast<uint32_t>(seen.deal.volume), Copy(truth.volume));
    EXPECT_EQ(static_cast<uint32_t>(seen.deal.change_no), Copy(truth.change_no));
    EXPECT_EQ(Copy(seen.deal.update_mill_sec), Copy(truth.update_milli_sec));
    EXPECT_EQ(Hundredths(seen.deal.upper_limit_price), instrument.upperLimit);
    EXPECT_EQ(Hundredths(seen.deal.lower_limit_price), instrument.lowerLimit);
}

inline void ExpectStatistics(const Seen& seen, const VexaShfeMdType& truth) {
    EXPECT_EQ(static_cast<uint32_t>(seen.statistics.bid_volume), Copy(truth.bid_volume));
    EXPECT_EQ(static_cast<uint32_t>(seen.statistics.ask_volume), Copy(truth.ask_volume));
    EXPECT_EQ(Hundredths(seen.statistics.bid_amount), Copy(truth.bid_amount));
    EXPECT_EQ(Hundredths(seen.statistics.ask_amount), Copy(truth.ask_amount));
}

inline void ExpectSame(const Seen& seen, const Instrument& instrument, const VexaShfeMdType& truth) {
    EXPECT_STREQ(seen.info.inst_id, truth.inst_id);
    EXPECT_EQ(Hundredths(seen.info.price_tick), instrument.priceTick);
    EXPECT_EQ(Hundredths(seen.info.codec_price), instrument.codecPrice);
    EXPECT_EQ(Copy(seen.info.volume_multiple), instrument.volumeMultiple);
    ExpectDeal(seen, instrument, truth);
    ExpectStatistics(seen, truth);
    EXPECT_EQ(seen.bids, Bids(truth));
    EXPECT_EQ(seen.asks, Asks(truth));
}

/// Records of numbers outside the list are passed over.
inline void ExpectTruth(const SnapshotReader& reader, const Exchange& market, EMDQPDataType feed) {
    for (const Instrument& instrument : market.Instruments(feed)) {
        SCOPED_TRACE(instrument.id);
        ASSERT_EQ(reader.Instruments().count(instrument.instNo), 1U);
        ExpectSame(reader.Instruments().at(instrument.instNo), instrument, market.Truth(feed, instrument.instNo));
    }
}

inline void ExpectSnapshotTellsTheTruth(Exchange& market, EMDQPDataType feed) {
    const SnapshotReader reader(market.SnapshotMessages(feed));
    EXPECT_EQ(reader.Instruments().size(), market.Instruments(feed).size());
    EXPECT_TRUE(reader.UnknownFields().empty());
    ExpectTruth(reader, market, feed);
}

}  // namespace exchange

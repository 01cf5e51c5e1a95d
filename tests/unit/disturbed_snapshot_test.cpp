// Whole snapshots under random sets of disturbances, segment by segment into the library: each finishes at once, and
// all of its instruments are there.
#include "exchange/Exchange.h"
#include "exchange/Random.h"
#include "exchange/SnapshotConnection.h"
#include "tests/support/FilledSlot.h"
#include "tests/unit/SnapshotFixture.h"

namespace {

using exchange::EFault;

constexpr uint64_t SEEDS_IN_A_TEST = 300;

class DisturbedSnapshot : public SnapshotFixture, public ::testing::WithParamInterface<uint64_t> {
protected:
    void SetUp() override {
        Unplug();
        CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    }

    /// Each disturbance with a chance of one half.
    static exchange::Faults SomeDisturbances(exchange::Random& chance, std::string& names) {
        exchange::Faults faults;
        for (const exchange::FaultRow& row : exchange::FaultTable()) {
            const bool isMeant = row.place == exchange::EFaultPlace::EveryConnection && row.isRecovered;
            if (!isMeant || chance.OneIn(2)) continue;
            faults.Set(row.kind);
            names += std::string(row.name) + " ";
        }
        return faults;
    }

    /// The stream, and one acknowledgement, on which a receiver finishes at the latest. Gives the frames before that.
    uint32_t ArriveAll(exchange::SnapshotConnection& connection) {
        uint32_t segments = 0;
        Bytes frame;
        for (; !connection.IsSent() && connection.NextFrame(frame); ++segments) HandFrame(frame);
        connection.NextFrame(frame);
        HandFrame(frame);
        return segments;
    }

    void HandFrame(const Bytes& frame) { Hand(Join({{DMA_TCP, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, frame})); }

    /// What a slot holds of an instrument in this state: all but the day's time, which a snapshot does not bring.
    static SInstTableType SlotOf(const exchange::Instrument& instrument, const VexaShfeMdType& truth,
                                 const exchange::Faults& faults) {
        SInstTableType slot{};
        slot.price_tick = instrument.priceTick;
        slot.codec_price = instrument.codecPrice;
        slot.vol_multiple = static_cast<uint32_t>(instrument.volumeMultiple);
        slot.upper_limit_price = instrument.upperLimit;
        slot.lower_limit_price = instrument.lowerLimit;
        const bool isAtSettlement = std::string(truth.inst_id).find("TAS") != std::string::npos;
        if (isAtSettlement && faults.Has(EFault::SettlementLimits)) slot.upper_limit_price = slot.lower_limit_price - 1;
        std::memcpy(slot.inst_id, truth.inst_id, sizeof slot.inst_id);
        slot.change_no = truth.change_no;
        slot.update_mill_sec = truth.update_milli_sec;
        slot.open_interest = static_cast<uint64_t>(truth.open_interest);
        slot.turnover = static_cast<uint64_t>(truth.turnover);
        slot.volume = truth.volume;
        slot.last_price = truth.last_px;
        slot.bid_volume = truth.bid_volume;
        slot.bid_amount = truth.bid_amount;
        slot.ask_volume = truth.ask_volume;
        slot.ask_amount = truth.ask_amount;
        slot.high_price = truth.high_price;
        slot.low_price = truth.low_price;
#define LEVEL(name) slot.name##_price = truth.name##_px, slot.name##_vol = truth.name##_vol
        LEVEL(bid1), LEVEL(bid2), LEVEL(bid3), LEVEL(bid4), LEVEL(bid5);
        LEVEL(ask1), LEVEL(ask2), LEVEL(ask3), LEVEL(ask4), LEVEL(ask5);
#undef LEVEL
        return slot;
    }

    void ExpectTruth(const exchange::Exchange& market, const exchange::Faults& faults) {
        const std::vector<exchange::Instrument>& instruments = market.Instruments(SHFE_2PS);
        EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, instruments.size());
        for (const exchange::Instrument& instrument : instruments) {
            const SInstTableType expected = SlotOf(instrument, market.Truth(SHFE_2PS, instrument.instNo), faults);
            const SInstTableType& slot = state->tables.shfe2psInstTable[instrument.instNo];
            const bool isSame = std::memcmp(&slot, &expected, sizeof slot) == 0;
            EXPECT_TRUE(isSame) << TextOf(slot) << "instead of\n" << TextOf(expected);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(ManySeeds, DisturbedSnapshot, ::testing::Range<uint64_t>(0, 4));

TEST_P(DisturbedSnapshot, FinishesWithAllItsInstruments) {
    uint32_t ofOneSegment = 0;
    for (uint64_t seed = GetParam() * SEEDS_IN_A_TEST; seed < (GetParam() + 1) * SEEDS_IN_A_TEST; ++seed) {
        exchange::Random chance(seed, "disturbances");
        std::string names;
        const exchange::Faults faults = SomeDisturbances(chance, names);
        SCOPED_TRACE(std::to_string(seed) + ": " + names);
        exchange::ExchangeOptions options;
        options.seed = seed;
        options.ineInstruments = 1;
        options.shfeInstruments = chance.Between(1, chance.OneIn(2) ? 3 : 60);
        exchange::Exchange market(options);
        const uint32_t seq = faults.Has(EFault::SequenceWrap) ? 0U - 1 - chance.Below(8192) : chance.Below(2'000'000);
        exchange::SnapshotConnection connection({SERVER, HOST, SNAP_PORT, LOCAL_PORT}, seq,
                                                market.SnapshotMessages(SHFE_2PS, faults), faults, seed);
        phase.Clear();
        ofOneSegment += ArriveAll(connection) <= 2 && faults.Has(EFault::LongFirstSegment) ? 1U : 0U;
        EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
        ExpectTruth(market, faults);
    }
    EXPECT_GT(ofOneSegment, 0U);
}

}  // namespace

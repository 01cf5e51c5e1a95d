// Fields that say something else of their size than is true.
#include "tests/unit/MdqpFixture.h"

namespace {

using exchange::MdqpWriter;
using testing::ElementsAre;
using testing::IsEmpty;
using MdqpHostileFields = MdqpFixture;

TEST_F(MdqpHostileFields, FieldThatClaimsToRunPastItsMessageIsReadAndEndsTheWalk) {
    int32_t instNo = 3;
    for (const uint16_t claimed : std::initializer_list<uint16_t>{113, 230, 700, 65535}) {
        instNo += 10;
        const inst_info_t info = Info(instNo);
        Parse(MdqpWriter().FieldClaiming(0x0101, claimed, &info, sizeof info).PacketNo(77).PacketNo(78));
        EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, static_cast<uint64_t>(instNo) + 1) << claimed;
        EXPECT_STREQ(Slot(instNo).inst_id, "cu2612");
    }
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_EQ(state->counters[ECounter::FieldMalformed], 0U);
}

TEST_F(MdqpHostileFields, RecordsOfEveryKindAreReadWhateverTheirFieldsSayOfTheirSize) {
    deal_info_t deal = Deal(5);
    deal.volume = 12;
    const price_detail_t level{5, '1', 100.5, 13};
    const order_statistics_info_t statistics{5, 14, 1, 15, 1};
    const packet_no_t packetNo{77};
    const uint8_t zeros[8] = {};
    for (const uint16_t off : std::initializer_list<uint16_t>{1, 9, 60000, 65536 - 1, 65536 - 3}) {
        const auto claim = [&](std::size_t size) { return static_cast<uint16_t>(size + off); };
        Slot(5) = SInstTableType{};
        board.Forget();
        Parse(MdqpWriter().FieldClaiming(0x0102, claim(154), &deal, sizeof deal));
        Parse(MdqpWriter().FieldClaiming(0x0103, claim(17), &level, sizeof level));
        Parse(MdqpWriter().FieldClaiming(0x0104, claim(28), &statistics, sizeof statistics));
        Parse(MdqpWriter().FieldClaiming(0x1004, claim(4), &packetNo, sizeof packetNo).RawBytes(zeros, 8));
        EXPECT_EQ(Slot(5).volume, 12U) << off;
        EXPECT_EQ(Slot(5).ask1_price, 10050) << off;
        EXPECT_EQ(Slot(5).ask_volume, 15U) << off;
        EXPECT_THAT(board.accesses, ::testing::Contains(W(0x11110, 77))) << off;
    }
    EXPECT_EQ(state->counters[ECounter::FieldMalformed], 0U);
}

TEST_F(MdqpHostileFields, FieldThatClaimsLessThanItsRecordIsReadAndLeadsIntoIt) {
    inst_info_t info = Info(6);
    const field_t hidden{0x0BAD, 68};  // where the next field begins by the first one's size
    std::memcpy(reinterpret_cast<char*>(&info) + 40, &hidden, sizeof hidden);
    Parse(MdqpWriter().FieldClaiming(0x0101, 40, &info, sizeof info).InstInfo(Info(9)));
    EXPECT_STREQ(Slot(6).inst_id, "cu2612");
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 10U);
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("unknown field id: bad"));
    EXPECT_EQ(state->counters[ECounter::FieldMalformed], 0U);
}

/// One record of every kind that has a slot, all of its bytes meant.
struct Record {
    uint16_t fieldId;
    std::vector<uint8_t> bytes;
};

template <typename T>
Record RecordOf(uint16_t fieldId, const T& record) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return {fieldId, {bytes, bytes + sizeof record}};
}

class MdqpRecordEnd : public MdqpFixture {
protected:
    MdqpRecordEnd() { Slot(7) = BEFORE; }

    static std::vector<Record> Records() {
        inst_info_t info = Info(7);
        info.codec_price = 1.25;
        deal_info_t deal = Deal(7);
        deal.change_no = 0x12345678;
        return {RecordOf(0x0101, info), RecordOf(0x0102, deal),
                RecordOf(0x0103, price_detail_t{7, '1', 100.5, 0x12345678}),
                RecordOf(0x0104, order_statistics_info_t{7, 14, 1, 15, 1234567.25})};
    }

    /// The message ends with as many of the record's bytes.
    void ParseEndingIn(const Record& record, std::size_t bytes) {
        Parse(MdqpWriter().FieldClaiming(record.fieldId, static_cast<uint16_t>(record.bytes.size()),
                                         record.bytes.data(), static_cast<uint16_t>(bytes)));
    }

    inline static const SInstTableType BEFORE = FilledSlot("al2701", 1000);
};

TEST_F(MdqpRecordEnd, AtTheEndOfTheMessageIsReadToItsLastByte) {
    for (const Record& record : Records()) ParseEndingIn(record, record.bytes.size());
    EXPECT_EQ(state->counters[ECounter::FieldMalformed], 0U);
    EXPECT_EQ(Slot(7).codec_price, 125);
    EXPECT_EQ(Slot(7).change_no, 0x12345678U);
    EXPECT_EQ(Slot(7).ask1_price, 10050);
    EXPECT_EQ(Slot(7).ask1_vol, 0x12345678U);
    EXPECT_EQ(int64_t{Slot(7).ask_amount}, 123456725);
}

TEST_F(MdqpRecordEnd, BehindTheMessageIsNotReadAndTheRecordIsDropped) {
    uint64_t dropped = 0;
    for (const Record& record : Records()) {
        for (std::size_t missing = 1; missing <= 12; ++missing) {
            ParseEndingIn(record, record.bytes.size() - missing);
            EXPECT_EQ(TextOf(Slot(7)), TextOf(BEFORE)) << record.fieldId << " less " << missing;
            EXPECT_EQ(state->counters[ECounter::FieldMalformed], ++dropped) << record.fieldId << " less " << missing;
        }
    }
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(MdqpHostileFields, RecordThatWouldBeReadPastItsMessageIsDropped) {
    const std::vector<uint8_t> zeros(111);
    Slot(0) = FilledSlot("al2701", 1000);
    const std::string before = TextOf(Slot(0));
    for (const uint16_t claimed : std::initializer_list<uint16_t>{111, 112, 40000}) {
        Parse(MdqpWriter().FieldClaiming(0x0101, claimed, zeros.data(), 111));
    }
    EXPECT_EQ(TextOf(Slot(0)), before);
    EXPECT_EQ(state->counters[ECounter::FieldMalformed], 3U);
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
}

// Forty bytes of data: records of 112 and 154 bytes are not there; those of 17, 28 and 4 are, whatever is claimed.
TEST_F(MdqpHostileFields, EveryClaimedSizeLeadsToTheNextFieldAndNoFurther) {
    const uint8_t data[40] = {3};  // an instrument, or a packet, of number 3
    SInstTableType expected = FilledSlot("al2701", 1000);
    const SInstTableType before = expected;
    std::memset(&expected.bid5_price, 0, 80);  // its ten levels
    expected.bid_volume = expected.ask_volume = 0;
    expected.bid_amount = expected.ask_amount = 0;
    uint64_t sizes = 0;
    for (int size = 0; size <= 65535; size += size < 300 ? 1 : 211, ++sizes) {
        Slot(3) = before;
        for (const uint16_t id : std::initializer_list<uint16_t>{0x0101, 0x0102, 0x0103, 0x0104, 0x1004}) {
            ASSERT_EQ(Parse(MdqpWriter().FieldClaiming(id, static_cast<uint16_t>(size), data, sizeof data)), 0);
        }
        ASSERT_EQ(TextOf(Slot(3)), TextOf(expected)) << size;
    }
    EXPECT_EQ(state->counters[ECounter::FieldMalformed], 2 * sizes);
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(state->tradingDay, 0);
    EXPECT_THAT(board.accesses, testing::AllOf(testing::SizeIs(sizes), testing::Each(W(0x11110, 3))));
}

// A field that begins behind the last eight bytes is looked at, and its record of 112 bytes is not there.
TEST_F(MdqpHostileFields, MessagesOfEveryShortLengthAreReadToTheirEndOnly) {
    for (std::size_t bytes = 0; bytes < 40; ++bytes) {
        const std::vector<uint8_t> body(bytes, 0x01);
        EXPECT_FALSE(Parse(MdqpWriter().RawBytes(body.data(), bytes)));
        EXPECT_EQ(state->counters[ECounter::FieldMalformed], bytes > 8 ? bytes - 8 : 0) << bytes;
    }
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(state->finished.enabled_mask, 0);
    EXPECT_EQ(state->ports.port_shfe_2ps, PORT);
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_THAT(log.lines, IsEmpty());
}

}  // namespace

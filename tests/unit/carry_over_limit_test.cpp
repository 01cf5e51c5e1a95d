// A message that never ends: what is kept of it stays below a limit, at which its connection is given up.
#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::ElementsAre;

class CarryOverLimit : public StreamFixture {
protected:
    /// A message of 65,543 bytes is begun and fed until `total` of its bytes are carried. Gives the next number.
    uint32_t FeedEndlessMessage(uint32_t seq, uint32_t total) {
        constexpr uint32_t CHUNK = 1900;
        Bytes chunk(CHUNK);
        const mdqp_t header{mdqp::FLAG_MORE, mdqp::TYPE_SNAPSHOT, UINT16_MAX, 0};
        std::memcpy(chunk.data(), &header, sizeof header);
        for (uint32_t fed = 0; fed < total; fed += CHUNK) {
            chunk.resize(std::min(CHUNK, total - fed));
            Arrive(seq, chunk);
            seq += SizeOf(chunk);
            std::fill(chunk.begin(), chunk.end(), uint8_t{0});
        }
        return seq;
    }
};

TEST_F(CarryOverLimit, CarryOverIsKeptBelowItsLimit) {
    FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT - 1);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, FRAG_BUF_LIMIT - 1);
    EXPECT_EQ(Session().init, 1);
}

TEST_F(CarryOverLimit, CarryOverAtItsLimitAbandonsTheConnection) {
    FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("ignore tcp message!"));
    EXPECT_EQ(Counted(ECounter::CarryOverGivenUp), 1U);
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 0U);
    EXPECT_EQ(FragBuf(), nullptr);
    EXPECT_EQ(Reassembly().CarryOverBuffers(), 0U);
}

TEST_F(CarryOverLimit, AbandonedConnectionBeginsAgainWithAnIdentification) {
    const uint32_t next = FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT);
    Arrive(next, Numbered(1));
    EXPECT_EQ(Session().init, 0);
    Arrive(Begin(SHFE_TOPIC, LOCAL_PORT, 9), Numbered(2));
    EXPECT_THAT(Decoded(), ElementsAre(2));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("ignore tcp message!"));
}

TEST_F(CarryOverLimit, AbandoningInTheMiddleOfADrainFreesTheWholeList) {
    const uint32_t next = FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT - 100);
    Arrive(next + 50, Bytes(60));
    Arrive(next + 110, Bytes(60));
    Arrive(next + 170, Bytes(60));
    Arrive(next, Bytes(50));  // the first early segment behind it is one too many
    EXPECT_TRUE(log.Has(LOG_WARNING, "ignore tcp message!"));
    EXPECT_EQ(log.Texts(TROUBLE).size(), 2U);
    EXPECT_EQ(log.Texts(TROUBLE)[0], "free the cache of packet loss.");
    EXPECT_EQ(EarlyHead(), nullptr);
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
}

}  // namespace

// What becomes of one update: one call on the record where it lies, or one copy of 176 bytes.
#include "tests/unit/LivePhaseFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using MarketDataHandler = LivePhaseFixture;

TEST_F(MarketDataHandler, CallbackGetsTheRecordInTheBufferItselfUntouched) {
    HandUpdate(42);
    ASSERT_EQ(spi.seen.size(), 1U);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(spi.seen[0]), block.get() + 8);
    EXPECT_EQ(std::memcmp(spi.seen[0], UpdateMessage(42).data() + 8, 176), 0);
    EXPECT_TRUE(api->m_u50UserData.isQuote);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(MarketDataHandler, QuoteIsMarkedBeforeTheCallback) {
    struct Looking : CVexaShfeMdSpi {
        void OnVexaShfeMd(VexaShfeMdType&) override { wasMarked = api->m_u50UserData.isQuote; }
        TestableApi* api = nullptr;
        bool wasMarked = false;
    } looking;
    looking.api = api.get();
    api->m_vexaShfeMdSpiOptional = looking;
    HandUpdate(1);
    EXPECT_TRUE(looking.wasMarked);
}

TEST_F(MarketDataHandler, PollingFormCopiesTheRecordAndNothingBehindIt) {
    constexpr std::size_t RECORD = 176;
    std::vector<unsigned char> md(RECORD + 16, 0xEE);
    api->m_u50UserData.userDataType = BUFF_FETCH;
    api->m_u50UserData.lpMdData = md.data();
    for (const unsigned char start : std::initializer_list<unsigned char>{42, 99}) {
        api->m_u50UserData.isQuote = false;
        HandUpdate(start);
        EXPECT_EQ(std::memcmp(md.data(), UpdateMessage(start).data() + 8, RECORD), 0);
        EXPECT_EQ(std::vector<unsigned char>(md.begin() + RECORD, md.end()), std::vector<unsigned char>(16, 0xEE));
        EXPECT_TRUE(api->m_u50UserData.isQuote);
    }
    EXPECT_THAT(spi.seen, IsEmpty());
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(MarketDataHandler, WithoutASpiTheUpdateIsLoggedAndDropped) {
    api->m_vexaShfeMdSpiOptional = CQELOptional<CVexaShfeMdSpi>();
    HandUpdate(1);
    EXPECT_THAT(log.Texts(), ElementsAre("refMdSpi is nullptr"));
    EXPECT_FALSE(api->m_u50UserData.isQuote);
    EXPECT_EQ(api->m_counters[ECounter::UpdateUndeliverable], 1U);
}

TEST_F(MarketDataHandler, WithoutARecordThePolledUpdateIsLoggedAndDropped) {
    api->m_u50UserData.userDataType = BUFF_FETCH;
    HandUpdate(1);
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("lpMdData is nullptr"));
    EXPECT_FALSE(api->m_u50UserData.isQuote);
    EXPECT_THAT(spi.seen, IsEmpty());
    EXPECT_EQ(api->m_counters[ECounter::UpdateUndeliverable], 1U);
}

TEST_F(MarketDataHandler, WithoutUserDataTheMessageIsLoggedAndDropped) {
    const unsigned char message[DMA_READABLE_BYTES] = {DMA_UDP};
    api->_MdHandler(message, sizeof message, nullptr);
    EXPECT_THAT(log.Texts(), ElementsAre("user_data is nullptr"));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(log.lines[0].Function(), "_MdHandler");
}

TEST_F(MarketDataHandler, WithoutAMessageOrASessionNothingHappens) {
    const std::vector<unsigned char> message = UpdateMessage(7);
    api->_MdHandler(nullptr, 0, &api->m_u50UserData);
    U50UserData nobody = api->m_u50UserData;
    nobody.lpMdApi = nullptr;
    api->_MdHandler(message.data(), 184, &nobody);
    EXPECT_FALSE(nobody.isQuote);
    EXPECT_FALSE(api->m_u50UserData.isQuote);
    EXPECT_THAT(spi.seen, IsEmpty());
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(MarketDataHandler, ShortUpdateIsDeliveredFromTheReadableBytes) {
    const unsigned char message[] = {DMA_UDP, 0, 0, 0};
    Hand(message, sizeof message);
    ASSERT_EQ(spi.seen.size(), 1U);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(spi.seen[0]), block.get() + 8);
}

TEST_F(MarketDataHandler, OtherTypesAreIgnored) {
    for (const uint32_t type : {2U, 3U, 0x80000000U, 0xFFFFFFFFU}) Hand(&type, sizeof type);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_FALSE(api->m_u50UserData.isQuote);
    EXPECT_THAT(spi.seen, IsEmpty());
    EXPECT_TRUE(api->m_isAllInitFinished);
}

TEST_F(MarketDataHandler, ClearHandlerDoesNothing) {
    std::vector<unsigned char> message = UpdateMessage(9);
    for (const unsigned char type : std::initializer_list<unsigned char>{0, 1, 2}) {  // event, update, segment
        message[0] = type;
        api->_MdClearHandler(message.data(), 184, &api->m_u50UserData);
    }
    api->_MdClearHandler(nullptr, 0, nullptr);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(spi.seen, IsEmpty());
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_FALSE(api->m_u50UserData.isQuote);
    EXPECT_TRUE(api->m_isAllInitFinished);
}

}  // namespace

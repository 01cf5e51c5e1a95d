#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "src/RegisterMap.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"
#include "tests/support/VirtualClock.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct RememberingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override { seen.push_back(&md); }
    std::vector<const VexaShfeMdType*> seen;
};

class MarketDataHandler : public testing::Test {
protected:
    MarketDataHandler() {
        setenv("TZ", "UTC", 1);
        tzset();
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api->m_u50ConfigInfo.log_level = LOG_ALL;
        api->m_u50UserData.lpMdApi = api.get();
        api->m_vexaShfeMdSpiOptional = spi;
        api->m_isHBM2InitFinished = true;
        api->m_isAllInitFinished = true;
    }

    /// Exactly the bytes that a provider promises, so that a sanitizer sees any byte read beyond them.
    void Hand(const void* message, std::size_t length) {
        block.reset(new unsigned char[std::max<std::size_t>(length, DMA_READABLE_BYTES)]());
        std::memcpy(block.get(), message, length);
        api->_MdHandler(block.get(), static_cast<unsigned int>(length), &api->m_u50UserData);
    }
    void HandEvent(const U50Event& event) { Hand(&event, sizeof event); }
    void HandUpdate(uint32_t instNo) {
        unsigned char message[DMA_UDP_RECORD_OFFSET + sizeof(VexaShfeMdType)] = {};
        message[0] = DMA_UDP;
        VexaShfeMdType record{};
        record.inst_no = instNo;
        std::memcpy(message + DMA_UDP_RECORD_OFFSET, &record, sizeof record);
        Hand(message, sizeof message);
    }
    static U50Event Event(uint32_t data0, uint32_t data1 = 0, uint32_t data2 = 0, uint32_t data3 = 0) {
        return {DMA_EVENT, sizeof(U50Event), data0, data1, data2, data3, 0, 0};
    }
    void LastUpdateAt(int hour, int minute) {
        board.answers[reg::LAST_UPDATE_TIME + 2] = static_cast<uint64_t>(1777507200 + hour * 3600 + minute * 60);
    }

    VirtualClock clock;
    RecordingBoard board;
    LogCapture log;
    RememberingSpi spi;
    std::unique_ptr<TestableApi> api = MakeApi();
    std::unique_ptr<unsigned char[]> block;
};

TEST_F(MarketDataHandler, CallbackGetsTheRecordInTheBufferItself) {
    HandUpdate(42);
    ASSERT_EQ(spi.seen.size(), 1U);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(spi.seen[0]), block.get() + 8);
    EXPECT_TRUE(api->m_u50UserData.isQuote);
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

TEST_F(MarketDataHandler, PollingFormCopiesTheRecord) {
    VexaShfeMdType md{};
    api->m_u50UserData.userDataType = BUFF_FETCH;
    api->m_u50UserData.lpMdData = &md;
    HandUpdate(42);
    EXPECT_EQ(md.inst_no, 42U);
    EXPECT_TRUE(api->m_u50UserData.isQuote);
    EXPECT_THAT(spi.seen, IsEmpty());
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
}

TEST_F(MarketDataHandler, WithoutUserDataTheMessageIsLoggedAndDropped) {
    const unsigned char message[DMA_READABLE_BYTES] = {DMA_UDP};
    api->_MdHandler(message, sizeof message, nullptr);
    EXPECT_THAT(log.Texts(), ElementsAre("user_data is nullptr"));
}

TEST_F(MarketDataHandler, ShortUpdateIsDeliveredFromTheReadableBytes) {
    const unsigned char message[] = {DMA_UDP, 0, 0, 0};
    Hand(message, sizeof message);
    EXPECT_EQ(spi.seen.size(), 1U);
}

TEST_F(MarketDataHandler, OtherTypesAreIgnored) {
    for (const uint32_t type : {2U, 3U, 0x80000000U, 0xFFFFFFFFU}) Hand(&type, sizeof type);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_FALSE(api->m_u50UserData.isQuote);
}

TEST_F(MarketDataHandler, ClearHandlerDoesNothing) {
    api->_MdClearHandler(nullptr, 0, nullptr);
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(MarketDataHandler, EventOnAnotherChannelIsLoggedTwiceAndNothingMore) {
    api->m_u50ConfigInfo.channel_id = 3;
    HandEvent({DMA_EVENT, 32, 0x80, 2, 3, 4, 5, 6});
    EXPECT_THAT(log.Texts(), ElementsAre("channel3 got DMA_EVENT event_data0[128] event_data1[2] event_data2[3] "
                                         "event_data3[4] event_data4[5] event_data5[6]",
                                         "channel3 receive DMA_EVENT event_data0[128] event_data1[2] event_data2[3]"));
    EXPECT_TRUE(api->m_isAllInitFinished);
}

TEST_F(MarketDataHandler, MemoryEventSetsTheFlagAndIsNoLoss) {
    api->m_isHBM2InitFinished = false;
    HandEvent(Event(0x80, 0, 1));
    EXPECT_TRUE(api->m_isHBM2InitFinished);
    EXPECT_TRUE(api->m_isAllInitFinished);
    EXPECT_TRUE(log.Has(LOG_INFO, "received HBM2 init event, event_data2=00000001"));
}

TEST_F(MarketDataHandler, MemoryEventOfAReadyBoardGoesOnToTheLossCheck) {
    HandEvent(Event(0x80, 0, 1));
    EXPECT_FALSE(api->m_isAllInitFinished);
    EXPECT_TRUE(log.Has(LOG_WARNING, "received lost pkt event, event_data0=00000080"));
}

TEST_F(MarketDataHandler, EveryLostBitIsALoss) {
    for (const unsigned bit : {7U, 15U, 23U, 31U}) EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(1U << bit)));
}

TEST_F(MarketDataHandler, EveryPriceErrorBitIsALoss) {
    for (const unsigned group : {0U, 8U, 16U, 24U}) {
        for (unsigned bit = 0; bit < 4; ++bit) {
            EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0, 1U << (group + bit))));
        }
    }
    EXPECT_TRUE(log.Has(LOG_WARNING, "received px error event, event_data1=00000001"));
}

TEST_F(MarketDataHandler, BitsWithoutAMeaningAreNoLossAndNoLine) {
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x3F3F3F3F, 0xF0F0F0F0, 0xFFFFFFFF, 0xFFFFFFF0)));
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(MarketDataHandler, LostBitsOfTheFourthWordAreALossWithoutATimeOut) {
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0, 0, 0, 8)));
    EXPECT_TRUE(log.Has(LOG_WARNING, "received lost pkt event, event_data3=00000008"));
}

TEST_F(MarketDataHandler, TimeOutHidesTheFourthWord) {
    LastUpdateAt(10, 27);
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40, 0, 0, 1)));
}

TEST_F(MarketDataHandler, LostBitWinsOverATimeOutWithoutALookAtTheTime) {
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0xC0)));
    EXPECT_THAT(board.AccessesTo(reg::LAST_UPDATE_TIME, reg::LAST_UPDATE_TIME + 3), IsEmpty());
    EXPECT_TRUE(log.Has(LOG_WARNING, "received lost pkt event, event_data0=000000c0"));
}

TEST_F(MarketDataHandler, TimeOutAt1027IsIgnoredAt1031ALossAt1559Ignored) {
    LastUpdateAt(10, 27);
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40)));
    EXPECT_TRUE(log.Has(LOG_INFO,
                        "received pkt timeout event, ignore. event_data0=00000040 "
                        "last_update_time[0,0,1777544820,0] ts[10,27]"));
    LastUpdateAt(10, 31);
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40)));
    EXPECT_TRUE(log.Has(LOG_WARNING,
                        "received pkt timeout event, event_data0=00000040 "
                        "last_update_time[0,0,1777545060,0] ts[10,31]"));
    LastUpdateAt(15, 59);
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40)));
}

/// Written down minute by minute, as the exchange's timetable has it.
bool IsQuietMinute(int h, int m) {
    if ((h == 8 || h == 20) && m >= 55) return true;
    if ((h == 9 || h == 21) && m == 0) return true;
    if (h == 10 && (m == 15 || (m >= 25 && m <= 30))) return true;
    if ((h == 11 || h == 2) && m == 30) return true;
    return (h == 13 && m >= 25 && m <= 30) || h == 15;
}

TEST_F(MarketDataHandler, EveryMinuteOfTheDayIsJudgedByTheTimetable) {
    for (int minute = 0; minute < 24 * 60; ++minute) {
        LastUpdateAt(minute / 60, minute % 60);
        EXPECT_EQ(api->_CheckLostUdpPktHandler(Event(1U << 30)), !IsQuietMinute(minute / 60, minute % 60)) << minute;
    }
}

TEST_F(MarketDataHandler, AbsurdUpdateTimesAreNoQuietMinute) {
    for (const uint64_t time : {uint64_t{1} << 62, UINT64_MAX, uint64_t{1} << 63}) {
        board.answers[reg::LAST_UPDATE_TIME] = time;
        EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40)));
    }
}

TEST_F(MarketDataHandler, LossForgetsTheSnapshotAndReadsTheDiagnostics) {
    api->m_finishedMask.enabled_mask = 5;
    api->m_u50DstPort.port_ine_2ps = 9;
    api->_Slot(SHFE_2PS, 3)->volume = 7;
    api->m_isTcpInitFinished = true;
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x80)));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50DstPort.port_ine_2ps, 0);
    EXPECT_EQ(api->m_u50InstTable.shfe2psInstTable[3].volume, 0U);
    EXPECT_FALSE(api->m_isTcpInitFinished);
    EXPECT_FALSE(api->m_isHBM2InitFinished);
    EXPECT_THAT(board.accesses,
                ElementsAre(R(0x2030), R(0x2031), R(0x2032), R(0x12015), R(0x1201B), R(0x22015), R(0x2201B)));
}

TEST_F(MarketDataHandler, DiagnosticsAreTracedWhateverTheConfiguredLevel) {
    api->m_u50ConfigInfo.log_level = LOG_WARNING;
    CCommonLog::GetInstance().SetLogLevel(LOG_WARNING);
    api->_CheckLostUdpPktHandler(Event(0x80));
    EXPECT_EQ(log.Texts(LOG_DEBUG_EX).size(), 7U);
    EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_INFO));
}

}  // namespace

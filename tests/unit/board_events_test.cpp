// What the board's events mean: memory that is ready, losses, time-outs; and what a loss leaves behind.
#include <cstdio>

#include "tests/support/FilledSlot.h"
#include "tests/unit/LivePhaseFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using BoardEvents = LivePhaseFixture;

TEST_F(BoardEvents, EventOnAnotherChannelIsLoggedTwiceAndNothingMore) {
    api->m_u50ConfigInfo.channel_id = 3;
    HandEvent({DMA_EVENT, 32, 0x80, 2, 3, 4, 5, 6});
    EXPECT_THAT(log.Texts(), ElementsAre("channel3 got DMA_EVENT event_data0[128] event_data1[2] event_data2[3] "
                                         "event_data3[4] event_data4[5] event_data5[6]",
                                         "channel3 receive DMA_EVENT event_data0[128] event_data1[2] event_data2[3]"));
    EXPECT_TRUE(api->m_isAllInitFinished);
}

TEST_F(BoardEvents, MemoryEventSetsTheFlagAndIsNoLoss) {
    for (const uint32_t data2 : {0x00000001U, 0x000000FFU, 0xFFFFFFFFU}) {
        api->m_isHBM2InitFinished = false;
        log.lines.clear();
        HandEvent(Event(0x80, 1, data2, 0xE));
        EXPECT_TRUE(api->m_isHBM2InitFinished) << data2;
        EXPECT_TRUE(api->m_isAllInitFinished) << data2;
        ASSERT_EQ(log.lines.size(), 2U);
        char line[64];
        std::snprintf(line, sizeof line, "received HBM2 init event, event_data2=%08x", data2);
        EXPECT_EQ(log.lines[1].Text(), line);
        EXPECT_EQ(log.lines[1].level, LOG_INFO);
        EXPECT_EQ(log.lines[1].Function(), "_MdHandler");
    }
    EXPECT_EQ(api->m_counters[ECounter::EventLoss], 0U);
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(BoardEvents, NewSessionHasNotHeardOfTheMemory) { EXPECT_FALSE(MakeApi()->m_isHBM2InitFinished); }

TEST_F(BoardEvents, OtherBitsOfTheThirdWordAreNoMemoryEvent) {
    api->m_isHBM2InitFinished = false;
    for (unsigned bit = 1; bit < 32; ++bit) {
        HandEvent(Event(0, 0, 1U << bit));
        EXPECT_FALSE(api->m_isHBM2InitFinished) << bit;
    }
    for (const U50Event& event : {Event(1), Event(0, 0x10), Event(0, 0, 0, 0x10)}) HandEvent(event);
    EXPECT_FALSE(api->m_isHBM2InitFinished);
    EXPECT_TRUE(api->m_isAllInitFinished);
    EXPECT_EQ(log.lines.size(), 34U);  // one line an event
    HandEvent(Event(0, 0, 2, 1));      // and goes on to the loss check
    EXPECT_FALSE(api->m_isAllInitFinished);
}

TEST_F(BoardEvents, EventIsToldWithItsChannelAndWords) {
    HandEvent({DMA_EVENT, 32, 0x01, 0x10, 3, 0x10, 5, 6});
    EXPECT_THAT(log.Texts(), ElementsAre("channel0 got DMA_EVENT event_data0[1] event_data1[16] event_data2[3] "
                                         "event_data3[16] event_data4[5] event_data5[6]"));
    EXPECT_EQ(log.lines[0].level, LOG_WARNING);
    EXPECT_EQ(log.lines[0].Function(), "_MdHandler");
}

TEST_F(BoardEvents, MemoryEventOfAReadyBoardGoesOnToTheLossCheck) {
    HandEvent(Event(0x80, 0, 1));
    EXPECT_FALSE(api->m_isAllInitFinished);
    EXPECT_TRUE(log.Has(LOG_WARNING, "received lost pkt event, event_data0=00000080"));
}

TEST_F(BoardEvents, EveryBitOfTheFirstWordIsJudgedAlone) {
    LastUpdateAt(10, 31);
    for (unsigned bit = 0; bit < 32; ++bit) {
        log.lines.clear();
        const bool isLost = bit == 7 || bit == 15 || bit == 23 || bit == 31;
        const bool isTimeOut = bit == 6 || bit == 14 || bit == 22 || bit == 30;
        EXPECT_EQ(api->_CheckLostUdpPktHandler(Event(1U << bit)), isLost || isTimeOut) << bit;
        const std::vector<std::string> told = log.Texts();
        ASSERT_EQ(told.size(), isLost || isTimeOut ? 1U : 0U) << bit;
        char start[64];
        std::snprintf(start, sizeof start, "received %s event, event_data0=%08x", isLost ? "lost pkt" : "pkt timeout",
                      1U << bit);
        for (const std::string& line : told) {
            EXPECT_THAT(line, testing::StartsWith(start));
            EXPECT_EQ(log.Count(LOG_WARNING, line), 1U);
        }
    }
    EXPECT_EQ(api->m_counters[ECounter::EventLoss], 8U);
}

TEST_F(BoardEvents, EveryBitOfTheSecondAndFourthWordIsJudgedAlone) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(api->_CheckLostUdpPktHandler(Event(0, 1U << bit)), bit % 8 < 4) << bit;
        EXPECT_EQ(api->_CheckLostUdpPktHandler(Event(0, 0, 0, 1U << bit)), bit < 4) << bit;
    }
    EXPECT_EQ(api->m_counters[ECounter::EventLoss], 20U);
    std::vector<std::string> expected;
    for (unsigned bit = 0; bit < 32; ++bit) {
        char line[64];
        std::snprintf(line, sizeof line, "received px error event, event_data1=%08x", 1U << bit);
        if (bit % 8 < 4) expected.emplace_back(line);
        std::snprintf(line, sizeof line, "received lost pkt event, event_data3=%08x", 1U << bit);
        if (bit < 4) expected.emplace_back(line);
    }
    EXPECT_EQ(log.Texts(LOG_WARNING), expected);
}

TEST_F(BoardEvents, PriceErrorIsToldBeforeATimeOut) {
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40, 1, 0, 1)));
    EXPECT_THAT(log.Texts(), ElementsAre("received px error event, event_data1=00000001"));
    EXPECT_THAT(board.AccessesTo(0x2040, 0x2043), IsEmpty());
    log.lines.clear();
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x80, 1, 0, 1)));
    EXPECT_THAT(log.Texts(), ElementsAre("received lost pkt event, event_data0=00000080"));
}

TEST_F(BoardEvents, BitsWithoutAMeaningAreNoLossAndNoLine) {
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x3F3F3F3F, 0xF0F0F0F0, 0xFFFFFFFF, 0xFFFFFFF0)));
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(BoardEvents, TimeOutHidesTheFourthWord) {
    LastUpdateAt(10, 27);
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40, 0, 0, 1)));
}

TEST_F(BoardEvents, LostBitWinsOverATimeOutWithoutALookAtTheTime) {
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0xC0)));
    EXPECT_THAT(board.AccessesTo(0x2040, 0x2043), IsEmpty());
    EXPECT_TRUE(log.Has(LOG_WARNING, "received lost pkt event, event_data0=000000c0"));
}

TEST_F(BoardEvents, TimeOutAt1027IsIgnoredAt1031ALossAt1559Ignored) {
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

TEST_F(BoardEvents, TimeOutLooksAtTheLatestOfFourRegistersOf64Bits) {
    for (uint32_t latest = 0; latest < 4; ++latest) {
        for (uint32_t feed = 0; feed < 4; ++feed) LastUpdateAt(9, 31 + static_cast<int>(feed), feed);
        LastUpdateAt(10, 27, latest);
        board.Forget();
        EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40))) << latest;
        EXPECT_THAT(board.accesses,
                    ElementsAre(R64(0x2040, board.answers[0x2040]), R64(0x2041, board.answers[0x2041]),
                                R64(0x2042, board.answers[0x2042]), R64(0x2043, board.answers[0x2043])));
    }
    // A day number beyond 32 bits: 10:27 and the latest only if all bits are read.
    LastUpdateAt(10, 31, 1);
    board.answers[0x2040] = MIDNIGHT + 86400ULL * 100000 + 10 * 3600 + 27 * 60;
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40)));
}

TEST_F(BoardEvents, TimeOutTellsTheRegistersInTheirOrder) {
    board.answers = {{0x2040, 1}, {0x2041, 2}, {0x2042, MIDNIGHT + 10 * 3600 + 27 * 60}, {0x2043, 4}};
    EXPECT_FALSE(api->_CheckLostUdpPktHandler(Event(0x40404040)));
    board.answers[0x2043] = MIDNIGHT + 21 * 3600 + 60;
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40)));
    EXPECT_THAT(log.Texts(), ElementsAre("received pkt timeout event, ignore. event_data0=40404040 "
                                         "last_update_time[1,2,1777544820,4] ts[10,27]",
                                         "received pkt timeout event, event_data0=00000040 "
                                         "last_update_time[1,2,1777544820,1777582860] ts[21,1]"));
    EXPECT_EQ(log.Count(LOG_INFO, log.Texts()[0]), 1U);
    EXPECT_EQ(log.Count(LOG_WARNING, log.Texts()[1]), 1U);
}

TEST_F(BoardEvents, TimeBeyondEveryCalendarIsNoTimeOfTheDay) {
    board.answers[0x2042] = 1099511627775;  // 00:36:15 of a day, the last one with a calendar
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40)));
    board.answers[0x2042] = 1099511627776;
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40)));
    EXPECT_THAT(log.Texts(), ElementsAre("received pkt timeout event, event_data0=00000040 "
                                         "last_update_time[0,0,1099511627775,0] ts[0,36]",
                                         "received pkt timeout event, event_data0=00000040 "
                                         "last_update_time[0,0,1099511627776,0] ts[0,0]"));
}

TEST_F(BoardEvents, DiagnosticsThatCannotBeReadAreTracedAsZero) {
    board.accessResult = -5;
    HandEvent(Event(0x80));
    EXPECT_TRUE(log.Has(LOG_DEBUG_EX, "addr[0x2030] value[0x00000000] 32 bits, result -5"));
}

TEST_F(BoardEvents, IgnoredTimeOutChangesNothing) {
    LastUpdateAt(10, 27);
    api->m_finishedMask.enabled_mask = 5;
    api->m_store.Slot(INE_2PS, 3)->volume = 7;
    api->m_isTcpInitFinished = true;
    HandEvent(Event(0x40, 0, 0, 1));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 5);
    EXPECT_EQ(api->m_u50InstTable.ine2psInstTable[3].volume, 7U);
    EXPECT_TRUE(api->m_isTcpInitFinished);
    EXPECT_TRUE(api->m_isHBM2InitFinished);
    EXPECT_TRUE(api->m_isAllInitFinished);
    EXPECT_EQ(api->m_counters[ECounter::EventLoss], 0U);
    EXPECT_EQ(board.accesses.size(), 4U);
}

/// Written down minute by minute, as the exchange's timetable has it.
bool IsQuietMinute(int h, int m) {
    if ((h == 8 || h == 20) && m >= 55) return true;
    if ((h == 9 || h == 21) && m == 0) return true;
    if (h == 10 && (m == 15 || (m >= 25 && m <= 30))) return true;
    if ((h == 11 || h == 2) && m == 30) return true;
    return (h == 13 && m >= 25 && m <= 30) || h == 15;
}

TEST_F(BoardEvents, EveryMinuteOfTheDayIsJudgedByTheTimetable) {
    for (int minute = 0; minute < 24 * 60; ++minute) {
        LastUpdateAt(minute / 60, minute % 60);
        EXPECT_EQ(api->_CheckLostUdpPktHandler(Event(1U << 30)), !IsQuietMinute(minute / 60, minute % 60)) << minute;
    }
}

TEST_F(BoardEvents, AbsurdUpdateTimesAreNoQuietMinute) {
    for (const uint64_t time : {uint64_t{1} << 62, UINT64_MAX, uint64_t{1} << 63}) {
        board.answers[0x2040] = time;
        EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x40)));
    }
}

/// A session of which every part of the snapshot's state is set.
class Loss : public LivePhaseFixture {
protected:
    Loss() {
        for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
            const int32_t last = feed == SHFE_2PS || feed == SHFE_4PS ? 16383 : 4095;
            for (const int32_t instNo : {0, 3, last}) *api->m_store.Slot(feed, instNo) = FilledSlot("cu2612", 1000);
        }
        api->m_isTcpInitFinished = true;
        api->m_u50InstCount = {11, 12, 13, 14};
        api->m_u50DstPort = {21, 22, 23, 24};
        api->m_finishedMask.enabled_mask = 0xFF;
        api->m_tradingDay = 20260430;
        api->m_u50InitCnt = 2;
        api->m_setPriceErrorInstId = {"al2612", "cu2612"};
        api->m_VerReocrd = {"1.2.3"};
        api->m_u50Dna[1] = 31;
        api->m_u50ConfigInfo.channelInfo[4].insts.CopyFrom("cu");
        api->_InitTcpSession(api->m_sessions[4711], 4711);
        tcp_session_t& session = api->m_sessions[4711];
        session.init = session.frag_flag = 1;
        session.next_expt_seq = 41;
        session.frag_buf_offset = 42;
        log.lines.clear();
    }

    bool AreTablesEmpty() const {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&api->m_u50InstTable);
        return std::all_of(bytes, bytes + sizeof api->m_u50InstTable, [](unsigned char byte) { return byte == 0; });
    }
};

TEST_F(Loss, ForgetsTablesPortsAndMasksAndNothingElse) {
    const tcp_session_t session = api->m_sessions[4711];
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0x80)));

    EXPECT_TRUE(AreTablesEmpty());
    EXPECT_FALSE(api->m_isTcpInitFinished);
    EXPECT_FALSE(api->m_isHBM2InitFinished);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    const U50DstPort ports = api->m_u50DstPort;
    EXPECT_THAT((std::vector<int>{ports.port_shfe_2ps, ports.port_shfe_4ps, ports.port_ine_2ps, ports.port_ine_4ps}),
                testing::Each(0));

    EXPECT_TRUE(api->m_isAllInitFinished);  // the handler's to clear
    const U50InstCount counts = api->m_u50InstCount;
    EXPECT_THAT((std::vector<uint64_t>{counts.shfe_inst_cnt_2ps, counts.shfe_inst_cnt_4ps, counts.ine_inst_cnt_2ps,
                                       counts.ine_inst_cnt_4ps}),
                ElementsAre(11, 12, 13, 14));
    EXPECT_EQ(std::memcmp(&session, &api->m_sessions[4711], sizeof session), 0);
    EXPECT_EQ(api->m_reassembly.TouchedSessions(), 1U);
    EXPECT_EQ(api->m_reassembly.CarryOverBuffers(), 1U);
    EXPECT_EQ(api->m_tradingDay, 20260430);
    EXPECT_EQ(api->m_u50InitCnt, 2);
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre("al2612", "cu2612"));
    EXPECT_THAT(api->m_VerReocrd, ElementsAre("1.2.3"));
    EXPECT_EQ(api->m_u50Dna[1], 31U);
    EXPECT_STREQ(api->m_u50ConfigInfo.channelInfo[4].insts.data(), "cu");
    EXPECT_FALSE(api->m_isStopflag);
    for (std::size_t i = 0; i < COUNTER_NAMES.size(); ++i) {
        const auto counter = static_cast<ECounter>(i);
        EXPECT_EQ(api->m_counters[counter], counter == ECounter::EventLoss ? 1U : 0U) << COUNTER_NAMES[i];
    }
}

TEST_F(Loss, ReadsTheDiagnosticsInOrderAndWritesNothing) {
    EXPECT_TRUE(api->_CheckLostUdpPktHandler(Event(0, 0, 0, 8)));
    EXPECT_THAT(board.accesses,
                ElementsAre(R(0x2030), R(0x2031), R(0x2032), R(0x12015), R(0x1201B), R(0x22015), R(0x2201B)));
    EXPECT_THAT(log.Texts(), ElementsAre("received lost pkt event, event_data3=00000008"));
    EXPECT_EQ(log.lines[0].level, LOG_WARNING);
    EXPECT_EQ(log.lines[0].Function(), "_CheckLostUdpPktHandler");
}

TEST_F(Loss, OnTheManagingChannelAlsoAsksForARebuild) {
    HandEvent(Event(0x80));
    EXPECT_TRUE(AreTablesEmpty());
    EXPECT_FALSE(api->m_isAllInitFinished);
    EXPECT_FALSE(api->m_u50UserData.isQuote);
}

TEST_F(Loss, OnAnotherChannelChangesNothing) {
    api->m_u50ConfigInfo.channel_id = 15;
    HandEvent(Event(0x80, 1, 1, 1));
    EXPECT_FALSE(AreTablesEmpty());
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0xFF);
    EXPECT_EQ(api->m_u50DstPort.port_ine_4ps, 24);
    EXPECT_TRUE(api->m_isTcpInitFinished);
    EXPECT_TRUE(api->m_isHBM2InitFinished);
    EXPECT_TRUE(api->m_isAllInitFinished);
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_EQ(api->m_counters[ECounter::EventLoss], 0U);
}

TEST_F(Loss, DiagnosticsAreTracedWhateverTheConfiguredLevel) {
    api->m_u50ConfigInfo.log_level = LOG_WARNING;
    CCommonLog::GetInstance().SetLogLevel(LOG_WARNING);
    api->_CheckLostUdpPktHandler(Event(0x80));
    EXPECT_EQ(log.Texts(LOG_DEBUG_EX).size(), 7U);
    EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_INFO));
}

}  // namespace

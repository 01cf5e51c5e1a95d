#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "src/board/EngineParameters.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ChannelStartUp : public testing::Test {
protected:
    ChannelStartUp() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api->m_drvDMAEnyx.Init(0, CQelCharArray<64>("CUSTOM_CHAN0_DATA"));
        api->m_configFileName.UnSafeCopyFrom(file.Path().c_str());
        api->m_u50ConfigInfo.log_level = LOG_ALL;
        api->m_u50ConfigInfo.init_tcpcnt = 2;
        api->m_u50ConfigInfo.wait_snap_timeout = 1;
        board.answers[0x2032] = 3;
        board.answers[0x0101] = 0x20260420;
        board.answers[0x0103] = 1;
        api->s_indexDirectory = directory.Path();
    }
    ~ChannelStartUp() override { api->s_indexDirectory = "/tmp"; }

    /// Counters by register; each sample adds `perSample` to the data and `eventsPerSample` to the event counter.
    void CountersMove(uint64_t perSample, uint64_t eventsPerSample) {
        board.onRead = [=, this](uint32_t index, uint64_t& value) {
            if (index == 0x1220) ++samples;
            if (index == 0x1220) value = perSample * samples;
            if (index == 0x1207) value = eventsPerSample * samples;
            return index == 0x1220 || index == 0x1207;
        };
    }
    void StoredChecksumIsTheFiles() {
        uint32_t crc = 0;
        ASSERT_EQ(api->_GetConfigCrc(crc), 0);
        board.answers[0x1001] = crc;
        checksum = crc;
        api->m_u50ConfigInfo.crc_mux_check = true;
    }

    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    TemporaryFile file{"[config]\na=1\n"};
    TemporaryDirectory directory;
    std::unique_ptr<TestableApi> api = MakeApi();
    uint64_t samples = 0;
    uint32_t checksum = 0;
};

TEST_F(ChannelStartUp, OtherChannelsTouchNoRegister) {
    api->m_u50ConfigInfo.channel_id = 3;
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_EQ(clock.slept, 0);
}

TEST_F(ChannelStartUp, SamplesTheCountersTwiceThreeSecondsApart) {
    StoredChecksumIsTheFiles();
    CountersMove(10, 0);
    ASSERT_EQ(api->_ChechAndVexaSubDmaUp(), 0);
    EXPECT_EQ(clock.slept, 3'000'000'000);
    EXPECT_THAT(board.accesses,
                ElementsAre(R64(0x1220, 10), R64(0x1230), R64(0x1240), R64(0x1250), R64(0x1207), R64(0x1220, 20),
                            R64(0x1230), R64(0x1240), R64(0x1250), R64(0x1207), R(0x1001, checksum)));
}

TEST_F(ChannelStartUp, RunningBoardWithTheSameChecksumIsLeftAlone) {
    StoredChecksumIsTheFiles();
    CountersMove(10, 0);
    ASSERT_EQ(api->_ChechAndVexaSubDmaUp(), 0);
    EXPECT_THAT(board.Writes(), IsEmpty());
    EXPECT_TRUE(api->m_isAllInitFinished);
    const std::string crc = std::to_string(static_cast<int32_t>(checksum));
    EXPECT_THAT(log.Texts(LOG_WARNING),
                ElementsAre("crc_mux_check is 1, lasrtCrc is " + crc + " , configCrc is " + crc + ".",
                            "channel0 " + file.Path() +
                                " no changes have occurred, no initialization required, pkts1 [10 0 0 0 0], pkts2 [20 "
                                "0 0 0 0]."));
}

/// The polls from one on, counted from 1, to one fail.
struct Outage {
    uint64_t first;
    uint64_t last;
    void operator()(RecordingBoard& self) const {
        self.pollResult = first <= self.polls && self.polls <= last ? -1 : 0;
    }
};

// The memory wait takes 6,000 polls of a millisecond, the snapshot wait as many again until its limit.
TEST_F(ChannelStartUp, BoardLostInTheMemoryWaitBeginsAgainWithABringUpOnceItAnswers) {
    board.onPoll = Outage{40, 49};
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_EQ(board.AccessesTo(0x0010, 0x0010).size(), 3U);  // the lost one, and the two attempts
    EXPECT_EQ(api->m_u50InitCnt, 2);
    EXPECT_EQ(board.AccessesTo(0x2032, 0x2032).size(), 2U);
}

TEST_F(ChannelStartUp, BoardLostInTheSnapshotWaitEndsTheAttemptAtOnce) {
    api->m_u50ConfigInfo.wait_snap_timeout = 600;
    int64_t answered = 0;
    board.onPoll = [&](RecordingBoard& self) {
        self.pollResult = self.polls == 6500 ? -1 : 0;
        if (self.polls == 6501) answered = clock.monotonic;
        if (self.polls == 6502) api->VexaStop();
    };
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_LT(answered, 15'000'000'000);
    EXPECT_EQ(board.AccessesTo(0x0010, 0x0010).size(), 2U);
    EXPECT_EQ(log.Count(LOG_WARNING, "channel0 u50 Init time out Cnt == 1"), 0U);
}

TEST_F(ChannelStartUp, OutageUsesUpAttemptsAsASnapshotThatDoesNotComeWould) {
    board.onPoll = Outage{40, UINT64_MAX};
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_THAT(log.Texts(LOG_WARNING),
                ElementsAre("channel0 u50 Init time out Cnt == 1", "channel0 u50 Init time out Cnt == 2",
                            "channel0 m_u50InitCnt > 2"));
    // A wait lasts until two whole seconds are over its start: longer than its limit of one.
    EXPECT_GE(clock.monotonic - clock.slept, 4'000'000'000);
    EXPECT_LT(clock.monotonic - clock.slept, 4'500'000'000);
}

TEST_F(ChannelStartUp, StopEndsAStartThatWaitsForItsBoard) {
    board.onPoll = [&](RecordingBoard& self) {
        self.pollResult = -1;
        if (self.polls == 40) api->VexaStop();
    };
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_EQ(board.polls, 40U);
    EXPECT_EQ(board.AccessesTo(0x0010, 0x0010).size(), 1U);
}

// The registers of a board that was replaced fail before its stream is looked at.
TEST_F(ChannelStartUp, VersionCheckOfALostBoardIsNoVerdict) {
    api->m_isTcpInitFinished = true;
    board.accessResult = -1;
    const uint64_t before = board.polls;
    board.onPoll = [&](RecordingBoard& self) {
        self.pollResult = self.polls == before + 20 ? -1 : 0;
        if (self.polls == before + 20) self.accessResult = 0;
    };
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);  // no exchange behind the board that answers
    EXPECT_FALSE(log.Has(LOG_ERROR, "check version is fail."));
    EXPECT_EQ(board.AccessesTo(0x0010, 0x0010).size(), 2U);
}

TEST_F(ChannelStartUp, RegistersThatFailWhileTheStreamAnswersAreNoLostBoard) {
    api->m_isTcpInitFinished = true;
    board.accessResult = -1;
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_TRUE(log.Has(LOG_ERROR, "check version is fail."));
    EXPECT_THAT(board.AccessesTo(0x0010, 0x0010), IsEmpty());
    EXPECT_GE(clock.monotonic - clock.slept, 1'000'000'000);  // for so long the stream may still fail
    EXPECT_LT(clock.monotonic - clock.slept, 1'100'000'000);
}

TEST_F(ChannelStartUp, WithoutTheSwitchEveryStartIsAFullOne) {
    StoredChecksumIsTheFiles();
    api->m_u50ConfigInfo.crc_mux_check = false;
    CountersMove(10, 0);
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_THAT(board.Writes(), Contains(W(0x0010, 1)));
}

TEST_F(ChannelStartUp, IdleBoardIsBroughtUp) {
    StoredChecksumIsTheFiles();
    CountersMove(0, 0);
    api->_ChechAndVexaSubDmaUp();
    EXPECT_THAT(board.Writes(), Contains(W(0x0010, 1)));
}

TEST_F(ChannelStartUp, MovedEventCounterBringsTheBoardUp) {
    StoredChecksumIsTheFiles();
    CountersMove(10, 1);
    api->_ChechAndVexaSubDmaUp();
    EXPECT_THAT(board.Writes(), Contains(W(0x0010, 1)));
}

TEST_F(ChannelStartUp, UnreadableFileFailsBeforeAnyRegister) {
    api->m_configFileName.CopyFrom("/nonexistent/x.ini");
    EXPECT_EQ(api->_ChechAndVexaSubDmaUp(), -1);
    EXPECT_TRUE(log.Has(LOG_ERROR, "Error opening file [/nonexistent/x.ini]."));
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(ChannelStartUp, OnlyTheManagerProgramsTheBoard) {
    api->m_u50ConfigInfo.channel_id = 5;
    EXPECT_EQ(api->_VexaSubDmaUp(1), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(ChannelStartUp, TimeOutsAreTriedAgainUntilTheLimit) {
    EXPECT_EQ(api->_VexaSubDmaUp(1), -1);
    EXPECT_THAT(log.Texts(LOG_WARNING),
                ElementsAre("channel0 u50 Init time out Cnt == 1", "channel0 u50 Init time out Cnt == 2",
                            "channel0 m_u50InitCnt > 2"));
}

TEST_F(ChannelStartUp, UsedUpAttemptsStayUsedUp) {
    api->_VexaSubDmaUp(1);
    board.Forget();
    EXPECT_EQ(api->_VexaSubDmaUp(1), -1);
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(ChannelStartUp, LimitOfZeroFailsBeforeTheFirstAttempt) {
    api->m_u50ConfigInfo.init_tcpcnt = 0;
    EXPECT_EQ(api->_VexaSubDmaUp(1), -1);
    EXPECT_TRUE(log.Has(LOG_WARNING, "channel0 m_u50InitCnt > 0"));
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(ChannelStartUp, LimitOfZeroIsNotLookedAtOnceTheSnapshotIsThere) {
    api->m_u50ConfigInfo.init_tcpcnt = 0;
    api->m_isTcpInitFinished = true;
    EXPECT_EQ(api->_VexaSubDmaUp(1), 0);
    EXPECT_TRUE(api->m_isAllInitFinished);
}

TEST_F(ChannelStartUp, FailedMemoryEndsTheStartWithoutARetry) {
    board.answers[0x2032] = 0;
    EXPECT_EQ(api->_VexaSubDmaUp(1), -1);
    EXPECT_EQ(api->m_u50InitCnt, 1);
}

TEST_F(ChannelStartUp, SuccessfulAttemptSetsTheCountBackToZero) {
    board.onPoll = [this](RecordingBoard&) { api->m_isTcpInitFinished = clock.monotonic > 6'500'000'000; };
    EXPECT_EQ(api->_VexaSubDmaUp(0), 0);
    EXPECT_EQ(api->m_u50InitCnt, 0);
}

TEST_F(ChannelStartUp, FailedVersionCheckEndsTheStart) {
    api->m_isTcpInitFinished = true;
    board.answers[0x0103] = 0;
    EXPECT_EQ(api->_VexaSubDmaUp(1), -1);
    EXPECT_TRUE(log.Has(LOG_ERROR, "check version is fail."));
    EXPECT_FALSE(api->m_isAllInitFinished);
}

TEST_F(ChannelStartUp, WritesChecksumParametersPortsAndEnginesInOrder) {
    api->m_isTcpInitFinished = true;
    U50ConfigInfo& config = api->m_u50ConfigInfo;
    config.maxInstNo = {81000, 81101, 85000, 85101};
    config.last_tick_channel = 7;
    config.repeat_quote_upload = true;
    config.model_sel = true;
    ASSERT_EQ(api->_VexaSubDmaUp(0xABCD), 0);
    EXPECT_THAT(
        board.Writes(),
        ElementsAre(W(0x0102, 0x01010133), W(0x1001, 0xABCD), W(0x1005, 81000), W(0x1006, 81101), W(0x1007, 85000),
                    W(0x1008, 85101), W(0x1009, 7), W(0x1010, 1), W(0x0100, 1), W(0x0101, 0), W(0x21001, 1),
                    W(0x21000, 0xFFFFFFFF), W(0x11001, 1), W(0x11000, 0xFFFFFFFF), W(0x11005, 1),
                    W(0x11004, 0xFFFFFFFF), W(0x21005, 1), W(0x21004, 0xFFFFFFFF), W(0x11120, 1), W(0x21120, 1)));
    EXPECT_TRUE(log.Has(LOG_INFO,
                        "shfe2ps_max_inst_no[81000] shfe4ps_max_inst_no[81101] ine2ps_max_inst_no[85000] "
                        "ine4ps_max_inst_no[85101] lastTickChannel[7]"));
    EXPECT_TRUE(log.Has(LOG_DEBUG, "channel0 update_reg configCrc[43981]"));
}

TEST_F(ChannelStartUp, ChecksumOfZeroIsNotStored) {
    api->m_isTcpInitFinished = true;
    ASSERT_EQ(api->_VexaSubDmaUp(0), 0);
    EXPECT_THAT(board.AccessesTo(0x1001, 0x1001), IsEmpty());
}

TEST_F(ChannelStartUp, SubscribesChannels0To15) {
    api->m_isTcpInitFinished = true;
    ASSERT_EQ(api->_VexaSubDmaUp(0), 0);
    for (int channel = 0; channel < 16; ++channel) {
        const std::string name = "channel" + std::to_string(channel);
        EXPECT_EQ(log.Count(LOG_INFO, name + " subscribe start..."), 1U);
        EXPECT_EQ(log.Count(LOG_INFO, name + " subscribe end"), 1U);
    }
}

TEST_F(ChannelStartUp, EventModelIsWrittenAndTheVersionReadOnOneRegister) {
    api->m_isTcpInitFinished = true;
    api->m_u50ConfigInfo.event_model_sel = true;
    ASSERT_EQ(api->_VexaSubDmaUp(0), 0);
    EXPECT_THAT(board.AccessesTo(0x0101, 0x0101), ElementsAre(R(0x0101, 0x20260420), W(0x0101, 1)));
}

TEST_F(ChannelStartUp, EnginesOfOtherChannelsAreLeftAlone) {
    api->m_u50ConfigInfo.channel_id = 5;
    EXPECT_EQ(api->_StartDmaUp(), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_TRUE(api->m_isAllInitFinished);
}

TEST_F(ChannelStartUp, RebuildWithoutAChecksumGoesOnAtTheConfiguredLevel) {
    api->m_u50ConfigInfo.log_level = static_cast<ELOGLEVEL>(LOG_ERROR | LOG_INFO);
    api->m_isTcpInitFinished = true;
    CCommonLog::GetInstance().SetLogLevel(LOG_ALL);  // as a bring-up that failed leaves it
    ASSERT_EQ(api->_VexaSubDmaUp(0), 0);
    EXPECT_TRUE(log.Has(LOG_DEBUG, "channel0 FPGA Init......begin"));
    EXPECT_FALSE(log.Has(LOG_DEBUG, "channel0 FPGA Init......end"));
    EXPECT_THAT(board.AccessesTo(0x1001, 0x1001), IsEmpty());
}

}  // namespace

TEST_F(ChannelStartUp, EachSwitchOfTheEnginesReachesItsOwnRegister) {
    for (const uint32_t number : {0U, 1U, 2U}) {
        board.Forget();
        api->m_u50ConfigInfo.repeat_quote_upload = number == 0;
        api->m_u50ConfigInfo.model_sel = number == 1;
        api->m_u50ConfigInfo.event_model_sel = number == 2;
        WriteEngineParameters(CDrvRegEnyx::GetInstance(), api->m_u50ConfigInfo);
        EXPECT_THAT(board.AccessesTo(0x1010, 0x1010), ElementsAre(W(0x1010, number == 0 ? 1 : 0)));
        EXPECT_THAT(board.AccessesTo(0x0100, 0x0101),
                    ElementsAre(W(0x0100, number == 1 ? 1 : 0), W(0x0101, number == 2 ? 1 : 0)));
    }
}

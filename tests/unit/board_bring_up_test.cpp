#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr int64_t SECOND_NS = 1'000'000'000;

class BoardBringUp : public testing::Test {
protected:
    BoardBringUp() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api->m_drvDMAEnyx.Init(0, CQelCharArray<64>("CUSTOM_CHAN0_DATA"));
        U50ConfigInfo& config = api->m_u50ConfigInfo;
        config.log_level = LOG_ALL;
        config.enabled_mask.enabled_mask = 1;
        config.wait_snap_timeout = 2;
        config.detect_interval = 0xFFFFFFFF;
        config.price_protect_event_mask = 0x0C0C0C0C;
        config.TARGETROUTE = 0x35;
        config.DSTMAC.CopyFrom("01:02:03:04:05:06");
        config.DSTIP.CopyFrom("10.20.0.1");
        config.DSTPORT = 33022;
        config.SRCMAC.CopyFrom("0a:0b:0c:0d:0e:fe");
        config.SRCIP.CopyFrom("10.20.0.2");
        config.SRCPORT = 40000;
        config.multiIpAndPort.shfe2ps_ip_a.CopyFrom("239.3.42.71:21000");
        config.multiIpAndPort.shfe2ps_ip_b.CopyFrom("239.4.42.72:21001");
        board.answers[0x2032] = 3;
    }

    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(BoardBringUp, ProgramsEveryRegisterInOrder) {
    EXPECT_EQ(api->_InitFpga(), -2);
    std::vector<Access> expected{W(0x10, 1),   W(0x1F11, 0x0C0C0C0C),  W(0x1000, 15),          W(0x1F14, 0),
                                 W(0x1F15, 0), W(0x11112, 0xFFFFFFFF), W(0x21112, 0xFFFFFFFF), W(0x3000, 5)};
    for (uint32_t k = 0; k < 4; ++k) {
        expected.push_back(W(0x3001 + 16 * k, 0x0102));
        expected.push_back(W(0x3002 + 16 * k, 0x03040506));
    }
    for (uint32_t k = 0; k < 4; ++k) expected.push_back(W(0x3003 + 16 * k, 0x0A140001));
    for (uint32_t k = 0; k < 4; ++k) expected.push_back(W(0x3004 + 16 * k, 33022));
    for (uint32_t k = 0; k < 4; ++k) expected.push_back(W(0x3005 + 16 * k, 0x0A0B));
    expected.push_back(W(0x3006, 0x0C0D0EFE));
    expected.push_back(W(0x3016, 0x0C0D0EFF));
    expected.push_back(W(0x3026, 0x0C0D0F00));
    expected.push_back(W(0x3036, 0x0C0D0F01));
    for (uint32_t k = 0; k < 4; ++k) {
        expected.push_back(W(0x3007 + 16 * k, 0x0A140002));
        expected.push_back(W(0x3008 + 16 * k, 40000));
    }
    expected.push_back(W(0x11100, 0xEF032A47));
    expected.push_back(W(0x11102, 21000));
    expected.push_back(W(0x11104, 0xEF042A48));
    expected.push_back(W(0x11106, 21001));
    for (const uint32_t index : {0x11101U, 0x11103U, 0x11105U, 0x11107U, 0x21100U, 0x21102U, 0x21104U, 0x21106U,
                                 0x21101U, 0x21103U, 0x21105U, 0x21107U}) {
        expected.push_back(W(index, 0));
    }
    EXPECT_THAT(board.Writes(), ElementsAreArray(expected));
}

TEST_F(BoardBringUp, MemoryWaitEndsAfterSixWholeSecondsAndAsksTheStatusRegister) {
    int64_t waited = 0;
    board.onRead = [&](uint32_t index, uint64_t&) {
        if (index == 0x2032) waited = clock.monotonic;
        return false;
    };
    EXPECT_EQ(api->_InitFpga(), -2);
    EXPECT_GE(waited, 6 * SECOND_NS);
    EXPECT_LT(waited, 6 * SECOND_NS + SECOND_NS / 10);
    EXPECT_TRUE(log.Has(LOG_INFO, "HBM2 init successful."));
    EXPECT_TRUE(api->m_isHBM2InitFinished);
}

TEST_F(BoardBringUp, MemoryThatIsNotReadyFailsTheAttempt) {
    board.answers[0x2032] = 2;
    EXPECT_EQ(api->_InitFpga(), -1);
    EXPECT_TRUE(log.Has(LOG_WARNING, "HBM2 init timeout, Please check whether the FPGA is normal."));
    EXPECT_TRUE(board.AccessesTo(0x1000, 0x1000).empty());
}

TEST_F(BoardBringUp, MemoryThatIsNotReadyLeavesTheLogLevelRaised) {
    api->m_u50ConfigInfo.log_level = LOG_ERROR;
    board.answers[0x2032] = 2;
    EXPECT_EQ(api->_InitFpga(), -1);
    EXPECT_TRUE(CCommonLog::GetInstance().IsEnabled(LOG_DEBUG));
}

TEST_F(BoardBringUp, StartThatFailsForItsMemoryLeavesTheLogLevelRaised) {
    const TemporaryFile file("[config]\nlog_level=1\n");
    board.answers[0x2032] = 2;
    EXPECT_EQ(api->VexaStart(file.Path().c_str()), -2);
    EXPECT_TRUE(CCommonLog::GetInstance().IsEnabled(LOG_DEBUG));
}

TEST_F(BoardBringUp, MemoryStatusThatCannotBeReadIsNotReady) {
    board.onPoll = [](RecordingBoard& self) { self.accessResult = -1; };
    EXPECT_EQ(api->_InitFpga(), -1);
    EXPECT_TRUE(log.Has(LOG_DEBUG_EX, "addr[0x2032] value[0x00000000] 32 bits, result -1"));
}

TEST_F(BoardBringUp, SnapshotWaitRunsAtTheConfiguredLogLevel) {
    api->m_u50ConfigInfo.log_level = LOG_ERROR;
    board.onPoll = [&](RecordingBoard&) {
        if (clock.monotonic < 7 * SECOND_NS) return;
        EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_DEBUG));
    };
    EXPECT_EQ(api->_InitFpga(), -2);
    EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_DEBUG));
}

TEST_F(BoardBringUp, MessagesDuringTheMemoryWaitAreDiscardedUnread) {
    const U50Event ready{DMA_EVENT, 32, 0, 0, 1, 0, 0, 0};
    const auto* bytes = reinterpret_cast<const uint8_t*>(&ready);
    board.messages.emplace_back(bytes, bytes + sizeof ready);
    api->_InitFpga();
    EXPECT_GE(clock.monotonic, 6 * SECOND_NS);
    EXPECT_FALSE(log.Has(LOG_INFO, "received HBM2 init event, event_data2=00000001"));
}

// An event that reaches the session on another road, such as a provider that polls for itself while it is polled.
TEST_F(BoardBringUp, ReadyEventInsideTheMemoryWaitEndsItWithoutTheStatusRegister) {
    const U50Event ready{DMA_EVENT, 32, 0, 0, 1, 0, 0, 0};
    std::vector<unsigned char> message(DMA_READABLE_BYTES);
    std::memcpy(message.data(), &ready, sizeof ready);
    api->m_u50UserData.lpMdApi = api.get();
    board.answers[0x2032] = 2;
    int64_t readyAt = 0;
    board.onPoll = [&](RecordingBoard& self) {
        if (self.polls != 700) return;
        api->_MdHandler(message.data(), sizeof ready, &api->m_u50UserData);
        readyAt = clock.monotonic;
    };
    EXPECT_EQ(api->_InitFpga(), -2);
    EXPECT_THAT(board.AccessesTo(0x2032, 0x2032), testing::IsEmpty());
    EXPECT_GT(readyAt, SECOND_NS / 2);
    EXPECT_TRUE(log.Has(LOG_INFO, "received HBM2 init event, event_data2=00000001"));
    EXPECT_TRUE(log.Has(LOG_INFO, "HBM2 init successful."));
    EXPECT_TRUE(api->m_isHBM2InitFinished);
    EXPECT_LT(clock.monotonic - readyAt, 4 * SECOND_NS);  // the limit of the snapshot wait alone
}

TEST_F(BoardBringUp, SnapshotTimeOutOfZeroGivesUpAfterOneWholeSecond) {
    api->m_u50ConfigInfo.wait_snap_timeout = 0;
    EXPECT_EQ(api->_InitFpga(), -2);
    EXPECT_GE(clock.monotonic, 7 * SECOND_NS);
    EXPECT_LT(clock.monotonic, 7 * SECOND_NS + SECOND_NS / 10);
}

TEST_F(BoardBringUp, SetWallClockChangesNoWait) {
    board.onPoll = [&](RecordingBoard&) { clock.wall -= 3600 * SECOND_NS; };
    EXPECT_EQ(api->_InitFpga(), -2);
    EXPECT_LT(clock.monotonic, 10 * SECOND_NS);
}

TEST_F(BoardBringUp, FinishedSnapshotEndsTheWait) {
    board.onPoll = [&](RecordingBoard&) { api->m_isTcpInitFinished = clock.monotonic > 7 * SECOND_NS; };
    EXPECT_EQ(api->_InitFpga(), 0);
    EXPECT_TRUE(log.Has(LOG_INFO, "listening tcp basement data"));
    EXPECT_TRUE(log.Has(LOG_INFO, "tcp init finished, start listening udp data"));
}

TEST_F(BoardBringUp, StopDuringTheSnapshotWaitFailsTheAttempt) {
    board.onPoll = [&](RecordingBoard&) {
        if (clock.monotonic > 7 * SECOND_NS) api->VexaStop();
    };
    EXPECT_EQ(api->_InitFpga(), -1);
}

TEST_F(BoardBringUp, SignalDuringTheSnapshotWaitFailsTheAttempt) {
    board.onPoll = [&](RecordingBoard&) { CSignalProcess::m_isExit = clock.monotonic > 7 * SECOND_NS; };
    EXPECT_EQ(api->_InitFpga(), -1);
}

TEST_F(BoardBringUp, EachCallCountsAnAttemptAndStartsFromClearedData) {
    api->m_u50InstCount.shfe_inst_cnt_2ps = 5;
    api->m_finishedMask.enabled_mask = 1;
    api->_InitFpga();
    api->_InitFpga();
    EXPECT_EQ(api->m_u50InitCnt, 2);
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
}

TEST_F(BoardBringUp, DisabledFeedGetsZeroOnBothLines) {
    api->m_u50ConfigInfo.enabled_mask.enabled_mask = 0;
    api->_InitFpga();
    for (const Access& access : board.AccessesTo(0x11100, 0x11107)) EXPECT_EQ(access.value, 0U);
    EXPECT_EQ(board.AccessesTo(0x11100, 0x11107).size(), 8U);
}

TEST_F(BoardBringUp, DestinationPortReachesAllFourSessions) {
    api->_InitFpga();
    for (const uint32_t index : {0x3004U, 0x3014U, 0x3024U, 0x3034U}) {
        EXPECT_THAT(board.AccessesTo(index, index), ElementsAre(W(index, 33022)));
    }
}

TEST_F(BoardBringUp, SourceMacEndingInFeCarriesIntoBit8OfSessions2And3) {
    api->m_u50ConfigInfo.SRCMAC.CopyFrom("00:00:00:00:00:fe");
    api->_InitFpga();
    EXPECT_THAT(board.AccessesTo(0x3016, 0x3016), ElementsAre(W(0x3016, 0x0FF)));
    EXPECT_THAT(board.AccessesTo(0x3026, 0x3026), ElementsAre(W(0x3026, 0x100)));
    EXPECT_THAT(board.AccessesTo(0x3036, 0x3036), ElementsAre(W(0x3036, 0x101)));
}

TEST_F(BoardBringUp, CarryIsPutInByOrAndNotAdded) {
    api->m_u50ConfigInfo.SRCMAC.CopyFrom("00:00:00:00:01:ff");
    api->_InitFpga();
    EXPECT_THAT(board.AccessesTo(0x3016, 0x3016), ElementsAre(W(0x3016, 0x100)));
}

TEST_F(BoardBringUp, MacThatDoesNotParseIsAllZero) {
    api->m_u50ConfigInfo.DSTMAC.CopyFrom("01:02:03");
    api->_InitFpga();
    EXPECT_THAT(board.AccessesTo(0x3001, 0x3002), ElementsAre(W(0x3001, 0), W(0x3002, 0)));
}

TEST_F(BoardBringUp, GroupWithoutAPortIsLeftUnprogrammed) {
    api->m_u50ConfigInfo.multiIpAndPort.shfe2ps_ip_a.CopyFrom("239.3.42.71");
    EXPECT_EQ(api->_InitFpga(), -2);
    EXPECT_TRUE(log.Has(LOG_ERROR, "_SetRegIpAndPort failed"));
    EXPECT_TRUE(board.AccessesTo(0x11100, 0x11100).empty());
    EXPECT_FALSE(board.AccessesTo(0x11104, 0x11104).empty());
}

TEST_F(BoardBringUp, GroupIsLoggedAndAnUnparsableAddressIsAllOnes) {
    CAddressType address("999.1.1.1:65536");
    EXPECT_EQ(api->_SetRegIpAndPort(0x11100, 0x11102, address, true), 0);
    EXPECT_TRUE(log.Has(LOG_INFO, "69888[999.1.1.1] 69890[65536]"));
    EXPECT_THAT(board.accesses, ElementsAre(W(0x11100, 0xFFFFFFFF), W(0x11102, 65536)));
}

TEST_F(BoardBringUp, GroupOfAFeedThatIsSwitchedOffIsZeroWhateverItsText) {
    CAddressType address("239.3.42.71");
    EXPECT_EQ(api->_SetRegIpAndPort(0x21101, 0x21103, address, true), -1);
    EXPECT_THAT(board.accesses, ElementsAre());
    EXPECT_EQ(api->_SetRegIpAndPort(0x21101, 0x21103, address, false), 0);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x21101, 0), W(0x21103, 0)));
}

TEST_F(BoardBringUp, TracesEveryAccessWhileItProgramsAndNotAfterwards) {
    api->m_u50ConfigInfo.log_level = static_cast<ELOGLEVEL>(LOG_ERROR | LOG_WARNING);
    api->_InitFpga();
    const auto traced = log.Texts(LOG_DEBUG_EX).size();
    EXPECT_EQ(traced, board.accesses.size());
    EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_INFO));
}

}  // namespace

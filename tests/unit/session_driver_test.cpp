#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct CountingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType&) override { ++updates; }
    int updates = 0;
};

class SessionDriver : public testing::Test {
protected:
    void PutUpdate(uint32_t instNo = 1) {
        std::vector<uint8_t> message(DMA_UDP_RECORD_OFFSET + sizeof(VexaShfeMdType));
        message[0] = DMA_UDP;
        std::memcpy(message.data() + DMA_UDP_RECORD_OFFSET, &instNo, sizeof instNo);
        board.messages.push_back(message);
    }
    void PutEvent(uint32_t data0) {
        const U50Event event{DMA_EVENT, sizeof(U50Event), data0, 0, 0, 0, 0, 0};
        const auto* bytes = reinterpret_cast<const uint8_t*>(&event);
        board.messages.emplace_back(bytes, bytes + sizeof event);
    }
    const char* ReceiverConfig() { return file.Path().c_str(); }

    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    TemporaryFile file{"[config]\ndevice=xilinx2:3\n"};
    CountingSpi spi;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(SessionDriver, OpensTheBoardAndReadsItsIdentityInOrder) {
    board.answers = {{5, 0x20260420}, {4, 7}, {0x1002, 0x0A0B0C0D}, {0x1003, 0x0E0F1011}, {0x1004, 0x12131415}};
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    EXPECT_EQ(board.bus, 2);
    EXPECT_EQ(board.core, 474);
    EXPECT_EQ(board.streamName, "CUSTOM_CHAN3_DATA");
    EXPECT_THAT(board.accesses, ElementsAre(R(5, 0x20260420), R(4, 7), R(0x1002, 0x0A0B0C0D), R(0x1003, 0x0E0F1011),
                                            R(0x1004, 0x12131415)));
    EXPECT_TRUE(log.Has(LOG_INFO, "FPGA COMPILE_DATE[20260420] COMPILE_VER[00000007]"));
    EXPECT_TRUE(log.Has(LOG_INFO, "DNA [0a0b0c0d:0e0f1011:12131415] [0a:0b:0c:0d:0e:0f]"));
}

TEST_F(SessionDriver, IdentityThatCannotBeReadIsZeroAlsoBehindOneThatCould) {
    board.answers = {{5, 0x20260420}, {4, 7}, {0x1002, 0x0A0B0C0D}, {0x1003, 0x0E0F1011}, {0x1004, 0x12131415}};
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    log.lines.clear();
    board.accessResult = -1;
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    EXPECT_TRUE(log.Has(LOG_INFO, "FPGA COMPILE_DATE[00000000] COMPILE_VER[00000000]"));
    EXPECT_TRUE(log.Has(LOG_INFO, "DNA [00000000:00000000:00000000] [00:00:00:00:00:00]"));
}

TEST_F(SessionDriver, SessionThatHasEndedHoldsNoSnapshot) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    api->m_isTcpInitFinished = true;
    api->VexaStop();
    EXPECT_EQ(api->VexaRecv(), -1);
    EXPECT_FALSE(api->m_isTcpInitFinished);
}

TEST_F(SessionDriver, TellsItsVersion) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    const std::string version = CVexaShfeMdApiImpl::VEXA_U50_VERSION.data();
    EXPECT_THAT(version, testing::EndsWith(" V1.1.1.33"));
    EXPECT_TRUE(log.Has(LOG_INFO, "VEXA_U50_VERSION[" + version + "]"));
}

TEST_F(SessionDriver, RegistersThatCannotBeOpenedFailTheStart) {
    board.registersResult = -7;
    EXPECT_EQ(api->VexaStart(spi, ReceiverConfig()), -2);
    EXPECT_TRUE(log.Has(LOG_ERROR, "Reg Init failed"));
    EXPECT_TRUE(log.Has(LOG_ERROR, "_Init error"));
    EXPECT_EQ(board.openStreams, 0);
}

TEST_F(SessionDriver, StreamThatCannotBeOpenedFailsTheStart) {
    board.streamResult = -7;
    EXPECT_EQ(api->VexaStart(ReceiverConfig()), -2);
    EXPECT_TRUE(log.Has(LOG_ERROR, "DMA Init failed"));
    EXPECT_TRUE(log.Has(LOG_ERROR, "_Init error"));
}

TEST_F(SessionDriver, UnreadableConfigurationIsToldOnStandardOutput) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(api->VexaStart(spi, "/nonexistent/x.ini"), -2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ReadConfig is /nonexistent/x.ini failed \nInit, _ReadConfig failed \n");
    EXPECT_TRUE(board.accesses.empty());
}

TEST_F(SessionDriver, InitTellsItsFailuresApart) {
    api->m_configFileName.UnSafeCopyFrom(ReceiverConfig());
    board.registersResult = -1;
    EXPECT_EQ(api->Init(), -4);
    board.registersResult = 0;
    board.streamResult = -1;
    EXPECT_EQ(api->Init(), -3);
}

TEST_F(SessionDriver, SecondStartClosesAndReopensTheStream) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    EXPECT_EQ(board.openStreams, 1);
    EXPECT_EQ(board.openRegisters, 1);
}

TEST_F(SessionDriver, PathOf256CharactersOrMoreIsCutAt255) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(api->VexaStart(spi, std::string(300, 'x').c_str()), -2);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                HasSubstr("ReadConfig is " + std::string(255, 'x') + " failed"));
}

TEST_F(SessionDriver, RecvStartContinuesOnZeroAndOneAndStopsOnMinusOne) {
    PutUpdate();
    PutEvent(0);
    PutUpdate();
    board.onPoll = [this](RecordingBoard& self) {
        if (self.polls == 6) api->VexaStop();
    };
    EXPECT_EQ(api->VexaRecvStart(spi, ReceiverConfig()), 0);
    EXPECT_EQ(spi.updates, 2);
    EXPECT_EQ(board.polls, 6U);
}

TEST_F(SessionDriver, OtherChannelsAreNeverRebuilt) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    api->m_isAllInitFinished = false;
    board.Forget();
    EXPECT_EQ(api->VexaRecv(), 0);
    EXPECT_TRUE(board.accesses.empty());
}

TEST_F(SessionDriver, FailedRebuildOfTheManagingChannelEndsTheStepWithoutCleaning) {
    api->m_drvDMAEnyx.Init(2, CQelCharArray<64>("CUSTOM_CHAN0_DATA"));
    api->m_u50ConfigInfo.channel_id = 0;
    api->m_u50ConfigInfo.init_tcpcnt = 0;
    api->m_finishedMask.enabled_mask = 5;
    EXPECT_EQ(api->VexaRecv(), -1);
    EXPECT_TRUE(log.Has(LOG_ERROR, "_VexaSubDmaUp is error"));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 5);
}

TEST_F(SessionDriver, StopClearsTheSessionAtTheNextStep) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    api->m_finishedMask.enabled_mask = 5;
    api->m_store.Slot(INE_2PS, 9)->volume = 1;
    api->m_setPriceErrorInstId.insert("cu2612");
    EXPECT_EQ(api->VexaStop(), 0);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 5);
    EXPECT_EQ(api->VexaRecv(), -1);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50InstTable.ine2psInstTable[9].volume, 0U);
    EXPECT_TRUE(api->m_setPriceErrorInstId.empty());
}

TEST_F(SessionDriver, SignalEndsEveryStepAndNoStartUndoesIt) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    raise(SIGINT);
    EXPECT_FALSE(api->m_isStopflag);
    EXPECT_EQ(api->VexaRecv(), -1);
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    EXPECT_EQ(api->VexaRecv(), -1);
}

TEST_F(SessionDriver, ExceptionOfTheApplicationPassesThrough) {
    struct Throwing : CVexaShfeMdSpi {
        void OnVexaShfeMd(VexaShfeMdType&) override { throw std::runtime_error("application"); }
    } throwing;
    ASSERT_EQ(api->VexaStart(throwing, ReceiverConfig()), 0);
    PutUpdate();
    EXPECT_THROW(api->VexaRecv(), std::runtime_error);
    EXPECT_EQ(api->VexaRecv(), 0);
}

constexpr const char* NO_STREAM = "nothing to receive from: the session was not started, or its start failed";

TEST_F(SessionDriver, ReceivingWithoutAStartEndsWithOneLineAndTouchesNoRegister) {
    VexaShfeMdType md{};
    EXPECT_EQ(api->VexaRecv(), -1);
    EXPECT_THAT(log.Texts(), ElementsAre(NO_STREAM));
    EXPECT_EQ(api->VexaRecv(md), -1);
    EXPECT_THAT(log.Texts(), ElementsAre(NO_STREAM));
    EXPECT_TRUE(board.accesses.empty());
    EXPECT_EQ(board.polls, 0U);
}

TEST_F(SessionDriver, ReceivingAfterAStartWithoutAStreamTouchesNoRegister) {
    const TemporaryFile manager{"[config]\ndevice=xilinx2:0\n"};
    for (const char* path : {ReceiverConfig(), manager.Path().c_str()}) {
        board.streamResult = -7;
        ASSERT_EQ(api->VexaStart(spi, path), -2);
        board.streamResult = 0;
        log.lines.clear();
        EXPECT_EQ(api->VexaRecv(), -1);
        EXPECT_EQ(api->VexaRecv(), -1);
        EXPECT_THAT(log.Texts(), ElementsAre(NO_STREAM)) << path;
    }
    EXPECT_TRUE(board.accesses.empty());
    EXPECT_EQ(board.openRegisters, 0);
}

TEST_F(SessionDriver, ReceivingAfterAStartWithoutAConfigurationTouchesNoRegister) {
    for (std::size_t start = 1; start <= 2; ++start) {
        EXPECT_EQ(api->VexaRecvStart(spi, "/nonexistent/x.ini"), -1);
        EXPECT_EQ(api->VexaRecv(), -1);
        EXPECT_EQ(api->VexaRecv(), -1);
        EXPECT_EQ(log.Count(LOG_ERROR, NO_STREAM), start);
    }
    EXPECT_TRUE(board.accesses.empty());
}

TEST_F(SessionDriver, SecondBoardOfTheProcessIsRefusedAndTheFirstLeftAlone) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    board.Forget();
    const TemporaryFile elsewhere{"[config]\ndevice=xilinx5:3\n"};
    const auto other = MakeApi();
    EXPECT_EQ(other->VexaStart(spi, elsewhere.Path().c_str()), -2);
    EXPECT_TRUE(log.Has(LOG_ERROR,
                        "the board on bus 2 is in use by another session of this process, which works with one board; "
                        "start bus 5 in a process of its own"));
    EXPECT_EQ(board.openRegisters, 1);
    EXPECT_EQ(board.openStreams, 1);
    EXPECT_TRUE(board.accesses.empty());
    PutUpdate(7);
    EXPECT_EQ(api->VexaRecv(), 1);
}

TEST_F(SessionDriver, BoardIsTheProcessesUntilItsLastSessionEnds) {
    const TemporaryFile second{"[config]\ndevice=xilinx2:4\n"};
    const TemporaryFile elsewhere{"[config]\ndevice=xilinx5:3\n"};
    auto other = MakeApi();
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    board.registersResult = -7;  // of an area opened once more
    ASSERT_EQ(other->VexaStart(spi, second.Path().c_str()), 0);
    board.registersResult = 0;
    EXPECT_EQ(board.openRegisters, 1);
    api.reset();
    EXPECT_EQ(board.openRegisters, 1);
    EXPECT_EQ(board.openStreams, 1);
    // Alone, a session may go over to another board.
    EXPECT_EQ(other->VexaStart(spi, elsewhere.Path().c_str()), 0);
    EXPECT_EQ(board.bus, 5);
    other.reset();
    EXPECT_EQ(board.openRegisters, 0);
}

TEST_F(SessionDriver, FailedStartLeavesTheRegistersOfOthersAlone) {
    const TemporaryFile second{"[config]\ndevice=xilinx2:4\n"};
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    auto other = MakeApi();
    board.streamResult = -7;
    ASSERT_EQ(other->VexaStart(spi, second.Path().c_str()), -2);
    other.reset();
    EXPECT_EQ(board.openRegisters, 1);
    uint32_t value = 9;
    EXPECT_EQ(CDrvRegEnyx::GetInstance().ReadRegister(0x2032, value), 0);
}

TEST_F(SessionDriver, OutageIsToldOnceAndItsEndOnce) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    log.lines.clear();
    board.pollResult = -9;
    board.lastError = "no board is served on bus 2";
    for (int step = 0; step < 5; ++step) EXPECT_EQ(api->VexaRecv(), 0);
    board.pollResult = 0;
    PutUpdate(3);
    EXPECT_EQ(api->VexaRecv(), 1);
    EXPECT_EQ(api->VexaRecv(), 0);
    EXPECT_THAT(
        log.Texts(),
        ElementsAre("board provider recording: the stream CUSTOM_CHAN3_DATA has failed (-9): no board is "
                    "served on bus 2; it is polled until it answers again",
                    "board provider recording: the stream CUSTOM_CHAN3_DATA answers again after 5 failed polls"));
    EXPECT_EQ(spi.updates, 1);
}

TEST_F(SessionDriver, ClosingLineTellsFailedPollsAndAccesses) {
    const uint64_t before = CDrvRegEnyx::GetInstance().FailedAccesses();  // of the whole process
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    board.pollResult = -1;
    for (int step = 0; step < 3; ++step) EXPECT_EQ(api->VexaRecv(), 0);
    board.accessResult = -1;
    uint32_t value = 0;
    EXPECT_EQ(CDrvRegEnyx::GetInstance().ReadRegister(0x2032, value), -1);
    EXPECT_EQ(CDrvRegEnyx::GetInstance().WriteRegister(0x2032, value), -1);
    api->VexaStop();
    EXPECT_EQ(api->VexaRecv(), -1);
    EXPECT_TRUE(log.Has(
        LOG_INFO, "dropped, refused or begun again: poll_failed=3 register_failed=" + std::to_string(before + 2)));
}

// The managing channel's stream is lost in the live phase.
TEST_F(SessionDriver, LostStreamOfTheManagingChannelIsRebuiltOnceItAnswers) {
    const TemporaryFile manager{"[config]\ndevice=xilinx2:0\ninit_tcpcnt=1\nwait_snap_timeout=1\n"};
    api->VexaStart(spi, manager.Path().c_str());  // there is no exchange: the attempt is used up
    api->m_u50InitCnt = 0;
    api->m_isAllInitFinished = true;
    api->m_finishedMask.enabled_mask = 5;
    api->m_store.Slot(INE_2PS, 9)->volume = 1;
    board.Forget();
    board.pollResult = -1;
    EXPECT_EQ(api->VexaRecv(), 0);
    EXPECT_FALSE(api->m_isAllInitFinished);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50InstTable.ine2psInstTable[9].volume, 0U);
    const uint64_t before = board.polls;
    for (int step = 0; step < 1000; ++step) EXPECT_EQ(api->VexaRecv(), 0);
    EXPECT_EQ(board.polls, before + 1000);
    EXPECT_TRUE(board.Writes().empty());
    // What it hands over first belongs to no session that was rebuilt.
    board.pollResult = 0;
    PutUpdate(3);
    EXPECT_EQ(api->VexaRecv(), 0);
    EXPECT_EQ(spi.updates, 0);
    EXPECT_TRUE(board.Writes().empty());
    EXPECT_EQ(api->VexaRecv(), -1);  // the rebuild: still no exchange
    ASSERT_FALSE(board.Writes().empty());
    EXPECT_EQ(board.Writes().front(), W(0x0010, 1));
}

TEST_F(SessionDriver, StreamLostInARebuildEndsTheStepIdle) {
    const TemporaryFile manager{"[config]\ndevice=xilinx2:0\ninit_tcpcnt=1\nwait_snap_timeout=1\n"};
    api->VexaStart(spi, manager.Path().c_str());
    api->m_u50InitCnt = 0;
    log.lines.clear();
    const uint64_t before = board.polls;
    board.onPoll = [&](RecordingBoard& self) { self.pollResult = self.polls >= before + 7 ? -1 : 0; };
    EXPECT_EQ(api->VexaRecv(), 0);
    EXPECT_EQ(api->m_u50InitCnt, 0);
    EXPECT_FALSE(log.Has(LOG_ERROR, "_VexaSubDmaUp is error"));
    EXPECT_EQ(board.polls, before + 7);
}

TEST_F(SessionDriver, ReceiveStepTakesAtMostOneMessage) {
    ASSERT_EQ(api->VexaStart(spi, ReceiverConfig()), 0);
    PutUpdate();
    PutUpdate();
    EXPECT_EQ(api->VexaRecv(), 1);
    EXPECT_EQ(spi.updates, 1);
    EXPECT_EQ(api->VexaRecv(), 1);
    EXPECT_EQ(api->VexaRecv(), 0);
}

}  // namespace

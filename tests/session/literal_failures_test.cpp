// What a start, a step and a service tell when they fail: every warning and error, in order, in the log file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <new>

#include "public/log/CommonLog.h"
#include "tests/session/LiteralWorld.h"
#include "tests/support/FailingSystem.h"

using testing::ElementsAre;

namespace literal {
namespace {

/// Every other line of a start has its place in the log of a start.
constexpr int TROUBLES = 3;

using Lines = std::vector<std::string>;

class LiteralFailures : public testing::Test {
protected:
    ~LiteralFailures() override { FailingSystem::Get() = {}; }
    World world{TROUBLES, {"cpucore=" + std::to_string(sched_getcpu())}};
};

// ---- what is opened -------------------------------------------------------------------------------------------------

TEST_F(LiteralFailures, RegistersThatCannotBeOpened) {
    world.board.registersResult = -7;
    EXPECT_EQ(world.Start(), -2);
    EXPECT_THAT(world.Troubles(),
                ElementsAre("[ERROR] [Init]board provider recording: the registers of bus 3, core 474 cannot be opened "
                            "(-7)",
                            "[ERROR] [Init]Reg Init failed", "[ERROR] [VexaStart]_Init error"));
}

TEST_F(LiteralFailures, StreamThatCannotBeOpened) {
    world.board.streamResult = -8;
    world.board.lastError = "taken";
    EXPECT_EQ(world.api->VexaStart(world.file.Path().c_str()), -2);
    EXPECT_THAT(
        world.Troubles(),
        ElementsAre("[ERROR] [Init]board provider recording: the stream CUSTOM_CHAN0_DATA of bus 3 cannot be opened "
                    "(-8): taken",
                    "[ERROR] [Init]DMA Init failed", "[ERROR] [VexaStart]_Init error"));
}

TEST_F(LiteralFailures, FileThatCannotBeReadIsToldOnStandardOutput) {
    CCommonLog::GetInstance().SetLogPath((world.directory.Path().string() + "/").c_str());
    testing::internal::CaptureStdout();
    EXPECT_EQ(world.api->VexaStart(world, "/nonexistent/x.ini"), -2);
    EXPECT_EQ(world.api->VexaStart("/nonexistent/y.ini"), -2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ReadConfig is /nonexistent/x.ini failed \nInit, _ReadConfig failed \n"
              "ReadConfig is /nonexistent/y.ini failed \nInit, _ReadConfig failed \n");
    EXPECT_EQ(world.LogLines(), Lines(2, "[ERROR] [VexaStart]_Init error"));
}

TEST_F(LiteralFailures, StepWithoutAStart) {
    CCommonLog::GetInstance().SetLogPath((world.directory.Path().string() + "/").c_str());
    EXPECT_EQ(world.api->VexaRecv(), -1);
    EXPECT_EQ(world.api->VexaRecv(), -1);
    EXPECT_THAT(world.LogLines(), ElementsAre("[ERROR] [VexaRecv]nothing to receive from: the session was not started, "
                                              "or its start failed"));
}

TEST_F(LiteralFailures, NullPathOfThePollingForm) {
    ASSERT_EQ(world.Start(), 0);
    EXPECT_EQ(world.api->VexaStart(nullptr), -1);
    EXPECT_THAT(world.Troubles(), ElementsAre("[ERROR] [VexaStart]lpConfig is nullptr"));
}

TEST_F(LiteralFailures, SignalHandlersThatCannotBeInstalledEndNoStart) {
    ASSERT_EQ(world.Start(), 0);
    Lines expected;
    for (const auto& [signal, name] : {std::pair(SIGINT, "SIGINT"), {SIGTERM, "SIGTERM"}, {SIGPIPE, "SIGPIPE"}}) {
        FailingSystem::Get().refusedSignals = {signal};
        EXPECT_EQ(CSignalProcess::InitSignal(), -1);
        EXPECT_EQ(world.Start(), 0);
        const std::string line = std::string("[ERROR] [InitSignal]Failed to install ") + name + " handle!";
        expected.insert(expected.end(), 2, line);
    }
    EXPECT_EQ(world.Troubles(), expected);
}

TEST_F(LiteralFailures, FirstSignalThatIsRefusedIsTheOneThatIsTold) {
    FailingSystem::Get().refusedSignals = {SIGINT, SIGTERM, SIGPIPE};
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.Troubles(), ElementsAre("[ERROR] [InitSignal]Failed to install SIGINT handle!"));
    FailingSystem::Get().refusedSignals = {SIGTERM, SIGPIPE};
    EXPECT_EQ(CSignalProcess::InitSignal(), -1);
    EXPECT_THAT(world.Troubles(), ElementsAre("[ERROR] [InitSignal]Failed to install SIGINT handle!",
                                              "[ERROR] [InitSignal]Failed to install SIGTERM handle!"));
}

// ---- the thread -----------------------------------------------------------------------------------------------------

TEST_F(LiteralFailures, StartPinsItsThread) {
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    ASSERT_EQ(world.Start(), 0);
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    EXPECT_EQ(CPU_COUNT(&set), 1);
    EXPECT_TRUE(CPU_ISSET(static_cast<std::size_t>(world.api->m_u50ConfigInfo.cpucore), &set));
    EXPECT_THAT(world.Troubles(), testing::IsEmpty());
}

TEST(LiteralCpu, ThatDoesNotExistOrIsNoneEndsNoStart) {
    for (const std::string cpu : {"1024", "-2", "-1"}) {
        World world(15, {"cpucore=" + cpu});
        ASSERT_EQ(world.Start(), 0);
        EXPECT_THAT(world.Troubles(),
                    ElementsAre(cpu == "-1" ? "[WARNING] [_BindCpu]could not set CPU[-1] affinity"
                                            : "[WARNING] [_BindCpu]set CPU[" + cpu + "] affinity failed."));
    }
}

TEST(LiteralCpu, ThatThereIsIsTold) {
    const std::string cpu = std::to_string(sched_getcpu());
    World world(15, {"cpucore=" + cpu});
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.LogLines(), testing::Contains("[DEBUG] [_BindCpu]set CPU[" + cpu + "] affinity successful."));
}

// ---- the checksum ---------------------------------------------------------------------------------------------------

class LiteralChecksum : public LiteralFailures {
protected:
    /// Its five texts end in the result as an unsigned number; then the start tells its own.
    void ExpectTold(const std::string& text, const std::string& result) {
        world.board.messages.clear();
        EXPECT_EQ(world.Start(), -2);
        EXPECT_THAT(world.Troubles(), ElementsAre("[ERROR] [_GetConfigCrc]" + text + "[<file>] [" + result + "].",
                                                  "[ERROR] [_ChechAndVexaSubDmaUp]Error opening file [<file>].",
                                                  "[ERROR] [VexaStart]_Init error"));
        EXPECT_EQ(world.board.accesses.size(), 5U);  // the identity alone
    }
    int32_t Result() {
        uint32_t checksum = 0;
        return world.api->_GetConfigCrc(checksum);
    }
};

TEST_F(LiteralChecksum, OfAFileThatIsGone) {
    world.atIdentity = [&] { std::filesystem::remove(world.file.Path()); };
    ExpectTold("Error opening file ", "4294967295");
    EXPECT_EQ(Result(), -1);
}

TEST_F(LiteralChecksum, OfAnEmptyFile) {
    world.atIdentity = [&] { world.file.Write(""); };
    ExpectTold("file is empty ", "4294967294");
    EXPECT_EQ(Result(), -2);
}

TEST_F(LiteralChecksum, OfAFileTooLargeForMemory) {
    world.atIdentity = [&] { std::filesystem::resize_file(world.file.Path(), uint64_t{5} << 30); };
    world.board.messages.clear();
    EXPECT_EQ(world.Start(), -2);
    EXPECT_EQ(Result(), -3);
    std::filesystem::resize_file(world.file.Path(), 1);  // nothing else reads all of it
    EXPECT_THAT(
        world.Troubles(),
        ElementsAre("[ERROR] [_GetConfigCrc]Error allocating memory for file[<file>] [4294967293].",
                    "[ERROR] [_ChechAndVexaSubDmaUp]Error opening file [<file>].", "[ERROR] [VexaStart]_Init error",
                    "[ERROR] [_GetConfigCrc]Error allocating memory for file[<file>] [4294967293]."));
}

TEST_F(LiteralChecksum, OfAFileThatIsShorterThanItSays) {
    FailingSystem::Get().isReadShort = true;
    ExpectTold("error reading certificate file", "4294967292");
    EXPECT_EQ(Result(), -4);
}

TEST_F(LiteralChecksum, ThatCannotBeComputed) {
    FailingSystem::Get().isChecksumOff = true;
    ExpectTold("calculate_crc32c failed file", "4294967291");
    EXPECT_EQ(Result(), -5);
}

// ---- the bring-up ---------------------------------------------------------------------------------------------------

TEST_F(LiteralFailures, MemoryThatIsNotReady) {
    world.board.answers[0x2032] = 2;
    world.api->m_isHBM2InitFinished = true;  // of a start before
    EXPECT_EQ(world.Start(), -2);
    EXPECT_THAT(world.Troubles(),
                ElementsAre("[WARNING] [_InitFpga]HBM2 init timeout, Please check whether the FPGA is normal.",
                            "[ERROR] [VexaStart]_Init error"));
    EXPECT_GT(world.board.polls, 5900U);  // one a millisecond
}

TEST_F(LiteralFailures, SnapshotThatDoesNotComeAndTheRebuildsThatNeverBegin) {
    world.snapshot.clear();
    EXPECT_EQ(world.Start(), -2);
    EXPECT_EQ(world.api->VexaRecv(), -1);
    EXPECT_EQ(world.api->VexaRecv(), -1);
    EXPECT_THAT(
        world.Troubles(),
        ElementsAre("[WARNING] [_VexaSubDmaUp]channel0 u50 Init time out Cnt == 1",
                    "[WARNING] [_VexaSubDmaUp]channel0 u50 Init time out Cnt == 2",
                    "[WARNING] [_VexaSubDmaUp]channel0 m_u50InitCnt > 2", "[ERROR] [VexaStart]_Init error",
                    "[WARNING] [_VexaSubDmaUp]channel0 m_u50InitCnt > 2", "[ERROR] [VexaRecv]_VexaSubDmaUp is error",
                    "[WARNING] [_VexaSubDmaUp]channel0 m_u50InitCnt > 2", "[ERROR] [VexaRecv]_VexaSubDmaUp is error"));
}

TEST_F(LiteralFailures, BoardThatStopsAnsweringUsesUpTheAttempts) {
    world.board.onPoll = [](RecordingBoard& self) { self.pollResult = self.polls < 40 ? 0 : -6; };
    EXPECT_EQ(world.Start(), -2);
    EXPECT_THAT(world.Troubles(),
                ElementsAre("[ERROR] [BeginOutage]board provider recording: the stream CUSTOM_CHAN0_DATA has failed "
                            "(-6); it is polled until it answers again",
                            "[WARNING] [_VexaSubDmaUp]channel0 u50 Init time out Cnt == 1",
                            "[WARNING] [_VexaSubDmaUp]channel0 u50 Init time out Cnt == 2",
                            "[WARNING] [_VexaSubDmaUp]channel0 m_u50InitCnt > 2", "[ERROR] [VexaStart]_Init error"));
}

TEST_F(LiteralFailures, StartAndRebuildThatRunOutOfMemoryAreGivenUpAtTheConfiguredLevel) {
    world.board.onPoll = [](RecordingBoard&) { throw std::bad_alloc(); };
    EXPECT_EQ(world.Start(), -2);
    EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_INFO));
    EXPECT_EQ(world.api->VexaRecv(), -1);
    EXPECT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_INFO));
    EXPECT_THAT(
        world.Troubles(),
        ElementsAre("[ERROR] [_Start]start given up: std::bad_alloc", "[ERROR] [VexaStart]_Init error",
                    "[ERROR] [_Rebuild]rebuild given up: std::bad_alloc", "[ERROR] [VexaRecv]_VexaSubDmaUp is error"));
}

TEST(LiteralGroups, TextsOfOneTwoAndThreeParts) {
    World world(TROUBLES, {"cpucore=-1", "shfe2ps_ip_a=239.1.1.11", "shfe2ps_ip_b=", "ine2ps_ip_a=239.1.1.31:21031:9",
                           "ine2ps_ip_b=:21032", "ine4ps_ip_a=a:b"});
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.board.AccessesTo(0x11100, 0x11107),
                ElementsAre(W(0x11101, 0xEF01011F), W(0x11103, 21031), W(0x11105, 0xFFFFFFFF), W(0x11107, 21032)));
    EXPECT_THAT(world.board.AccessesTo(0x21101, 0x21103),
                ElementsAre(W(0x21102, 21021), W(0x21101, 0xFFFFFFFF), W(0x21103, 0)));
    EXPECT_THAT(world.Troubles(), ElementsAre("[WARNING] [_BindCpu]could not set CPU[-1] affinity",
                                              "[ERROR] [_SetRegIpAndPort]_SetRegIpAndPort failed",
                                              "[ERROR] [_SetRegIpAndPort]_SetRegIpAndPort failed"));
    Lines groups;
    for (const std::string& line : world.LogLines()) {
        if (line.rfind("[INFO] [_SetRegIpAndPort]", 0) == 0) groups.push_back(line.substr(25));
    }
    EXPECT_THAT(groups, ElementsAre("69889[239.1.1.31] 69891[21031]", "69893[] 69895[21032]",
                                    "135424[239.1.1.21] 135426[21021]", "135428[239.1.1.22] 135430[21022]",
                                    "135425[a] 135427[0]", "135429[239.1.1.42] 135431[21042]"));
}

// ---- the versions ---------------------------------------------------------------------------------------------------

class LiteralVersions : public testing::Test {
protected:
    /// What the check tells of these two registers.
    Lines Told(uint32_t hardware, uint32_t verdict) {
        world.board.answers[0x101] = hardware;
        world.board.answers[0x103] = verdict;
        EXPECT_EQ(world.Start(), -2);
        Lines lines = world.LogLines();
        const auto first = std::find(lines.begin(), lines.end(), HEAD);
        return {first, lines.end()};
    }
    static constexpr const char* HEAD = "[INFO] [Chk_SysVersion]master channel addr 0x102, litte Endian  0x33010101.";
    World world{15};
};

TEST_F(LiteralVersions, HardwareTooOld) {
    EXPECT_THAT(Told(0x2026041F, 1),
                ElementsAre(HEAD, "[INFO] [Chk_SysVersion]master channel addr 0x102, big Endian  0x01010133.",
                            "[INFO] [Chk_SysVersion]str_it->second is 20260420, hwVersion is 2026041f.",
                            "[ERROR] [Chk_SysVersion]you will need to update your hardware version.",
                            "[ERROR] [Chk_SysVersion]soft version 1.1.1.33, hwVersion is 20260420 > fpga hwVersion is "
                            "2026041f.",
                            "[ERROR] [_VexaSubDmaUp]check version is fail.", "[ERROR] [VexaStart]_Init error"));
}

TEST_F(LiteralVersions, EveryVerdictButOneIsToldAndEndsTheStart) {
    const std::vector<std::pair<uint32_t, Lines>> verdicts{
        {0, {"soft version write is fail."}},
        {2, {"you will need to update your soft version.", "iCheckRst == 2, soft  error."}},
        {3, {"iCheckRst is 3 error."}},
        {0xFFFFFFFF, {"iCheckRst is -1 error."}}};
    for (const auto& [verdict, texts] : verdicts) {
        const Lines lines = Told(0x20260420, verdict);
        Lines expected{HEAD, "[INFO] [Chk_SysVersion]master channel addr 0x102, big Endian  0x01010133.",
                       "[INFO] [Chk_SysVersion]str_it->second is 20260420, hwVersion is 20260420.",
                       "[INFO] [Chk_SysVersion]hardware version check is success."};
        for (const std::string& text : texts) expected.push_back("[INFO] [Chk_SysVersion]" + text);
        expected.push_back("[ERROR] [_VexaSubDmaUp]check version is fail.");
        expected.push_back("[ERROR] [VexaStart]_Init error");
        ASSERT_GE(lines.size(), expected.size());
        EXPECT_EQ(Lines(lines.end() - static_cast<std::ptrdiff_t>(expected.size()), lines.end()), expected);
    }
}

// ---- the start that is none -----------------------------------------------------------------------------------------

TEST(LiteralSkip, OfARunningBoard) {
    World world(TROUBLES + 4, {"cpucore=-1", "crc_mux_check=1"});
    std::ifstream file(world.file.Path());
    const uint32_t checksum = Crc32c({std::istreambuf_iterator<char>(file), {}});
    world.board.answers[0x1001] = checksum;
    uint64_t sample = 0;
    const auto answer = world.board.onRead;
    world.board.onRead = [&](uint32_t index, uint64_t& value) {
        if (index == 0x1220) ++sample;
        if (index != 0x1250) return answer(index, value);
        value = 60 + sample;
        return true;
    };
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.board.Writes(), testing::IsEmpty());
    const auto asSigned = std::to_string(static_cast<int32_t>(checksum));
    Lines expected{"[WARNING] [_BindCpu]could not set CPU[-1] affinity",
                   "[WARNING] [_ChechAndVexaSubDmaUp]crc_mux_check is 1, lasrtCrc is <signed> , configCrc is <signed>.",
                   "[WARNING] [_ChechAndVexaSubDmaUp]channel0 <file> no changes have occurred, no initialization "
                   "required, pkts1 [20 30 40 61 50], pkts2 [20 30 40 62 50]."};
    const std::string unit = static_cast<int32_t>(checksum) < 0 ? asSigned : "<checksum>";
    for (std::size_t at = expected[1].find("<signed>"); at != std::string::npos; at = expected[1].find("<signed>")) {
        expected[1].replace(at, 8, unit);
    }
    EXPECT_EQ(world.Troubles(), expected);
}

}  // namespace
}  // namespace literal

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/LogCapture.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::ElementsAre;

namespace {

constexpr uint32_t OLDEST = 0x20260420;

class VersionCheck : public testing::Test {
protected:
    VersionCheck() { CDrvRegEnyx::GetInstance().Init(0, 474); }
    int32_t Check(uint32_t hardware, uint32_t verdict) {
        board.answers[0x0101] = hardware;
        board.answers[0x0103] = verdict;
        return api->Chk_SysVersion();
    }
    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(VersionCheck, WritesItsVersionAndThenReadsHardwareAndVerdict) {
    EXPECT_EQ(Check(OLDEST, 1), 0);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x0102, 0x01010133), R(0x0101, OLDEST), R(0x0103, 1)));
}

TEST_F(VersionCheck, HardwareEqualToTheOldestPasses) {
    EXPECT_EQ(Check(OLDEST, 1), 0);
    EXPECT_THAT(log.Texts(),
                ElementsAre("master channel addr 0x102, litte Endian  0x33010101.",
                            "master channel addr 0x102, big Endian  0x01010133.",
                            "str_it->second is 20260420, hwVersion is 20260420.", "hardware version check is success.",
                            "hardware and soft version check is success."));
}

TEST_F(VersionCheck, OlderHardwareIsRefusedBeforeTheVerdictIsRead) {
    EXPECT_EQ(Check(OLDEST - 1, 1), -1);
    EXPECT_THAT(log.Texts(LOG_ERROR),
                ElementsAre("you will need to update your hardware version.",
                            "soft version 1.1.1.33, hwVersion is 20260420 > fpga hwVersion is 2026041f."));
    EXPECT_TRUE(board.AccessesTo(0x0103, 0x0103).empty());
}

TEST_F(VersionCheck, HardwareIsComparedUnsigned) { EXPECT_EQ(Check(0xFFFFFFFF, 1), 0); }

TEST_F(VersionCheck, VerdictZeroMeansTheWriteWasNotTaken) {
    EXPECT_EQ(Check(OLDEST, 0), -1);
    EXPECT_TRUE(log.Has(LOG_INFO, "soft version write is fail."));
}

TEST_F(VersionCheck, HardwareThatCannotBeReadIsVersionZero) {
    board.accessResult = -7;
    EXPECT_EQ(Check(OLDEST, 1), -1);
    EXPECT_TRUE(log.Has(LOG_INFO, "str_it->second is 20260420, hwVersion is 0."));
}

TEST_F(VersionCheck, VerdictThatCannotBeReadIsNone) {
    board.onRead = [this](uint32_t index, uint64_t&) {
        if (index == 0x0101) board.accessResult = -7;  // of the reads behind this one
        return false;
    };
    EXPECT_EQ(Check(OLDEST, 1), -1);
    EXPECT_EQ(log.Texts().back(), "soft version write is fail.");
}

TEST_F(VersionCheck, VerdictTwoMeansTheLibraryIsTooOld) {
    EXPECT_EQ(Check(OLDEST, 2), -1);
    EXPECT_TRUE(log.Has(LOG_INFO, "you will need to update your soft version."));
    EXPECT_TRUE(log.Has(LOG_INFO, "iCheckRst == 2, soft  error."));
}

TEST_F(VersionCheck, AnyOtherVerdictIsAnError) {
    for (const uint32_t verdict : {3U, 255U}) {
        EXPECT_EQ(Check(OLDEST, verdict), -1);
        EXPECT_TRUE(log.Has(LOG_INFO, "iCheckRst is " + std::to_string(verdict) + " error."));
    }
}

TEST_F(VersionCheck, LinesOfTheCheckAreKept) {
    CCommonLog::GetInstance().SetLogLevel(LOG_ERROR);
    EXPECT_EQ(Check(OLDEST + 5, 2), -1);
    EXPECT_THAT(api->m_VerReocrd,
                ElementsAre("master channel addr 0x102, litte Endian  0x33010101.",
                            "master channel addr 0x102, big Endian  0x01010133.",
                            "str_it->second is 20260420, hwVersion is 20260425.", "hardware version check is success.",
                            "you will need to update your soft version.", "iCheckRst == 2, soft  error."));
}

TEST_F(VersionCheck, LinesOfTheCheckBeforeAreForgotten) {
    Check(OLDEST, 2);
    EXPECT_EQ(Check(0x20250101, 1), -1);
    EXPECT_THAT(api->m_VerReocrd,
                ElementsAre("master channel addr 0x102, litte Endian  0x33010101.",
                            "master channel addr 0x102, big Endian  0x01010133.",
                            "str_it->second is 20260420, hwVersion is 20250101.",
                            "you will need to update your hardware version.",
                            "soft version 1.1.1.33, hwVersion is 20260420 > fpga hwVersion is 20250101."));
    EXPECT_EQ(log.lines.back().Function(), "Chk_SysVersion");
}

}  // namespace

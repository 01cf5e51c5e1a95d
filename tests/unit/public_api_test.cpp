#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "interface/VexaShfeMdApi.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

namespace {

struct RememberingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override { last = md; }
    VexaShfeMdType last{};
};

class PublicApi : public testing::Test {
protected:
    PublicApi() { TestableApi::ForgetWarnings(); }
    ~PublicApi() override { CVexaShfeMdApi::DestroyVexaShfeMdApi(api); }
    void PutUpdate(uint32_t instNo) {
        std::vector<uint8_t> message(DMA_UDP_RECORD_OFFSET + sizeof(VexaShfeMdType));
        message[0] = DMA_UDP;
        std::memcpy(message.data() + DMA_UDP_RECORD_OFFSET, &instNo, sizeof instNo);
        board.messages.push_back(message);
    }
    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    TemporaryFile file{"[config]\ndevice=xilinx0:1\n"};
    RememberingSpi spi;
    CVexaShfeMdApi& api = CVexaShfeMdApi::CreateVexaShfeMdApi();
};

TEST_F(PublicApi, NullPathOfTheCallbackFormIsToldOnStandardOutputAlone) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(api.VexaStart(spi, nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "VexaStart error, lpConfig is nullptr");
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(PublicApi, NullPathOfTheCallbackFormKeepsNothing) {
    api.VexaStop();
    testing::internal::CaptureStdout();
    api.VexaStart(spi, nullptr);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(api.VexaRecv(), -1);  // the stop is still in force
}

TEST_F(PublicApi, NullPathOfThePollingFormIsLogged) {
    EXPECT_EQ(api.VexaStart(nullptr), -1);
    EXPECT_TRUE(log.Has(LOG_ERROR, "lpConfig is nullptr"));
}

TEST_F(PublicApi, RecvStartThatCannotStartReturnsMinusOne) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(api.VexaRecvStart(spi, nullptr), -1);
    EXPECT_EQ(api.VexaRecvStart(spi, "/nonexistent/x.ini"), -1);
    testing::internal::GetCapturedStdout();
}

TEST_F(PublicApi, StopIsClearedByACallbackStartAndKeptByAPollingStart) {
    VexaShfeMdType md{};
    ASSERT_EQ(api.VexaStart(file.Path().c_str()), 0);
    api.VexaStop();
    EXPECT_EQ(api.VexaRecv(md), -1);
    ASSERT_EQ(api.VexaStart(file.Path().c_str()), 0);
    EXPECT_EQ(api.VexaRecv(md), -1);
    ASSERT_EQ(api.VexaStart(spi, file.Path().c_str()), 0);
    EXPECT_EQ(api.VexaRecv(), 0);
}

TEST_F(PublicApi, PollingStepWithAnEventAloneLeavesTheRecord) {
    VexaShfeMdType md{};
    md.inst_no = 77;
    ASSERT_EQ(api.VexaStart(file.Path().c_str()), 0);
    board.messages.push_back(std::vector<uint8_t>(sizeof(U50Event)));
    EXPECT_EQ(api.VexaRecv(md), 0);
    EXPECT_EQ(md.inst_no, 77U);
}

TEST_F(PublicApi, FormOfTheStartDecidesWhereUpdatesGo) {
    VexaShfeMdType md{};
    ASSERT_EQ(api.VexaStart(spi, file.Path().c_str()), 0);
    PutUpdate(5);
    EXPECT_EQ(api.VexaRecv(md), 1);
    EXPECT_EQ(md.inst_no, 0U);
    EXPECT_EQ(spi.last.inst_no, 5U);
}

TEST_F(PublicApi, PollingStartWithoutARecordDropsTheUpdateWithAnErrorLine) {
    ASSERT_EQ(api.VexaStart(file.Path().c_str()), 0);
    PutUpdate(5);
    EXPECT_EQ(api.VexaRecv(), 0);
    EXPECT_TRUE(log.Has(LOG_ERROR, "lpMdData is nullptr"));
}

TEST_F(PublicApi, PolledUpdateGoesToTheRecordGivenLast) {
    VexaShfeMdType first{};
    VexaShfeMdType second{};
    ASSERT_EQ(api.VexaStart(file.Path().c_str()), 0);
    api.VexaRecv(first);
    PutUpdate(6);
    EXPECT_EQ(api.VexaRecv(second), 1);
    EXPECT_EQ(first.inst_no, 0U);
    EXPECT_EQ(second.inst_no, 6U);
}

TEST_F(PublicApi, DestroyRunsTheImplementationsDestructor) {
    CVexaShfeMdApi& other = CVexaShfeMdApi::CreateVexaShfeMdApi();
    ASSERT_EQ(other.VexaStart(spi, file.Path().c_str()), 0);
    ASSERT_EQ(board.openStreams, 1);
    CVexaShfeMdApi::DestroyVexaShfeMdApi(other);
    EXPECT_EQ(board.openStreams, 0);
}

#if defined(__has_feature)
#define HAS_FEATURE(feature) __has_feature(feature)
#else
#define HAS_FEATURE(feature) 0
#endif
#if !defined(__SANITIZE_ADDRESS__) && !HAS_FEATURE(address_sanitizer)
// A sanitizer needs the whole address space for itself.
/// What the factory gives in a process without memory for a session object.
CVexaShfeMdApi& MakeWithoutMemory() {
    const rlimit limit{64 << 20, 64 << 20};
    setrlimit(RLIMIT_AS, &limit);
    CVexaShfeMdApi* made = nullptr;
    for (int i = 0; i < 64; ++i) made = &CVexaShfeMdApi::CreateVexaShfeMdApi();
    return *made;
}

TEST(PublicApiDeathTest, WithoutMemoryTheFactoryGivesAnObjectThatRefusesEveryStart) {
    const auto startWithoutMemory = [] {
        CVexaShfeMdApi& last = MakeWithoutMemory();
        VexaShfeMdType md{};
        RememberingSpi spi;
        const bool isRefusing = last.VexaStart("x") == -2 && last.VexaStart(spi, "x") == -2 &&
                                last.VexaRecvStart(spi, "x") == -1 && last.VexaRecv() == -1 &&
                                last.VexaRecv(md) == -1 && last.VexaStop() == 0;
        CVexaShfeMdApi::DestroyVexaShfeMdApi(last);
        _exit(isRefusing ? 0 : 1);
    };
    EXPECT_EXIT(startWithoutMemory(), testing::ExitedWithCode(0), "no memory for a session object(.|\n)*_Init error");
}

TEST(PublicApiDeathTest, WithoutMemoryANullPathIsToldAsEver) {
    const auto startWithoutMemory = [] {
        CVexaShfeMdApi& last = MakeWithoutMemory();
        const LogCapture log;
        RememberingSpi spi;
        dup2(STDERR_FILENO, STDOUT_FILENO);
        const bool isNothingLogged =
            last.VexaStart(spi, nullptr) == -1 && last.VexaRecvStart(spi, nullptr) == -1 && log.lines.empty();
        const bool isLogged =
            last.VexaStart(nullptr) == -1 && log.lines.size() == 1 && log.Has(LOG_ERROR, "lpConfig is nullptr");
        _exit(isNothingLogged && isLogged ? 0 : 1);
    };
    EXPECT_EXIT(startWithoutMemory(), testing::ExitedWithCode(0),
                "VexaStart error, lpConfig is nullptrVexaStart error, lpConfig is nullptr");
}
#endif

}  // namespace

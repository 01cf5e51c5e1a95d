// A file size limit is an operator's wish, and no reason to end a trading process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "common/RegisterMap.h"
#include "public/log/LogLine.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

namespace {

namespace fs = std::filesystem;

volatile std::sig_atomic_t g_signals = 0;

/// Each body runs in a process of its own and ends it with 0 when all went as it should.
class FileSizeLimitDeathTest : public testing::Test {
protected:
    FileSizeLimitDeathTest() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        TestableApi::s_indexDirectory = directory.Path();
        board.answers[0x1F14] = 16'384;
        api->m_finishedMask.enabled_mask = 1;
    }
    ~FileSizeLimitDeathTest() override { TestableApi::s_indexDirectory = "/tmp"; }

    static void LimitFilesTo(rlim_t bytes) {
        const rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_DFL);
    }
    static bool IsPending() {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGXFSZ) == 1;
    }
    static bool IsBlocked() {
        sigset_t blocked;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        return sigismember(&blocked, SIGXFSZ) == 1;
    }
    bool IsIndexRefused() { return api->_InstStaticInfoWriteFile() == -1; }
    bool IsDirectoryEmpty() const { return fs::is_empty(directory.Path()); }
    [[noreturn]] static void EndWith(bool isRight) { _exit(isRight ? 0 : 1); }

    ManualClock clock;
    RecordingBoard board;
    TemporaryDirectory directory;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(FileSizeLimitDeathTest, IndexFileIsGivenUpAndNothingIsLeft) {
    const auto body = [this] {
        LimitFilesTo(70'000);
        const LogCapture log;
        const bool isRefused = IsIndexRefused();
        const std::vector<std::string> told = log.Texts(LOG_WARNING);
        const bool isTold = isRefused && told.size() == 1 && told[0].find("open contract index file failed") == 0;
        EndWith(isTold && IsDirectoryEmpty() && !IsPending() && !IsBlocked());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(FileSizeLimitDeathTest, IndexFileWithinTheLimitIsWritten) {
    const auto body = [this] {
        LimitFilesTo(10'000'000);
        EndWith(!IsIndexRefused() && !IsDirectoryEmpty());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(FileSizeLimitDeathTest, LogGoesOnWithoutItsLines) {
    const auto body = [this] {
        LimitFilesTo(150);
        CCommonLog::GetInstance().SetLogPath(directory.Path().c_str());
        for (int i = 0; i < 20; ++i) VEXA_LOG(LOG_INFO, "a line");
        EndWith(CCommonLog::GetInstance().DroppedLines() == 19 && !IsPending() && !IsBlocked());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "cannot be written");
}

TEST_F(FileSizeLimitDeathTest, CapturesGoOnWithoutTheirRecords) {
    const auto body = [this] {
        const LogCapture log;
        const CWriteShot& shot = CWriteShot::GetInstance();
        LimitFilesTo(100);
        const bool isCreated = shot.CreateShotBinLog(directory.Path().c_str(), 3) == 0 &&
                               shot.CreateShotPcapLog(directory.Path().c_str(), 3) == 0;
        const unsigned char message[60] = {};
        for (int i = 0; i < 3; ++i) {
            shot.WriteShotBinLog(message, sizeof message);
            shot.WriteShotPcapLog(message, sizeof message);
        }
        EndWith(isCreated && shot.GetDroppedCnt() == 4 && !IsPending() && !IsBlocked());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(FileSizeLimitDeathTest, SignalThatWaitedBeforeStillWaits) {
    const auto body = [this](bool isTheThreads) {
        const LogCapture log;
        LimitFilesTo(70'000);
        sigset_t signal;
        sigemptyset(&signal);
        sigaddset(&signal, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal, nullptr);
        if (isTheThreads) {
            raise(SIGXFSZ);
        } else {
            kill(getpid(), SIGXFSZ);
        }
        EndWith(IsPending() && IsIndexRefused() && IsPending() && IsBlocked());
    };
    EXPECT_EXIT(body(true), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(body(false), testing::ExitedWithCode(0), "");
}

TEST_F(FileSizeLimitDeathTest, HandlerOfTheApplicationIsNotCalled) {
    const auto body = [this] {
        const LogCapture log;
        LimitFilesTo(70'000);
        std::signal(SIGXFSZ, [](int) { g_signals = g_signals + 1; });
        const bool isQuiet = IsIndexRefused() && g_signals == 0;
        raise(SIGXFSZ);
        EndWith(isQuiet && g_signals == 1);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

}  // namespace

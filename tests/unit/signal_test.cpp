#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "public/signal/SignalProcess.h"
#include "testing/LogCapture.h"

namespace {

class SignalProcess : public testing::Test {
protected:
    SignalProcess() {
        CSignalProcess::m_isExit = false;
        EXPECT_EQ(CSignalProcess::InitSignal(), 0);
    }
    ~SignalProcess() override { CSignalProcess::m_isExit = false; }
    LogCapture log;
};

TEST_F(SignalProcess, BrokenPipeNeitherEndsTheProcessNorSetsTheFlag) {
    raise(SIGPIPE);
    EXPECT_FALSE(CSignalProcess::m_isExit);
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(SignalProcess, InterruptAndTerminationSetTheFlag) {
    for (const int signal : {SIGINT, SIGTERM}) {
        CSignalProcess::m_isExit = false;
        raise(signal);
        EXPECT_TRUE(CSignalProcess::m_isExit);
        EXPECT_TRUE(log.Has(LOG_ERROR, "[" + std::to_string(getpid()) + "]received signal " + std::to_string(signal)));
    }
}

TEST_F(SignalProcess, LineNamesTheHeaderAsItsFile) {
    raise(SIGINT);
    ASSERT_EQ(log.lines.size(), 1U);
    EXPECT_THAT(log.lines[0].whole, testing::MatchesRegex("\\[SignalProcess\\.h:[0-9]+\\]\\[SignalHandler\\].*"));
}

TEST_F(SignalProcess, HandlersTellWhoSentTheSignalAndBlockNoOther) {
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) {
        struct sigaction action {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(static_cast<uint32_t>(action.sa_flags) & (SA_SIGINFO | SA_RESTART | SA_NODEFER | SA_RESETHAND),
                  uint32_t{SA_SIGINFO})
            << signal;
        for (int other = 1; other < SIGRTMAX; ++other) EXPECT_EQ(sigismember(&action.sa_mask, other), 0) << other;
        EXPECT_EQ(action.sa_handler == SIG_IGN, signal == SIGPIPE);
    }
}

TEST_F(SignalProcess, ErrnoSurvivesTheHandler) {
    struct : ILogSink {
        void OnLine(ELOGLEVEL, const char*, std::size_t) override { errno = EIO; }
    } spoiling;
    CCommonLog::GetInstance().SetSink(&spoiling);
    errno = ENOSPC;
    raise(SIGINT);
    EXPECT_EQ(errno, ENOSPC);
    CCommonLog::GetInstance().SetSink(&log);
}

TEST_F(SignalProcess, FlagStaysSetWhenTheHandlersAreInstalledAgain) {
    raise(SIGINT);
    EXPECT_EQ(CSignalProcess::InitSignal(), 0);
    EXPECT_TRUE(CSignalProcess::m_isExit);
}

}  // namespace

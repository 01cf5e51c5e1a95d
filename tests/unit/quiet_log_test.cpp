// Tests are held quiet only if a log that nobody asked for fails them.
#include "tests/support/QuietLog.h"

#include <gtest/gtest-spi.h>

namespace {

void Log(ELOGLEVEL level, const char* text) { CCommonLog::GetInstance().WriteLog(level, "%s", text); }

void TellAndAskNothing(ELOGLEVEL level) {
    const QuietLog log;
    Log(level, "something");
}

}  // namespace

TEST(QuietLog, FailsATestThatDidNotAskForATrouble) {
    EXPECT_NONFATAL_FAILURE(TellAndAskNothing(LOG_WARNING), "something");
    EXPECT_NONFATAL_FAILURE(TellAndAskNothing(LOG_ERROR), "something");
}

TEST(QuietLog, LeavesEveryOtherLineAlone) {
    testing::TestPartResultArray failures;
    std::size_t lines = 0;
    {
        using Reporter = testing::ScopedFakeTestPartResultReporter;
        const Reporter reporter(Reporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        const QuietLog log;
        for (const ELOGLEVEL level : {LOG_INFO, LOG_DEBUG, LOG_DEBUG_EX}) Log(level, "something");
        lines = log.lines.size();
    }
    EXPECT_EQ(lines, 3U);
    EXPECT_EQ(failures.size(), 0);
}

TEST(QuietLog, KnowsWhatWasAskedFor) {
    const QuietLog log;
    Log(LOG_WARNING, "one");
    Log(LOG_ERROR, "other");
    EXPECT_THAT(log.Texts(LOG_WARNING), testing::ElementsAre("one"));
    EXPECT_TRUE(log.Has(LOG_ERROR, "other"));
}

TEST(QuietLog, IsNotSatisfiedByAQuestionForSomethingElse) {
    const auto askForTheOther = [] {
        const QuietLog log;
        Log(LOG_WARNING, "one");
        EXPECT_FALSE(log.Has(LOG_WARNING, "other"));
        EXPECT_TRUE(log.Texts(LOG_ERROR).empty());
    };
    static const auto& ask = askForTheOther;
    EXPECT_NONFATAL_FAILURE(ask(), "one");
}

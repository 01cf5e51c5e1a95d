#include <gtest/gtest.h>

#include "public/clock/Clock.h"
#include "tests/support/VirtualClock.h"

namespace {

TEST(Clock, SystemClocksMoveForward) {
    const int64_t first = CClock::MonotonicNanoseconds();
    EXPECT_GE(CClock::MonotonicNanoseconds(), first);
    EXPECT_GT(CClock::WallNanoseconds(), 1'700'000'000'000'000'000);
}

TEST(Clock, SourceTakesThePlaceOfTheSystemsUntilItGoes) {
    {
        VirtualClock clock;
        clock.step = 0;
        CClock::SleepSeconds(3);
        CClock::SleepMicroseconds(5);
        EXPECT_EQ(CClock::MonotonicNanoseconds(), 3'000'005'000);
    }
    EXPECT_NE(CClock::MonotonicNanoseconds(), 3'000'005'000);
}

TEST(Clock, WaitIsMeasuredInWholeMonotonicSecondsCutTowardsZero) {
    VirtualClock clock;
    clock.step = 0;
    const CWaitTimer timer;
    clock.Advance(1'999'999'999);
    EXPECT_EQ(timer.ElapsedSeconds(), 1);
    clock.wall -= int64_t{10} * 365 * 86400 * 1'000'000'000;
    EXPECT_EQ(timer.ElapsedSeconds(), 1);
    clock.Advance(1);
    EXPECT_EQ(timer.ElapsedSeconds(), 2);
}

TEST(Clock, CalendarIsLocalAndRefusesWhatItCannotReach) {
    setenv("TZ", "Asia/Shanghai", 1);
    tzset();
    std::tm local{};
    ASSERT_TRUE(CClock::LocalTime(1'777'507'200, local));
    EXPECT_EQ(local.tm_hour, 8);
    EXPECT_FALSE(CClock::LocalTime(INT64_MAX, local));
}

}  // namespace

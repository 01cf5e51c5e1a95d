#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <vector>

#include "public/clock/Clock.h"
#include "testing/ManualClock.h"

namespace {

struct Sleep {
    clockid_t clock;
    int flags;
    int64_t seconds;
    int64_t nanoseconds;
    bool operator==(const Sleep&) const = default;
};

std::vector<Sleep> g_sleeps;

int64_t Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

// In front of the C library's, by the linker: notes the sleep, which takes no time.
extern "C" {
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec*) {
    g_sleeps.push_back({clock, flags, time->tv_sec, time->tv_nsec});
    return 0;
}
}

namespace {

TEST(Clock, SystemClocksAreReadInNanoseconds) {
    const int64_t monotonic = Now(CLOCK_MONOTONIC);
    const int64_t measured = CClock::MonotonicNanoseconds();
    EXPECT_GE(measured, monotonic);
    EXPECT_LE(measured, Now(CLOCK_MONOTONIC));
    EXPECT_LT(std::abs(CClock::WallNanoseconds() - Now(CLOCK_REALTIME)), 1'000'000'000);
}

TEST(Clock, SystemSleepsOnTheMonotonicClockForAsLongAsItIsTold) {
    g_sleeps.clear();
    CClock::SleepSeconds(4'294'967'295);
    CClock::SleepMicroseconds(2'000'003);
    EXPECT_EQ(g_sleeps, (std::vector<Sleep>{{CLOCK_MONOTONIC, 0, 4'294'967'295, 0}, {CLOCK_MONOTONIC, 0, 2, 3'000}}));
}

TEST(Clock, SourceTakesThePlaceOfTheSystemsUntilItGoes) {
    {
        ManualClock clock;
        clock.step = 0;
        CClock::SleepSeconds(3);
        CClock::SleepMicroseconds(5);
        EXPECT_EQ(CClock::MonotonicNanoseconds(), 3'000'005'000);
    }
    EXPECT_NE(CClock::MonotonicNanoseconds(), 3'000'005'000);
}

TEST(Clock, WaitIsMeasuredInWholeMonotonicSecondsCutTowardsZero) {
    ManualClock clock;
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
    ASSERT_TRUE(CClock::LocalTime(1'777'507'201, local));
    EXPECT_EQ(local.tm_year, 126);
    EXPECT_EQ(local.tm_mon, 3);
    EXPECT_EQ(local.tm_mday, 30);
    EXPECT_EQ(local.tm_hour, 8);
    EXPECT_EQ(local.tm_min, 0);
    EXPECT_EQ(local.tm_sec, 1);
    EXPECT_FALSE(CClock::LocalTime(INT64_MAX, local));
}

}  // namespace

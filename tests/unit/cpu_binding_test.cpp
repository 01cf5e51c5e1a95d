#include <gtest/gtest.h>
#include <sched.h>

#include "testing/LogCapture.h"
#include "tests/support/TestableApi.h"

namespace {

class CpuBinding : public testing::Test {
protected:
    int32_t Bind(int32_t cpu) {
        api->m_u50ConfigInfo.cpucore = cpu;
        return api->_BindCpu();
    }
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(CpuBinding, WithoutACpuNothingIsPinned) {
    EXPECT_EQ(Bind(-1), -1);
    EXPECT_TRUE(log.Has(LOG_WARNING, "could not set CPU[-1] affinity"));
}

TEST_F(CpuBinding, AvailableCpuIsPinned) {
    const int cpu = sched_getcpu();
    EXPECT_EQ(Bind(cpu), 0);
    EXPECT_TRUE(log.Has(LOG_DEBUG, "set CPU[" + std::to_string(cpu) + "] affinity successful."));
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    EXPECT_EQ(CPU_COUNT(&set), 1);
    EXPECT_TRUE(CPU_ISSET(static_cast<std::size_t>(cpu), &set));
}

TEST_F(CpuBinding, NumbersOutsideTheSetAreRefusedByTheSystem) {
    EXPECT_EQ(Bind(-2), -1);
    EXPECT_TRUE(log.Has(LOG_WARNING, "set CPU[-2] affinity failed."));
    EXPECT_EQ(Bind(1024), -1);
    EXPECT_TRUE(log.Has(LOG_WARNING, "set CPU[1024] affinity failed."));
}

}  // namespace

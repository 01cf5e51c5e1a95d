// Stops, signals and time-outs, at every phase of a session.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "common/RegisterMap.h"
#include "tests/support/SessionWorld.h"

using testing::AllOf;
using testing::EndsWith;
using testing::StartsWith;

namespace {

/// A phase begins with the first write of `value` to `index`.
struct Phase {
    const char* name;
    uint32_t index;
    uint32_t value;
    int32_t startResult;  ///< of a start that is ended there
};

void PrintTo(const Phase& phase, std::ostream* out) { *out << phase.name; }

constexpr Phase PHASES[] = {
    {"WaitingForMemory", reg::BRING_UP_START, 1, -2},
    {"LoadingTheSnapshot", reg::SNAPSHOT_CONTROL, reg::SNAPSHOT_OPEN, -2},
    {"WritingTheTables", reg::SNAPSHOT_CONTROL, reg::SNAPSHOT_CLOSED, -2},
    {"CheckingTheVersion", reg::SOFTWARE_VERSION, 0x01010133, 0},
    {"StartingTheEngines", reg::LOGICAL_START_2PS, 1, 0},
};

class EndAt : public testing::TestWithParam<Phase> {
protected:
    /// Runs `action` once, when the phase begins.
    void When(const Phase& phase, std::function<void()> action) {
        world.board.onWrite = [this, phase, action](uint32_t index, uint32_t value) {
            if (isDone || index != phase.index || value != phase.value) return;
            isDone = true;
            action();
        };
    }
    SessionWorld world;
    bool isDone = false;
};

std::string PhaseName(const testing::TestParamInfo<Phase>& phase) { return phase.param.name; }

INSTANTIATE_TEST_SUITE_P(EveryPhase, EndAt, testing::ValuesIn(PHASES), PhaseName);

TEST_P(EndAt, AStopIsObeyedAndTheSessionCleared) {
    When(GetParam(), [this] { world.api->VexaStop(); });
    EXPECT_EQ(world.Start(Delivery::Callback), GetParam().startResult);
    ASSERT_TRUE(isDone);
    EXPECT_EQ(world.Step(), -1);
    EXPECT_EQ(world.api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(world.api->m_reassembly.TouchedSessions(), 0U);
}

TEST_P(EndAt, AStopAllowsAFreshStartOfTheCallbackForm) {
    When(GetParam(), [this] { world.api->VexaStop(); });
    world.Start(Delivery::Callback);
    ASSERT_TRUE(isDone);
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), testing::IsEmpty());
}

TEST_P(EndAt, ASignalEndsTheSessionForGood) {
    When(GetParam(), [] { raise(SIGTERM); });
    EXPECT_EQ(world.Start(Delivery::Callback), GetParam().startResult);
    ASSERT_TRUE(isDone);
    EXPECT_EQ(world.Step(), -1);
    EXPECT_NE(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.Step(), -1);
}

TEST_P(EndAt, ASignalDuringARecoveryEndsTheSession) {
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(10));
    world.board.LosePackets(3);
    When(GetParam(), [] { raise(SIGINT); });
    int32_t result = 0;
    for (int step = 0; step < 5000 && result != -1; ++step) result = world.Step();
    ASSERT_TRUE(isDone);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(world.Step(), -1);
}

TEST(Ending, AStopFromTheCallbackLetsTheStepInHandFinish) {
    struct Stopping : SessionWorld {
        void OnVexaShfeMd(VexaShfeMdType&) override { api->VexaStop(); }
    } world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    int32_t result = 0;
    for (int step = 0; step < 1000 && result == 0; ++step) result = world.Step();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(world.Step(), -1);
}

TEST(Ending, ASignalEndsTheSessionsOfLaterObjectsToo) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    raise(SIGINT);
    EXPECT_EQ(world.Step(), -1);
    CVexaShfeMdApi& later = CVexaShfeMdApi::CreateVexaShfeMdApi();
    EXPECT_EQ(later.VexaRecv(), -1);
    CVexaShfeMdApi::DestroyVexaShfeMdApi(later);
}

TEST(Ending, WhatWasDroppedIsToldOnce) {
    SessionWorld world(WithFaults("reset"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    world.api->VexaStop();
    EXPECT_EQ(world.Step(), -1);
    EXPECT_EQ(world.Step(), -1);
    const std::vector<std::string> lines = world.log.Texts(LOG_INFO);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.rfind("dropped, refused", 0) == 0; }),
              1);
    EXPECT_THAT(lines.back(), AllOf(StartsWith("dropped, refused or begun again: "), EndsWith(" reset_by_peer=1")));
}

TEST(Ending, RecvStartReturnsZeroAfterAStop) {
    struct StoppingAfterTen : SessionWorld {
        void OnVexaShfeMd(VexaShfeMdType&) override {
            if (++seen == 10) api->VexaStop();
        }
        int seen = 0;
    } world;
    EXPECT_EQ(world.api->VexaRecvStart(world, world.ConfigPath().c_str()), 0);
    EXPECT_EQ(world.seen, 10);
}

TEST(TimeOuts, AreALossOutsideTheQuietWindowsAndRebuildTheSession) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(50));
    setenv("TZ", "UTC", 1);
    tzset();
    world.clock.wall = 1'777'543'200'000'000'000 + int64_t{45} * 60 * 1'000'000'000;  // 10:45
    ASSERT_TRUE(world.Receive(50));  // the last-update registers carry that time now
    world.board.RaiseEvent(0, U50Event{DMA_EVENT, sizeof(U50Event), 1U << 6, 0, 0, 0, 0, 0});
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
    EXPECT_THAT(world.DifferencesFromTruth(), testing::IsEmpty());
}

TEST(TimeOuts, AreIgnoredInAQuietWindow) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    setenv("TZ", "UTC", 1);
    tzset();
    world.clock.wall = 1'777'561'200'000'000'000 + int64_t{5} * 60 * 1'000'000'000;  // 15:05
    ASSERT_TRUE(world.Receive(50));
    world.board.RaiseEvent(0, U50Event{DMA_EVENT, sizeof(U50Event), 1U << 6, 0, 0, 0, 0, 0});
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

}  // namespace

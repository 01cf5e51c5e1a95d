// The session simulator: its seeds are clean and repeatable, and each of its rules can be broken.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "simulation/ReachTable.h"
#include "simulation/Session.h"
#include "simulation/Shrinker.h"
#include "simulation/Simulation.h"
#include "simulation/base/Edges.h"
#include "simulation/base/Settings.h"
#include "simulation/rules/IndexFile.h"
#include "simulation/rules/StartDecision.h"
#include "simulation/rules/Wanted.h"

namespace simulation {
namespace {

constexpr uint64_t SESSIONS_FOR_A_CANARY = 40;

std::string TraceOf(uint64_t seed) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
    RunSession(MakePlan(seed), ERule::None, file.get());
    std::string text(static_cast<std::size_t>(std::ftell(file.get())), '\0');
    std::rewind(file.get());
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return text;
}

TEST(Simulation, TheSameSeedGivesTheSameTraceAndAnotherAnother) {
    const std::string first = TraceOf(3);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first, TraceOf(3));
    EXPECT_NE(first, TraceOf(2));
}

class Seeds : public testing::TestWithParam<uint64_t> {};

constexpr uint64_t SEEDS_IN_A_TEST = 4;

INSTANTIATE_TEST_SUITE_P(Twelve, Seeds, testing::Range<uint64_t>(0, 3));

TEST_P(Seeds, AreClean) {
    const RunOptions options{.seed = 1 + GetParam() * SEEDS_IN_A_TEST, .sessions = SEEDS_IN_A_TEST};
    const Totals totals = RunSessions(options);
    EXPECT_EQ(totals.sessions, SEEDS_IN_A_TEST);
    EXPECT_GT(totals.updates, 0U);
    EXPECT_FALSE(totals.broken) << TellBreach(totals, options);
}

class EachCanary : public testing::TestWithParam<Rule> {};

INSTANTIATE_TEST_SUITE_P(OfEveryRule, EachCanary, testing::ValuesIn(Rules().begin(), Rules().end()),
                         [](const auto& row) { return "rule" + std::to_string(row.param.number); });

TEST_P(EachCanary, BreaksItsOwnRule) {
    const Totals totals = RunSessions({.seed = 1, .sessions = SESSIONS_FOR_A_CANARY, .canary = GetParam().rule});
    ASSERT_TRUE(totals.broken);
    EXPECT_EQ(totals.outcome.breach->rule, GetParam().rule) << totals.outcome.breach->what;
    EXPECT_FALSE(totals.outcome.lastEvents.empty());
}

TEST(Shrinking, LeavesWhatBreaksTheRuleAlone) {
    SessionPlan plan = MakePlan(10);
    ASSERT_GT(plan.faults.size(), 2U);
    ASSERT_GT(plan.steps.size(), 2U);
    plan.faults.resize(2);
    plan.steps.resize(2, plan.steps.front());
    const SessionPlan shrunk =
        Shrink(plan, ERule::Truth, ERule::Truth);  // the first record breaks it: neither fault nor step is needed
    EXPECT_TRUE(shrunk.faults.empty());
    EXPECT_TRUE(shrunk.steps.empty());
}

TEST(Breach, IsToldWithSeedCommandRuleAndPlan) {
    const RunOptions options{.seed = 2, .canary = ERule::Results};
    const std::string text = TellBreach(RunSessions(options), options);
    EXPECT_NE(text.find("broken: 20 (results)"), std::string::npos);
    EXPECT_NE(text.find("vexa-sim --seed 2 --faults all --canary 20"), std::string::npos);
    EXPECT_NE(text.find("the least that breaks it:\nfaults: none\n"), std::string::npos);
}

TEST(Faults, ThatAreNotKnownAreRefusedWithTheKnownOnes) {
    try {
        RunSessions({.faults = "rain"});
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find("--faults: unknown fault \"rain\""), std::string::npos);
    }
}

TEST(Reach, TellsEachCellThatWasMetTooSeldom) {
    Reach reach;
    reach.SetForm(EForm::Polling);
    for (int times = 0; times < 4; ++times) reach.Note("stop in start", ESessionPhase::Tables);
    const std::string holes = Holes(reach, 2000);
    EXPECT_NE(holes.find("stop in start in phase tables by polling: 4 of 5\n"), std::string::npos);
    EXPECT_NE(holes.find("stop in start in phase tables by callback: 0 of 5\n"), std::string::npos);
    EXPECT_NE(holes.find("event 3.31 in phase live by callback: 0 of 5\n"), std::string::npos);
    EXPECT_EQ(holes.find("stop in start in phase live"), std::string::npos);
    EXPECT_EQ(holes.find("stop-from-callback in phase live by polling"), std::string::npos);
    reach.Note("stop in start", ESessionPhase::Tables);
    EXPECT_EQ(Holes(reach, 2000).find("stop in start in phase tables by polling"), std::string::npos);
    EXPECT_NE(Holes(reach, 10).find("event 0.0 in phase live by callback: 0 of 1\n"), std::string::npos);
}

TEST(Edges, EveryCardIsDealtToEachPhaseAndForm) {
    std::map<std::tuple<std::string, ESessionPhase, bool>, int> dealt;
    for (uint64_t seed = 1; seed <= 2000; ++seed) {
        for (const LateDeal& deal : DealLate(seed)) {
            for (const EventCard& card : deal.cards) ++dealt[{card.name, deal.phase, IsPollingDealt(seed)}];
        }
        for (const TimeCard& card : DealTimes(seed)) ++dealt[{card.name, ESessionPhase::Live, IsPollingDealt(seed)}];
    }
    for (const bool isPolling : {false, true}) {
        for (const ESessionPhase phase :
             {ESessionPhase::Tables, ESessionPhase::Versions, ESessionPhase::Subscribing, ESessionPhase::Engines}) {
            for (const EventCard& card : AllSingles())
                EXPECT_GE((dealt[{card.name, phase, isPolling}]), 5) << card.name;
            for (const EventCard& card : AllPairs()) EXPECT_GE((dealt[{card.name, phase, isPolling}]), 5) << card.name;
        }
        for (const TimeCard& card : AllTimes()) {
            EXPECT_GE((dealt[{card.name, ESessionPhase::Live, isPolling}]), 5) << card.name;
        }
    }
}

TEST(StartDecision, LeavesABoardAloneInFlowWithoutAnEventAlone) {
    EXPECT_EQ(ChecksumOf("123456789"), 0xE3069283U);
    for (uint64_t seed = 0; seed < 40; ++seed) {
        StartDecision decision(seed);
        decision.OnStart(true, 7, true);
        uint64_t told[2][5] = {};
        for (auto& sample : told) {
            std::size_t counter = 0;
            for (const uint32_t index : {0x1220U, 0x1230U, 0x1240U, 0x1250U, 0x1207U}) {
                sample[counter++] = decision.ShownValue(index, 100 + index);
            }
        }
        EXPECT_FALSE(decision.MayLeaveAlone());  // the checksum has not been read
        decision.ShownValue(0x1001, 7);
        const bool hasFlowed = !std::equal(told[0], told[0] + 4, told[1]);
        EXPECT_EQ(decision.MayLeaveAlone(), hasFlowed && told[0][4] == told[1][4]) << decision.Shown();
        decision.ShownValue(0x1001, 8);
        EXPECT_FALSE(decision.MayLeaveAlone());
    }
}

TEST(IndexFile, IsNamedByDayAndHalfOfTheDay) {
    constexpr int64_t HOUR = 3'600'000'000'000;
    constexpr int64_t DAY = 20573 * 24 * HOUR;  // 2026-04-30
    EXPECT_EQ(IndexName(DAY + 17 * HOUR - 1), "/.shfe_20260430_am");
    EXPECT_EQ(IndexName(DAY + 17 * HOUR), "/.shfe_20260430_pm");
    EXPECT_EQ(IndexName(DAY + 24 * HOUR), "/.shfe_20260501_am");
}

TEST(Settings, MeanWhatTheirTextsSay) {
    bool hasCarried = false;
    for (uint64_t seed = 1; seed <= 300; ++seed) {
        const Settings settings = DrawSettings(seed, true);
        const std::map<std::string, std::string> lines(settings.lines.begin(), settings.lines.end());
        EXPECT_EQ(lines.size(), settings.lines.size()) << "a key comes twice, seed " << seed;
        const bool isDefault = lines.count("last_tick_channel") == 0;
        EXPECT_FALSE(isDefault);
        EXPECT_EQ(settings.lastTick, std::stoull(lines.at("last_tick_channel")) % 65536);
        EXPECT_TRUE(lines.count("SRCIP") != 0 || settings.srcIp == 0xFFFFFFFFU);
        EXPECT_TRUE(lines.count("DSTPORT") != 0 || settings.dstPort == 0U);
        hasCarried = hasCarried || (settings.srcMacLow[3] & 0xFF) < (settings.srcMacLow[0] & 0xFF);
        EXPECT_NE(settings.topics[SHFE_2PS], settings.topics[INE_2PS]);
    }
    EXPECT_TRUE(hasCarried);
}

TEST(Wanted, FollowsProductsFuturesWholeIdsAndOptions) {
    EXPECT_TRUE(IsWanted({"cu", false}, "cu2612"));
    EXPECT_FALSE(IsWanted({"cu", false}, "cu2612C79000"));
    EXPECT_TRUE(IsWanted({"cu", true}, "cu2612C79000"));
    EXPECT_TRUE(IsWanted({"al,cu2612C79000", false}, "cu2612C79000"));
    EXPECT_FALSE(IsWanted({"cu2612C", true}, "cu2612C79000"));
    EXPECT_TRUE(IsWanted({"all", false}, "sc2612"));
    EXPECT_FALSE(IsWanted({"all", false}, "sc2612TAS"));
    EXPECT_FALSE(IsWanted({"", true}, "sc2612"));
}

}  // namespace
}  // namespace simulation

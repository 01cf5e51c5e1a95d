// The session simulator: its seeds are clean and repeatable, and each of its rules can be broken.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "simulation/Session.h"
#include "simulation/Shrinker.h"
#include "simulation/Simulation.h"
#include "simulation/rules/Wanted.h"

namespace simulation {
namespace {

constexpr uint64_t SESSIONS_FOR_A_CANARY = 40;

std::string TraceOf(uint64_t seed) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
    RunSession(MakePlan(seed, {}), 0, file.get());
    std::string text(static_cast<std::size_t>(std::ftell(file.get())), '\0');
    std::rewind(file.get());
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return text;
}

TEST(Simulation, TheSameSeedGivesTheSameTrace) {
    const std::string first = TraceOf(7);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first, TraceOf(7));
}

TEST(Simulation, AnotherSeedGivesAnotherTrace) { EXPECT_NE(TraceOf(7), TraceOf(8)); }

class Seeds : public testing::TestWithParam<uint64_t> {};

constexpr uint64_t SEEDS_IN_A_TEST = 10;

INSTANTIATE_TEST_SUITE_P(Fifty, Seeds, testing::Range<uint64_t>(0, 5));

TEST_P(Seeds, AreClean) {
    const Wish wish{.seed = 1 + GetParam() * SEEDS_IN_A_TEST, .sessions = SEEDS_IN_A_TEST};
    const Totals totals = RunSessions(wish);
    EXPECT_EQ(totals.sessions, SEEDS_IN_A_TEST);
    EXPECT_GT(totals.updates, 0U);
    EXPECT_FALSE(totals.broken) << TellBreach(totals, wish);
}

class EachCanary : public testing::TestWithParam<Invariant> {};

INSTANTIATE_TEST_SUITE_P(OfEveryRule, EachCanary, testing::ValuesIn(Invariants().begin(), Invariants().end()),
                         [](const auto& rule) { return "rule" + std::to_string(rule.param.number); });

TEST_P(EachCanary, BreaksItsOwnRule) {
    const Totals totals = RunSessions({.seed = 1, .sessions = SESSIONS_FOR_A_CANARY, .canary = GetParam().number});
    ASSERT_TRUE(totals.broken);
    EXPECT_EQ(totals.outcome.breach->invariant, GetParam().number) << totals.outcome.breach->what;
    EXPECT_FALSE(totals.outcome.lastEvents.empty());
}

TEST(Shrinking, LeavesWhatBreaksTheRuleAlone) {
    Plan plan = MakePlan(3, {});
    ASSERT_FALSE(plan.faults.empty());
    const Plan shrunk = Shrink(plan, 1, 1);  // the first record breaks it: neither fault nor step is needed
    EXPECT_TRUE(shrunk.faults.empty());
    EXPECT_TRUE(shrunk.steps.empty());
}

TEST(Breach, IsToldWithSeedCommandRuleAndPlan) {
    const Wish wish{.seed = 2, .canary = 20};
    const std::string text = TellBreach(RunSessions(wish), wish);
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

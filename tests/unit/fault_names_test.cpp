#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "exchange/Faults.h"
#include "tests/support/FaultSet.h"

namespace exchange {
namespace {

using testing::HasSubstr;

Faults Parsed(std::string_view names) {
    Faults faults;
    std::string error;
    EXPECT_TRUE(ParseFaults(names, faults, error)) << error;
    return faults;
}

std::string ErrorOf(std::string_view names) {
    Faults faults = Only(EFault::Drop);
    std::string error;
    EXPECT_FALSE(ParseFaults(names, faults, error)) << names;
    EXPECT_EQ(faults, Only(EFault::Drop)) << "faults changed by " << names;
    return error;
}

TEST(FaultNamesTest, EachNameSwitchesOnItsOwnFault) {
    for (const FaultRow& row : FaultTable()) {
        EXPECT_EQ(Parsed(row.name), Only(row.kind)) << row.name;
        EXPECT_STREQ(FaultName(row.kind), row.name);
    }
    EXPECT_EQ(Parsed("reorder,crossed-book"), Only(EFault::Reorder, EFault::CrossedBook));
}

TEST(FaultNamesTest, NamesDifferAndEachHasASummary) {
    std::set<std::string> names;
    for (const FaultRow& row : FaultTable()) {
        names.insert(row.name);
        EXPECT_STRNE(row.summary, "") << row.name;
    }
    EXPECT_EQ(names.size(), FAULT_COUNT);
}

TEST(FaultNamesTest, AllMeansEveryFaultThatIsRecoveredFrom) {
    const Faults all = Parsed("all");
    for (const FaultRow& row : FaultTable()) EXPECT_EQ(all.Has(row.kind), row.isRecovered) << row.name;
    EXPECT_TRUE(all.Has(EFault::Stall) && all.Has(EFault::EventStorm) && all.Has(EFault::SequenceWrap));
    EXPECT_FALSE(all.Has(EFault::SplitAnywhere) || all.Has(EFault::OldFirmware) || all.Has(EFault::MemoryNotReady));
}

TEST(FaultNamesTest, MomentStandsBehindTheName) {
    const Faults faults = Parsed("reset@3,stall,packet-lost@0,drop@18446744073709551615");
    EXPECT_EQ(faults.MomentOf(EFault::Reset), 3U);
    EXPECT_EQ(faults.MomentOf(EFault::Stall), std::nullopt);
    EXPECT_EQ(faults.MomentOf(EFault::PacketLost), 0U);
    EXPECT_EQ(faults.MomentOf(EFault::Drop), UINT64_MAX);
}

TEST(FaultNamesTest, LaterNameReplacesTheSameOneBeforeIt) {
    EXPECT_EQ(Parsed("all,reset@3").MomentOf(EFault::Reset), 3U);
    EXPECT_EQ(Parsed("reset@3,reset"), Only(EFault::Reset));
}

TEST(FaultNamesTest, EmptyTextSwitchesAllOff) {
    Faults faults = Only(EFault::Reset);
    std::string error;
    ASSERT_TRUE(ParseFaults("", faults, error));
    EXPECT_TRUE(faults.IsEmpty());
}

TEST(FaultNamesTest, UnknownNameIsToldWithTheKnownOnes) {
    EXPECT_EQ(ErrorOf("stall,gremlin"),
              "unknown fault \"gremlin\"; known are " + FaultNames() + ", or all (without a moment)");
    for (const char* names : {"reorder,,stall", "reorder,", ",", " reorder", "Reorder", "all@1", "@1", "corrupt"}) {
        EXPECT_THAT(ErrorOf(names), HasSubstr("unknown fault \"")) << names;
    }
}

TEST(FaultNamesTest, BadMomentIsToldWithTheRightOnes) {
    for (const char* moment : {"", "0", "-1", "+1", "1x", " 1", "1.5", "18446744073709551616", "1@1"}) {
        const std::string name = std::string("reset@") + moment;
        EXPECT_EQ(ErrorOf(name), "fault \"" + name +
                                     "\": behind the @ stands the number of a snapshot connect, "
                                     "1 to 18446744073709551615");
    }
    EXPECT_EQ(ErrorOf("price-error@x"),
              "fault \"price-error@x\": behind the @ stands a number of live updates, 0 to 18446744073709551615");
}

TEST(FaultNamesTest, ListHoldsEveryNameInOrder) {
    const std::string names = FaultNames();
    EXPECT_EQ(names.rfind("reorder, duplicate, drop, corrupt-checksum, ", 0), 0U);
    EXPECT_THAT(names, HasSubstr(", packet-lost, price-error, timeout, timeout-quiet, memory-not-ready, "));
}

TEST(FaultSet, ClearForgetsTheMomentToo) {
    Faults faults;
    faults.Set(EFault::Reset, 7);
    faults.Clear(EFault::Reset);
    EXPECT_TRUE(faults.IsEmpty());
    EXPECT_EQ(faults, Faults{});
}

}  // namespace
}  // namespace exchange

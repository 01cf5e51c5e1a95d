#include "public/log/LogLimit.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "public/log/LogLine.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

constexpr int64_t SECOND = 1'000'000'000;

CCommonLog& Log() { return CCommonLog::GetInstance(); }

/// A log in a second that does not end by itself.
class LogLimit : public testing::Test {
protected:
    LogLimit() {
        clock.step = 0;
        clock.wall = 1'777'541'400 * SECOND + 123'456'789;
    }

    static void Warn(int times, const char* text = "the gap is seen again") {
        for (int i = 0; i < times; ++i) WriteLogLine(LOG_WARNING, "Gap.cpp", 77, "OnGap", "%s", text);
    }
    static void WarnElsewhere(int times) {
        for (int i = 0; i < times; ++i) WriteLogLine(LOG_ERROR, "Gap.cpp", 78, "OnGap", "elsewhere");
    }
    std::vector<std::string> Whole() const {
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : log.lines) lines.push_back(line.whole);
        return lines;
    }
    /// Lines behind the first `count`.
    std::vector<std::string> Behind(std::size_t count) const {
        const std::vector<std::string> all = Whole();
        return {all.begin() + static_cast<std::ptrdiff_t>(std::min(count, all.size())), all.end()};
    }

    ManualClock clock;
    LogCapture log;
};

TEST_F(LogLimit, TwoHundredLinesOfAPlaceAreKeptInASecond) {
    Warn(12'345);
    EXPECT_THAT(Whole(), SizeIs(200));
    EXPECT_THAT(Whole(), Each("[Gap.cpp:77][OnGap]the gap is seen again"));
}

TEST_F(LogLimit, TwoHundredLinesAreNoFlood) {
    Warn(200);
    clock.Advance(SECOND);
    Warn(1);
    EXPECT_THAT(Whole(), SizeIs(201));
    EXPECT_THAT(Whole(), Each("[Gap.cpp:77][OnGap]the gap is seen again"));
}

TEST_F(LogLimit, RestIsToldInFrontOfThePlacesNextLine) {
    Warn(1'234);
    clock.Advance(SECOND);
    Warn(1, "later");
    EXPECT_THAT(Behind(200), ElementsAre("[Gap.cpp:77][OnGap]1034 more like this", "[Gap.cpp:77][OnGap]later"));
    EXPECT_EQ(log.lines[200].level, LOG_WARNING);
}

TEST_F(LogLimit, RestIsToldWithTheNextLineOfAnyPlaceAndOnce) {
    Warn(201);
    WarnElsewhere(203);
    VEXA_LOG(LOG_INFO, "still the same second");
    clock.Advance(SECOND);
    WriteLogLine(LOG_DEBUG, "Other.cpp", 5, "Run", "next");
    Warn(1, "later");
    EXPECT_THAT(Behind(401), testing::UnorderedElementsAre("[Gap.cpp:77][OnGap]1 more like this",
                                                           "[Gap.cpp:78][OnGap]3 more like this",
                                                           "[Other.cpp:5][Run]next", "[Gap.cpp:77][OnGap]later"));
    EXPECT_EQ(log.lines[403].Text(), "next");
    EXPECT_EQ(log.Count(LOG_ERROR, "3 more like this"), 1U);
}

TEST_F(LogLimit, EverySecondOfAFloodTellsItsOwnRest) {
    for (int second = 0; second < 3; ++second) {
        Warn(500);
        clock.Advance(SECOND);
    }
    EXPECT_EQ(log.Count(LOG_WARNING, "300 more like this"), 2U);
    EXPECT_EQ(log.Count(LOG_WARNING, "the gap is seen again"), 600U);
}

TEST_F(LogLimit, OtherPlacesOfTheSameSecondAreKept) {
    Warn(1'000);
    WarnElsewhere(3);
    EXPECT_THAT(Behind(200), ElementsAre("[Gap.cpp:78][OnGap]elsewhere", "[Gap.cpp:78][OnGap]elsewhere",
                                         "[Gap.cpp:78][OnGap]elsewhere"));
}

TEST_F(LogLimit, InformationIsNeverHeldBack) {
    for (int i = 0; i < 1'000; ++i) {
        VEXA_LOG(LOG_INFO, "i");
        VEXA_LOG(LOG_DEBUG, "d");
        VEXA_LOG(LOG_DEBUG_EX, "x");
    }
    EXPECT_THAT(log.lines, SizeIs(3'000));
}

TEST_F(LogLimit, ClockThatIsSetBackHoldsNothing) {
    Warn(1'000);
    clock.wall -= 3'600 * SECOND;
    Warn(2, "an hour ago");
    EXPECT_THAT(Behind(200), ElementsAre("[Gap.cpp:77][OnGap]800 more like this", "[Gap.cpp:77][OnGap]an hour ago",
                                         "[Gap.cpp:77][OnGap]an hour ago"));
}

// The second in which lines were held back last is the one under way: of an earlier one the place itself tells.
TEST_F(LogLimit, ClockThatGoesBackAndForthTellsARestWithItsPlacesNextLine) {
    WarnElsewhere(200);
    clock.wall -= SECOND;
    Warn(203);
    clock.wall += SECOND;
    WarnElsewhere(1);
    Warn(1, "later");
    EXPECT_THAT(Behind(400), ElementsAre("[Gap.cpp:77][OnGap]3 more like this", "[Gap.cpp:77][OnGap]later"));
}

TEST_F(LogLimit, HeldLineIsNotFormatted) {
    Warn(200);
    const uint64_t before = Log().HeldBackLines();
    int formatted = 0;
    WriteLogLine(LOG_WARNING, "Gap.cpp", 77, "OnGap", "text%n", &formatted);
    EXPECT_EQ(formatted, 0);
    EXPECT_EQ(Log().HeldBackLines() - before, 1U);
}

TEST_F(LogLimit, FinishedTextsCountByThePlaceInFrontOfThem) {
    const std::string text = "[Gap.cpp:77][OnGap]from a handler";
    for (int i = 0; i < 150; ++i) Log().WriteText(LOG_WARNING, text.data(), text.size());
    for (int i = 0; i < 150; ++i) Log().WriteLog(LOG_WARNING, "[%s:%d][%s]%s", "Gap.cpp", 77, "OnGap", "whole");
    Warn(150);
    EXPECT_THAT(log.lines, SizeIs(200));
    clock.Advance(SECOND);
    VEXA_LOG(LOG_INFO, "next");
    EXPECT_EQ(log.lines[200].whole, "[Gap.cpp:77][OnGap]250 more like this");
}

TEST_F(LogLimit, TextWithoutAPlaceIsKept) {
    for (const char* text : {"no place", "[", "[]", "[Gap.cpp]x", "[Gap.cpp:]x", "[Gap.cpp:7x]x", "]["}) {
        log.lines.clear();
        for (int i = 0; i < 300; ++i) Log().WriteLog(LOG_ERROR, "%s", text);
        EXPECT_THAT(log.lines, SizeIs(300)) << text;
    }
}

TEST_F(LogLimit, PlaceLongerThanTheTableHoldsIsKept) {
    const std::string file(300, 'f');
    for (int i = 0; i < 300; ++i) WriteLogLine(LOG_ERROR, file.c_str(), 7, "Run", "x");
    EXPECT_THAT(log.lines, SizeIs(300));
}

TEST_F(LogLimit, LevelThatIsSwitchedOffTellsNothing) {
    Warn(300);
    clock.Advance(SECOND);
    Log().SetLogLevel(LOG_INFO);
    VEXA_LOG(LOG_INFO, "next");
    EXPECT_THAT(Behind(200), SizeIs(1));
}

TEST_F(LogLimit, FileHoldsWhatTheLimitLetThrough) {
    const TemporaryDirectory directory;
    setenv("TZ", "UTC", 1);
    tzset();
    Log().SetSink(nullptr);
    Log().SetLogPath(directory.Path().c_str());
    const uint64_t dropped = Log().DroppedLines();
    Warn(5'200);
    clock.Advance(SECOND);
    VEXA_LOG(LOG_INFO, "next");
    std::ifstream file(directory.Path() / "vexa_shfe_md_20260430.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    ASSERT_THAT(lines, SizeIs(202));
    EXPECT_EQ(lines[199], "2026-04-30 09:30:00.123456 [WARNING] [Gap.cpp:77][OnGap]the gap is seen again");
    EXPECT_EQ(lines[200], "2026-04-30 09:30:01.123456 [WARNING] [Gap.cpp:77][OnGap]5000 more like this");
    EXPECT_EQ(Log().DroppedLines(), dropped);
    Log().SetLogPath("");
}

std::string Text(int line) { return "[Many.cpp:" + std::to_string(line) + "][Run]x"; }

TEST(LogLimitTable, PlacesThatFindNoRoomAreNotLimited) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld before;
    int limited = 0;
    for (int line = 1; line <= 500; ++line) {
        int passed = 0;
        for (int i = 0; i < 210; ++i) passed += limit->Passes(LOG_ERROR, Text(line), 9, before) ? 1 : 0;
        ASSERT_THAT(passed, testing::AnyOf(200, 210)) << line;
        limited += passed == 200 ? 1 : 0;
    }
    EXPECT_GE(limited, 100);
    EXPECT_LT(limited, 500);
    EXPECT_EQ(limit->HeldLines(), static_cast<uint64_t>(limited) * 10);
}

TEST(LogLimitTable, EveryLineOfAFileHasAPlace) {
    LogHeld before;
    for (int line = 0; line <= 300; ++line) {
        const auto limit = std::make_unique<CLogLimit>();
        for (int i = 0; i < 200; ++i) ASSERT_TRUE(limit->Passes(LOG_ERROR, Text(line), 9, before)) << line;
        ASSERT_FALSE(limit->Passes(LOG_ERROR, Text(line), 9, before)) << line;
    }
}

TEST(LogLimitTable, PlacesOfTheSameHashAreToldApart) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld before;
    for (int i = 0; i < 300; ++i) limit->Passes(LOG_ERROR, "[Aa.cpp:7][Run]x", 9, before);
    EXPECT_TRUE(limit->Passes(LOG_ERROR, "[BB.cpp:7][Run]x", 9, before));
    EXPECT_TRUE(limit->IsUsedUp("Aa.cpp", 7));
    EXPECT_FALSE(limit->IsUsedUp("BB.cpp", 7));
    EXPECT_TRUE(limit->IsHeld(LOG_ERROR, "Aa.cpp", 7, 9));
    EXPECT_FALSE(limit->IsHeld(LOG_ERROR, "Aa.cpp", 7, 10));
    EXPECT_FALSE(limit->IsHeld(LOG_ERROR, "Aa.cpp", 7, 8));
}

/// What is told of a place that has had 203 lines like `text`.
std::string ToldHead(const std::string& text) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld held;
    for (int i = 0; i < 203; ++i) limit->Passes(LOG_WARNING, text, 9, held);
    if (!limit->TakeHeld(10, held)) return "nothing";
    EXPECT_EQ(held.level, LOG_WARNING);
    EXPECT_EQ(held.lines, 3U);
    return std::string(held.head);
}

TEST(LogLimitTable, HeadIsThePlaceWithTheFunctionWithin112Characters) {
    EXPECT_EQ(ToldHead("[Gap.cpp:7][Run]x"), "[Gap.cpp:7][Run]");
    EXPECT_EQ(ToldHead("[Gap.cpp:7][Run]"), "[Gap.cpp:7][Run]");
    EXPECT_EQ(ToldHead("[Gap.cpp:7]x[y]"), "[Gap.cpp:7]");
    EXPECT_EQ(ToldHead("[Gap.cpp:7][Run"), "[Gap.cpp:7]");
    EXPECT_EQ(ToldHead("[Gap.cpp:7]"), "[Gap.cpp:7]");
    EXPECT_EQ(ToldHead("[a:b:7][Run]x"), "[a:b:7][Run]");
    EXPECT_EQ(ToldHead("[:7][Run]x"), "[:7][Run]");
    const std::string place = "[Gap.cpp:7]";
    EXPECT_EQ(ToldHead(place + "[" + std::string(99, 'f') + "]x"), place + "[" + std::string(99, 'f') + "]");
    EXPECT_EQ(ToldHead(place + "[" + std::string(100, 'f') + "]x"), place);
    const std::string longest = "[" + std::string(108, 'f') + ":7]";
    EXPECT_EQ(ToldHead(longest + "[Run]x"), longest);
    EXPECT_EQ(ToldHead("[" + std::string(109, 'f') + ":7]"), "nothing");
    for (const char* none :
         {"", "x", "Gap.cpp:7]", "x[Gap.cpp:7]", ":7]", "[Gap.cpp:7", "[Gap.cpp;7]", "[7]", "[Gap.cpp: 7]"}) {
        EXPECT_EQ(ToldHead(none), "nothing") << none;
    }
}

TEST(LogLimitTable, Holds128PlacesWhereverTheyBegin) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld before;
    const auto file = [](int number) { return "File" + std::to_string(number) + ".cpp"; };
    const auto pass = [&](int number, int line) {
        int passed = 0;
        const std::string text = "[" + file(number) + ":" + std::to_string(line) + "][Run]x";
        for (int i = 0; i < 210; ++i) passed += limit->Passes(LOG_ERROR, text, 9, before) ? 1 : 0;
        return passed;
    };
    for (int number = 0; number < 127; ++number) ASSERT_EQ(pass(number, 1'000), 200) << number;
    EXPECT_EQ(pass(127, -3), 200);
    EXPECT_EQ(pass(128, 1'000), 210);
    EXPECT_EQ(pass(128, 1'001), 210);
    for (int number = 0; number < 127; ++number) EXPECT_TRUE(limit->IsUsedUp(file(number).c_str(), 1'000)) << number;
    EXPECT_TRUE(limit->IsUsedUp("File127.cpp", -3));
    EXPECT_FALSE(limit->IsUsedUp("File127.cpp", 1'000));
    EXPECT_FALSE(limit->IsHeld(LOG_ERROR, "File128.cpp", 1'000, 9));
    EXPECT_EQ(limit->HeldLines(), 1'280U);
}

TEST(LogLimitTable, PlaceIsUsedUpWithIts200thLineOfASecond) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld before;
    for (int i = 0; i < 199; ++i) EXPECT_TRUE(limit->Passes(LOG_ERROR, Text(7), 9, before));
    EXPECT_FALSE(limit->IsUsedUp("Many.cpp", 7));
    EXPECT_FALSE(limit->IsHeld(LOG_ERROR, "Many.cpp", 7, 9));
    EXPECT_TRUE(limit->Passes(LOG_ERROR, Text(7), 9, before));
    EXPECT_TRUE(limit->IsUsedUp("Many.cpp", 7));
    EXPECT_EQ(limit->HeldLines(), 0U);
    EXPECT_FALSE(limit->IsHolding());
    EXPECT_TRUE(limit->IsHeld(LOG_ERROR, "Many.cpp", 7, 9));
    EXPECT_TRUE(limit->IsHeld(LOG_WARNING, "Many.cpp", 7, 9));
    EXPECT_TRUE(limit->IsHolding());
    EXPECT_EQ(limit->HeldLines(), 2U);
    EXPECT_EQ(before.lines, 0U);
    EXPECT_TRUE(limit->Passes(LOG_ERROR, Text(7), 10, before));
    EXPECT_EQ(before.lines, 2U);
    EXPECT_EQ(before.level, LOG_WARNING) << "of the last one";
    EXPECT_EQ(before.head, "[Many.cpp:7][Run]");
}

TEST(LogLimitTable, WhatIsHeldIsTakenPlaceByPlaceOnceItsSecondIsOver) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld held;
    for (int i = 0; i < 201; ++i) limit->Passes(LOG_ERROR, Text(7), 9, held);
    for (int i = 0; i < 202; ++i) limit->Passes(LOG_WARNING, Text(8), 9, held);
    limit->Passes(LOG_WARNING, Text(9), 9, held);
    EXPECT_FALSE(limit->TakeHeld(9, held));
    EXPECT_TRUE(limit->TakeHeld(10, held));
    EXPECT_EQ(held.lines, 1U);
    EXPECT_EQ(held.level, LOG_ERROR);
    EXPECT_EQ(held.head, "[Many.cpp:7][Run]");
    EXPECT_TRUE(limit->IsHolding());
    EXPECT_TRUE(limit->TakeHeld(10, held));
    EXPECT_EQ(held.lines, 2U);
    EXPECT_EQ(held.level, LOG_WARNING);
    EXPECT_EQ(held.head, "[Many.cpp:8][Run]");
    EXPECT_FALSE(limit->TakeHeld(10, held));
    EXPECT_FALSE(limit->IsHolding());
    for (int i = 0; i < 201; ++i) EXPECT_EQ(limit->Passes(LOG_ERROR, Text(7), 10, held), i < 200);
    EXPECT_TRUE(limit->TakeHeld(9, held)) << "of another second, be it later";
    EXPECT_EQ(held.lines, 1U);
}

TEST(LogLimitTable, HeldOfALaterSecondKeepsTheEarlierOnesWaiting) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld held;
    for (int i = 0; i < 203; ++i) limit->Passes(LOG_ERROR, Text(7), 9, held);
    for (int i = 0; i < 204; ++i) limit->Passes(LOG_ERROR, Text(8), 10, held);
    EXPECT_TRUE(limit->TakeHeld(11, held));
    EXPECT_EQ(held.lines, 3U);
    EXPECT_TRUE(limit->TakeHeld(11, held));
    EXPECT_EQ(held.lines, 4U);
    EXPECT_FALSE(limit->TakeHeld(11, held));
}

TEST(LogLimitTable, WhatIsForgottenIsNotTold) {
    const auto limit = std::make_unique<CLogLimit>();
    LogHeld held;
    for (int i = 0; i < 205; ++i) limit->Passes(LOG_ERROR, Text(7), 9, held);
    limit->Forget();
    EXPECT_FALSE(limit->IsHolding());
    EXPECT_FALSE(limit->TakeHeld(10, held));
    EXPECT_FALSE(limit->IsUsedUp("Many.cpp", 7));
    for (int i = 0; i < 201; ++i) EXPECT_EQ(limit->Passes(LOG_ERROR, Text(7), 9, held), i < 200);
    EXPECT_EQ(held.lines, 0U);
    EXPECT_EQ(limit->HeldLines(), 6U);
    limit->Forget();
    for (int i = 0; i < 201; ++i) EXPECT_EQ(limit->Passes(LOG_ERROR, Text(7), 0, held), i < 200) << "of the epoch";
}

TEST(LogLimitTable, EveryLineOfManyThreadsIsKeptOrTold) {
    constexpr int THREADS = 4;
    constexpr int LINES = 20'000;
    const auto limit = std::make_unique<CLogLimit>();
    std::atomic<uint64_t> passed{0};
    std::atomic<uint64_t> told{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < LINES; ++i) {
                const int64_t second = 1 + i / 1'000;
                LogHeld held;
                while (limit->TakeHeld(second, held)) told += held.lines;
                held.lines = 0;
                passed += limit->Passes(LOG_ERROR, Text(i % 2), second, held) ? 1U : 0U;
                told += held.lines;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    LogHeld held;
    while (limit->TakeHeld(1'000, held)) told += held.lines;
    EXPECT_EQ(passed + told, uint64_t{THREADS} * LINES);
    EXPECT_EQ(told, limit->HeldLines());
}

}  // namespace

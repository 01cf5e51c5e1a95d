// A signal at any point of a log line, or of the count of its place: the processor's single-step trap delivers one
// between every two instructions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ucontext.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "public/log/LogLine.h"
#include "public/signal/SignalProcess.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"

namespace {

constexpr greg_t TRAP_FLAG = 0x100;
constexpr const char* OUTER_TEXT = "an interrupted line, number 42, text abc";

bool g_isStepping = false;
uint64_t g_steps = 0;
uint64_t g_firstStep = 1;
uint64_t g_lastStep = UINT64_MAX;
void (*g_onStep)() = nullptr;

void DeliverInterrupt() { CSignalProcess::SignalHandler(SIGINT, nullptr, nullptr); }

/// raise(SIGTRAP) switches stepping; traps in between, from the first to the last wanted, call g_onStep.
void OnTrap(int, siginfo_t* info, void* context) {
    auto& flags = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL];
    if (info->si_code == SI_TKILL) {
        g_isStepping = !g_isStepping;
        flags = g_isStepping ? flags | TRAP_FLAG : flags & ~TRAP_FLAG;
    } else if (g_isStepping) {
        ++g_steps;
        if (g_steps >= g_firstStep && g_steps <= g_lastStep) g_onStep();
    }
}

class LogInterruption : public testing::Test {
protected:
    LogInterruption() {
        g_onStep = DeliverInterrupt;
        g_firstStep = 1;
        g_lastStep = UINT64_MAX;
        clock.step = 10'000'000;  // no place has more than a hundred lines a second
        CCommonLog::GetInstance().SetLogPath("");
        VEXA_LOG(LOG_INFO, "the log is standard error");
        CCommonLog::GetInstance().SetLogPath((directory.Path().string() + "/").c_str());
        struct sigaction action {};
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = OnTrap;
        sigaction(SIGTRAP, &action, &before);
    }
    ~LogInterruption() override {
        sigaction(SIGTRAP, &before, nullptr);
        CCommonLog::GetInstance().SetLogPath("");
        CSignalProcess::m_isExit = false;
    }

    static void WriteInterruptedLine(ELOGLEVEL level = LOG_INFO) {
        g_steps = 0;
        raise(SIGTRAP);
        VEXA_LOG(level, "an interrupted line, number %d, text %s", 42, "abc");
        raise(SIGTRAP);
    }

    std::vector<std::string> LinesOfTheFile() const {
        std::vector<std::string> lines;
        for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) lines.push_back(line);
        }
        return lines;
    }

    /// "N more like this" where the line ends so.
    static std::string MoreLike(const std::string& line) {
        const bool isMore = line.ends_with(" more like this");
        return isMore ? line.substr(line.rfind(']') + 1) : "none";
    }

    struct Counts {
        uint64_t outer = 0;
        uint64_t handlers = 0;
        uint64_t told = 0;  ///< handlers' lines that were held back
        std::vector<std::string> broken;
    };

    static Counts Sort(const std::vector<std::string>& lines) {
        Counts counts;
        for (const std::string& line : lines) {
            const bool hasHead = line.starts_with("2026-");
            const bool isOuter = line.find(" [INFO] [log_inter") != std::string::npos ||
                                 line.find(" [WARNING] [log_inter") != std::string::npos;
            if (hasHead && isOuter && line.ends_with(OUTER_TEXT)) {
                ++counts.outer;
            } else if (hasHead && line.find(" [ERROR] [SignalProcess.h:") != std::string::npos &&
                       line.ends_with("]received signal 2")) {
                ++counts.handlers;
            } else if (hasHead && line.find(" [ERROR] [SignalProcess.h:") != std::string::npos &&
                       line.ends_with("][SignalHandler]" + MoreLike(line))) {
                counts.told += std::stoull(MoreLike(line));
            } else {
                counts.broken.push_back(line);
            }
        }
        return counts;
    }

    ManualClock clock;
    TemporaryDirectory directory;
    struct sigaction before {};
};

TEST_F(LogInterruption, SignalAtAnyInstructionOfALineLeavesEveryLineWhole) {
    VEXA_LOG(LOG_INFO, "%s", OUTER_TEXT);  // opens the file
    WriteInterruptedLine();
    ASSERT_GT(g_steps, 500U);
    const Counts counts = Sort(LinesOfTheFile());
    EXPECT_EQ(counts.outer, 2U);
    EXPECT_EQ(counts.handlers, g_steps);
    EXPECT_THAT(counts.broken, testing::IsEmpty());
    EXPECT_TRUE(CSignalProcess::m_isExit);
}

TEST_F(LogInterruption, SignalAtAnyInstructionOfTheOpeningOfTheFileLosesNoLine) {
    testing::internal::CaptureStderr();
    WriteInterruptedLine();
    // Until the new file is open a handler writes to the one before, here standard error.
    std::istringstream said(testing::internal::GetCapturedStderr());
    std::vector<std::string> lines = LinesOfTheFile();
    for (std::string line; std::getline(said, line);) lines.push_back(line);
    const Counts counts = Sort(lines);
    EXPECT_EQ(counts.outer, 1U);
    EXPECT_EQ(counts.handlers, g_steps);
    EXPECT_THAT(counts.broken, testing::IsEmpty());
}

TEST_F(LogInterruption, SignalAtAnyInstructionOfAFloodIsKeptOrCounted) {
    VEXA_LOG(LOG_INFO, "%s", OUTER_TEXT);  // opens the file
    clock.step = 0;
    uint64_t steps = 0;
    for (int second = 0; second < 3; ++second) {
        WriteInterruptedLine(LOG_WARNING);
        steps += g_steps;
        clock.Advance(1'000'000'000);
    }
    VEXA_LOG(LOG_INFO, "%s", OUTER_TEXT);  // tells the rest
    const Counts counts = Sort(LinesOfTheFile());
    EXPECT_EQ(counts.outer, 5U);
    EXPECT_EQ(counts.handlers, 600U);
    EXPECT_EQ(counts.handlers + counts.told, steps);
    EXPECT_THAT(counts.broken, testing::IsEmpty());
}

// ---- the count of a place -------------------------------------------------------------------------------------------

std::unique_ptr<CLogLimit> g_limit;
int64_t g_second = 0;
uint64_t g_lines = 0;
uint64_t g_passed = 0;
uint64_t g_told = 0;

void CountALine() {
    LogHeld earlier;
    ++g_lines;
    g_passed += g_limit->Passes(LOG_ERROR, "[Gap.cpp:77][Run]x", g_second, earlier) ? 1U : 0U;
    g_told += earlier.lines;
}

void HoldALine() { g_lines += g_limit->IsHeld(LOG_ERROR, "Gap.cpp", 77, g_second) ? 1U : 0U; }

bool TellALine() {
    LogHeld held;
    const bool hasMore = g_limit->TakeHeld(g_second, held);
    g_told += held.lines;
    return hasMore;
}

class LimitInterruption : public LogInterruption {
protected:
    LimitInterruption() {
        g_limit = std::make_unique<CLogLimit>();
        g_second = 9;
        g_lines = g_passed = g_told = 0;
    }
    ~LimitInterruption() override { g_limit.reset(); }

    /// `step` between every two instructions of `body`; by parts, since it may try until it is left alone.
    template <typename Body>
    static void Interrupt(void (*step)(), const Body& body) {
        g_onStep = step;
        for (g_firstStep = 1, g_steps = 1; g_steps >= g_firstStep; g_firstStep += 500) {
            g_lastStep = g_firstStep + 499;
            g_steps = 0;
            raise(SIGTRAP);
            body();
            raise(SIGTRAP);
        }
        EXPECT_GT(g_steps, 20U);
    }
    static void TellAll() {
        ++g_second;
        while (TellALine()) {
        }
    }
};

TEST_F(LimitInterruption, EveryLineIsCountedOnce) {
    CountALine();
    for (int i = 0; i < 4; ++i) Interrupt(CountALine, CountALine);
    EXPECT_GT(g_lines, 300U);
    EXPECT_EQ(g_passed, 200U);
    EXPECT_EQ(g_limit->HeldLines(), g_lines - 200);
    TellAll();
    EXPECT_EQ(g_told, g_lines - 200);
}

TEST_F(LimitInterruption, PlaceThatIsBeingTakenLosesNoLine) {
    Interrupt(CountALine, CountALine);
    while (g_lines < 1'000) CountALine();
    EXPECT_THAT(g_passed, testing::AllOf(testing::Ge(200U), testing::Le(400U)));
    TellAll();
    EXPECT_EQ(g_passed + g_told, g_lines);
    EXPECT_EQ(g_limit->HeldLines(), g_told);
}

TEST_F(LimitInterruption, EveryHeldLineIsCountedOnce) {
    for (int i = 0; i < 200; ++i) CountALine();
    g_lines = 0;
    for (int i = 0; i < 3; ++i) Interrupt(HoldALine, HoldALine);
    EXPECT_GT(g_lines, 60U);
    EXPECT_EQ(g_limit->HeldLines(), g_lines);
    TellAll();
    EXPECT_EQ(g_told, g_lines);
}

// The handler's lines are of the second under way, or it tells what the interrupted one is about to tell.
TEST_F(LimitInterruption, WhatIsHeldIsToldOnce) {
    for (void (*const step)() : {CountALine, +[] { TellALine(); }}) {
        for (int i = 0; i < 300; ++i) CountALine();
        ++g_second;
        Interrupt(step, TellALine);
        Interrupt(step, TellALine);
        TellAll();
        EXPECT_EQ(g_told, g_limit->HeldLines());
        EXPECT_EQ(g_passed + g_told, g_lines);
        ++g_second;
    }
}

TEST_F(LimitInterruption, SecondThatBeginsBeginsOnce) {
    for (int i = 0; i < 300; ++i) CountALine();
    ++g_second;
    const uint64_t passedBefore = g_passed;
    Interrupt(CountALine, CountALine);
    while (g_lines < 1'000) CountALine();
    EXPECT_EQ(g_passed - passedBefore, 200U);
    TellAll();
    EXPECT_EQ(g_told, g_limit->HeldLines());
}

}  // namespace

// One board, many real processes: what each received is held against the exchange's truth.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "exchange/Faults.h"
#include "software_board/SharedMemory.h"
#include "tests/process/ServedWorld.h"

using software_board::Load;
using testing::HasSubstr;

namespace {

class ServedBoard : public testing::Test, protected ServedWorld {
protected:
    ServedBoard() : ServedWorld(static_cast<uint16_t>(10'000 + getpid() % 50'000)) {}  // tests run beside each other
    ~ServedBoard() override {
        if (HasFailure()) TellWhatTheProcessesSaid();
    }

    void Serve(const std::string& rate = "100", const std::string& instruments = "120") {
        ASSERT_TRUE(ServedWorld::Serve(rate, instruments)) << server->Output();
    }
    Reader& Start(int channel, const std::string& slowness = "0") {
        return readers.emplace_back(RunReader(channel, slowness));
    }

    static std::size_t CountOf(const Reader& reader) { return reader.Count(); }
    static bool HasMore(const Reader& reader, std::size_t than) {
        return WaitUntil([&] { return CountOf(reader) > than; });
    }
    bool WaitForUpdates(uint64_t count) const {
        return WaitUntil([&] { return Updates() >= count; });
    }

    static void ExpectTheTruth(const Reader& reader, const Truth& truth) {
        const Verdict verdict = Judge(reader, truth);
        EXPECT_GT(CountOf(reader), 0U) << reader.records;
        EXPECT_EQ(verdict.wrong, 0U) << reader.records;
        EXPECT_EQ(verdict.back, 0U) << reader.records;
        EXPECT_EQ(verdict.gaps, 0U) << reader.records;
    }

    static void End(const Reader& reader) {
        reader.process->Signal(SIGINT);
        EXPECT_EQ(reader.process->Wait(), 0) << reader.process->Output();
    }

    std::deque<Reader> readers;
};

TEST_F(ServedBoard, TwoApplicationsReceiveTheTruth) {
    Serve();
    Reader& manager = Start(0);
    Reader& other = Start(1);
    ASSERT_TRUE(HasMore(manager, 100));
    ASSERT_TRUE(HasMore(other, 20));
    End(manager);
    End(other);
    const Truth truth = TruthUpTo(Updates());
    ExpectTheTruth(manager, truth);
    ExpectTheTruth(other, truth);
}

TEST_F(ServedBoard, EndsOnASignalAndRemovesWhatItMade) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Serve();
        EXPECT_TRUE(std::filesystem::exists(software_board::SharedBoardPath(bus)));
        server->Signal(signal);
        EXPECT_EQ(server->Wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(software_board::SharedBoardPath(bus)));
    }
}

TEST_F(ServedBoard, SecondServerIsRefusedAndToldWhoServes) {
    Serve();
    const auto second = RunBoard({"serve"}, "second.out");
    EXPECT_EQ(second->Wait(), 1);
    EXPECT_THAT(second->Output(), HasSubstr("is being served by process " + std::to_string(server->Pid())));
    EXPECT_TRUE(software_board::IsAlive(board->server));
}

TEST_F(ServedBoard, WhatACrashedServerLeftIsReplaced) {
    Serve();
    server->Signal(SIGKILL);
    server->Wait();
    ASSERT_TRUE(std::filesystem::exists(software_board::SharedBoardPath(bus)));
    const auto status = RunBoard({"status"}, "status.out");
    EXPECT_EQ(status->Wait(), 1);
    EXPECT_THAT(status->Output(), HasSubstr("no board is served on bus"));
    Serve();
    Reader& manager = Start(0);
    EXPECT_TRUE(HasMore(manager, 10));
}

TEST_F(ServedBoard, HeldChannelIsRefusedWithItsHolder) {
    Serve();
    Reader& manager = Start(0);
    ASSERT_TRUE(HasMore(manager, 10));
    Reader& second = Start(0);
    EXPECT_EQ(second.process->Wait(), 1);
    EXPECT_THAT(Log(0), HasSubstr("the stream CUSTOM_CHAN0_DATA of bus " + std::to_string(bus) +
                                  " cannot be opened (-1): channel 0 of bus " + std::to_string(bus) +
                                  " is held by process " + std::to_string(manager.process->Pid())));
    EXPECT_EQ(BringUps(), 1U);
}

TEST_F(ServedBoard, KilledReaderHarmsNobodyAndItsChannelIsTakenOver) {
    Serve();
    Reader& manager = Start(0);
    Reader& killed = Start(1);
    ASSERT_TRUE(HasMore(killed, 10));
    killed.process->Signal(SIGKILL);
    killed.process->Wait();
    ASSERT_TRUE(HasMore(manager, CountOf(manager) + 200));
    Reader& heir = Start(1);
    ASSERT_TRUE(HasMore(heir, 20));
    End(heir);
    End(manager);
    const Truth truth = TruthUpTo(Updates());
    for (const Reader* reader : {&manager, &killed, &heir}) ExpectTheTruth(*reader, truth);
}

TEST_F(ServedBoard, RestartedManagerWithTheSameFileLeavesTheBoardAlone) {
    Serve();
    Reader& manager = Start(0);
    Reader& other = Start(1);
    ASSERT_TRUE(HasMore(other, 20));
    manager.process->Signal(SIGKILL);
    manager.process->Wait();
    Reader& restarted = Start(0);
    ASSERT_TRUE(HasMore(restarted, 50));
    EXPECT_EQ(BringUps(), 1U);
    EXPECT_THAT(Log(0), HasSubstr("no changes have occurred, no initialization required"));
    End(other);
    End(restarted);
    const Truth truth = TruthUpTo(Updates());
    ExpectTheTruth(other, truth);  // no gap: it did not notice
    ExpectTheTruth(restarted, truth);
}

TEST_F(ServedBoard, ChangedCommentMakesAFullStartUp) {
    Serve();
    Reader& manager = Start(0);
    ASSERT_TRUE(HasMore(manager, 20));
    End(manager);
    WriteConfig("edited");
    Reader& restarted = Start(0);
    ASSERT_TRUE(HasMore(restarted, 20));
    EXPECT_EQ(BringUps(), 2U);
}

TEST_F(ServedBoard, LossIsRecoveredWhileReadersRun) {
    Serve();
    Reader& manager = Start(0);
    Reader& other = Start(1);
    ASSERT_TRUE(HasMore(manager, 100));
    const auto inject = RunBoard({"inject", "packet-lost"}, "inject.out");
    EXPECT_EQ(inject->Wait(), 0) << inject->Output();
    ASSERT_TRUE(WaitUntil([&] { return BringUps() == 2 && IsLive(); }));
    ASSERT_TRUE(HasMore(manager, CountOf(manager) + 100));
    ASSERT_TRUE(HasMore(other, CountOf(other) + 20));
    End(manager);
    End(other);
    const Truth truth = TruthUpTo(Updates());
    for (const Reader* reader : {&manager, &other}) {
        const Verdict verdict = Judge(*reader, truth);
        EXPECT_EQ(verdict.wrong, 0U);
        EXPECT_EQ(verdict.back, 0U);
    }
}

TEST_F(ServedBoard, KilledBoardThatIsServedAnewIsTakenUpByBoth) {
    Serve();
    Reader& manager = Start(0);
    Reader& other = Start(1);
    ASSERT_TRUE(HasMore(other, 20));
    server->Signal(SIGKILL);
    server->Wait();
    Serve();
    ASSERT_TRUE(WaitUntil([&] { return IsLive(); })) << Log(0);
    ASSERT_TRUE(HasMore(manager, CountOf(manager) + 100));
    ASSERT_TRUE(HasMore(other, CountOf(other) + 20));
    EXPECT_EQ(BringUps(), 1U);
}

TEST_F(ServedBoard, FaultsAreClearedAndTheStartThatTheyRefusedSucceeds) {
    Serve();
    const auto inject = RunBoard({"inject", "stream-open-fails,packet-lost@5"}, "inject.out");
    ASSERT_EQ(inject->Wait(), 0) << inject->Output();
    Reader& refused = Start(0);
    EXPECT_EQ(refused.process->Wait(), 1);
    const auto clear = RunBoard({"inject", "--clear"}, "clear.out");
    EXPECT_EQ(clear->Wait(), 0);
    EXPECT_EQ(clear->Output(), "all faults cleared\n");
    Reader& manager = Start(0);
    ASSERT_TRUE(HasMore(manager, 100));
    EXPECT_EQ(BringUps(), 1U);
}

TEST_F(ServedBoard, UnknownFaultIsToldWithAllThatAreKnown) {
    Serve();
    const auto inject = RunBoard({"inject", "reset,gremlin@3"}, "inject.out");
    EXPECT_EQ(inject->Wait(), 2);
    EXPECT_THAT(inject->Output(), HasSubstr("unknown fault \"gremlin@3\"; known are " + exchange::FaultNames() +
                                            ", or all (without a moment)"));
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"inject"}, std::vector<std::string>{"inject", "--clear", "reset"}}) {
        const auto refused = RunBoard(wrong, "refused" + std::to_string(wrong.size()) + ".out");
        EXPECT_EQ(refused->Wait(), 2);
        EXPECT_EQ(refused->Output(),
                  "vexa-board: inject needs either a FAULT or --clear; see vexa-board inject --help\n");
    }
}

TEST_F(ServedBoard, SlowReaderOverflowsItsOwnRingAlone) {
    Serve("20000");
    Reader& manager = Start(0, "20000");
    Reader& other = Start(2);
    const auto dropped = [&](int channel) { return Load(board->memory.channels[channel].dropped); };
    ASSERT_TRUE(WaitUntil([&] { return dropped(0) > 0; }));
    ASSERT_TRUE(HasMore(other, 20));
    EXPECT_EQ(dropped(2), 0U);
    // Told once there is room again: the manager takes it for the loss it is.
    EXPECT_TRUE(WaitUntil([&] { return BringUps() >= 2; }));
    manager.process->Signal(SIGKILL);
}

TEST_F(ServedBoard, SixteenProcessesReceiveWithoutALoss) {
    Serve();
    for (int channel = 0; channel < CHANNEL_SIZE; ++channel) Start(channel);
    ASSERT_TRUE(WaitUntil([&] { return IsLive(); }));
    ASSERT_TRUE(WaitForUpdates(Updates() + 4000));
    for (Reader& reader : readers) End(reader);
    const Truth truth = TruthUpTo(Updates());
    for (const Reader& reader : readers) ExpectTheTruth(reader, truth);
    EXPECT_EQ(Load(board->memory.statistics.overruns), 0U);
    EXPECT_EQ(BringUps(), 1U);
}

}  // namespace

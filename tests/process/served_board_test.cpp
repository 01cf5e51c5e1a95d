// One board, many real processes: what each received is held against the exchange's truth.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "exchange/Exchange.h"
#include "software_board/SharedMemory.h"
#include "src/RegisterMap.h"
#include "tests/support/ChildProcess.h"

using software_board::Load;
using testing::HasSubstr;

namespace {

constexpr uint64_t SEED = 7;
constexpr uint32_t MAX_INST_NO[] = {81000, 81101, 85000, 85101};

/// A reader process and the file of what it received.
struct Reader {
    std::unique_ptr<ChildProcess> process;
    std::string records;
};

class ServedBoard : public testing::Test {
protected:
    ServedBoard() {
        std::string name = (std::filesystem::temp_directory_path() / "vexa-served-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        directory = name;
        bus = static_cast<uint16_t>(10'000 + getpid() % 50'000);  // tests run beside each other
        WriteConfig("");
    }
    ~ServedBoard() override {
        if (HasFailure()) TellWhatTheProcessesSaid();
        readers.clear();
        server.reset();
        std::filesystem::remove(software_board::SharedBoardPath(bus));
        std::filesystem::remove_all(directory);
    }

    void TellWhatTheProcessesSaid() const {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            const std::string name = entry.path().filename().string();
            if (name.find("_records") != std::string::npos || entry.path().extension() == ".ini") continue;
            std::cout << "---- " << name << "\n" << std::ifstream(entry.path()).rdbuf() << "\n";
        }
    }

    std::string Path(const std::string& name) const { return (directory / name).string(); }

    /// One file for all channels, as on one machine; the channel stands in the device key.
    void WriteConfig(const std::string& comment) {
        for (int channel = 0; channel < CHANNEL_SIZE; ++channel) {
            std::ofstream file(Path("channel" + std::to_string(channel) + ".ini"));
            file << "; " << comment << "\n[config]\nlog_path=" << Path("channel" + std::to_string(channel) + "_")
                 << "\nlog_level=7\ndevice=xilinx" << bus << ":" << channel
                 << "\nshfe2ps=enabled\nine2ps=enabled\nSRCIP=10.20.0.2\ncrc_mux_check=1\n";
            static constexpr const char* LISTS[] = {"all", "cu,al", "sc", "zn", "ru,rb,sc"};
            for (int listed = 0; listed < CHANNEL_SIZE; ++listed) {
                file << "[channel" << listed << "]\ninsts=" << LISTS[listed % 5]
                     << "\noptions=" << (listed % 2 == 0 ? "recv" : "norecv") << "\n";
            }
        }
    }

    std::vector<std::string> Environment() const {
        return {"LD_PRELOAD=" SCALED_CLOCK, "VEXA_BOARD_PROVIDER=software:shared"};
    }

    std::unique_ptr<ChildProcess> RunBoard(std::vector<std::string> arguments, const std::string& output) const {
        arguments.insert(arguments.begin(), BOARD_TOOL);
        arguments.insert(arguments.end(), {"--bus", std::to_string(bus)});
        return std::make_unique<ChildProcess>(arguments, Environment(), Path(output));
    }

    /// `rate` is in updates a second of the fast clock.
    void Serve(const std::string& rate = "100", const std::string& instruments = "120") {
        server = RunBoard({"serve", "--seed", std::to_string(SEED), "--instruments", instruments, "--rate", rate},
                          "serve.out");
        std::string error;
        ASSERT_TRUE(WaitUntil([&] { return board.Attach(bus, true, error); })) << error << server->Output();
    }

    Reader& Start(int channel, const std::string& slowness = "0") {
        const std::string name = "channel" + std::to_string(channel);
        Reader& reader = readers.emplace_back();
        reader.records = Path(name + "_records" + std::to_string(readers.size()));
        reader.process = std::make_unique<ChildProcess>(
            std::vector<std::string>{READER, Path(name + ".ini"), reader.records, slowness}, Environment(),
            Path(name + ".out"));
        return reader;
    }

    std::string Log(int channel) const {
        std::string text;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            const std::string name = entry.path().filename().string();
            if (name.rfind("channel" + std::to_string(channel) + "_vexa", 0) != 0) continue;
            std::ifstream file(entry.path());
            text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        }
        return text;
    }

    bool IsLive() const {
        return Load(board->memory.registers.phase) == static_cast<uint32_t>(software_board::EPhase::Live);
    }
    uint64_t BringUps() const { return Load(board->memory.statistics.bringUps); }
    uint64_t Updates() const { return Load(board->memory.statistics.liveUpdates); }

    static std::size_t CountOf(const Reader& reader) {
        std::error_code none;
        const auto bytes = std::filesystem::file_size(reader.records, none);
        return none ? 0 : bytes / sizeof(VexaShfeMdType);
    }
    static bool HasMore(const Reader& reader, std::size_t than) {
        return WaitUntil([&] { return CountOf(reader) > than; });
    }
    bool WaitForUpdates(uint64_t count) const {
        return WaitUntil([&] { return Updates() >= count; });
    }

    static std::vector<VexaShfeMdType> RecordsOf(const Reader& reader) {
        std::ifstream file(reader.records, std::ios::binary);
        std::vector<VexaShfeMdType> records(CountOf(reader));
        file.read(reinterpret_cast<char*>(records.data()),
                  static_cast<std::streamsize>(records.size() * sizeof(VexaShfeMdType)));
        return records;
    }

    /// What the exchange says after each of its first moves, by instrument and change number.
    using Truth = std::map<std::pair<std::string, uint32_t>, VexaShfeMdType>;
    Truth TruthUpTo(uint64_t updates) const {
        exchange::ExchangeOptions options;
        options.seed = SEED;
        options.shfeInstruments = static_cast<int32_t>(board->instruments[SHFE_2PS]);
        options.ineInstruments = static_cast<int32_t>(board->instruments[INE_2PS]);
        exchange::Exchange market(options);
        Truth truth;
        for (uint64_t i = 0; i < updates; ++i) {
            const exchange::LiveUpdate update = market.Next();
            VexaShfeMdType record = market.Truth(update.feed, update.instNo);
            record.max_inst_no = MAX_INST_NO[update.feed];
            truth.emplace(std::make_pair(std::string(record.inst_id), record.change_no), record);
        }
        return truth;
    }

    /// How a reader's records stand to the truth.
    struct Verdict {
        std::size_t wrong = 0;  ///< no such state of the exchange, or not its bytes
        std::size_t back = 0;   ///< told again, or older than one before
        std::size_t gaps = 0;   ///< changes of an instrument left out between two
    };
    Verdict Judge(const Reader& reader, const Truth& truth) const {
        Verdict verdict;
        std::map<std::string, uint32_t> last;
        for (const VexaShfeMdType& record : RecordsOf(reader)) {
            const auto found = truth.find({record.inst_id, record.change_no});
            if (found == truth.end() || std::memcmp(&found->second, &record, sizeof record) != 0) ++verdict.wrong;
            uint32_t& before = last[record.inst_id];
            if (before != 0 && record.change_no <= before) ++verdict.back;
            if (before != 0 && record.change_no > before + 1) ++verdict.gaps;
            before = record.change_no;
        }
        return verdict;
    }
    void ExpectTheTruth(const Reader& reader, const Truth& truth) const {
        const Verdict verdict = Judge(reader, truth);
        EXPECT_GT(CountOf(reader), 0U) << reader.records;
        EXPECT_EQ(verdict.wrong, 0U) << reader.records;
        EXPECT_EQ(verdict.back, 0U) << reader.records;
        EXPECT_EQ(verdict.gaps, 0U) << reader.records;
    }

    void End(Reader& reader) {
        reader.process->Signal(SIGINT);
        EXPECT_EQ(reader.process->Wait(), 0) << reader.process->Output();
    }

    std::filesystem::path directory;
    uint16_t bus = 0;
    std::unique_ptr<ChildProcess> server;
    software_board::SharedMapping board;
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
    EXPECT_THAT(second.process->Output(), HasSubstr("is held by process " + std::to_string(manager.process->Pid())));
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
    EXPECT_EQ(inject->Wait(), 1);
    EXPECT_EQ(inject->Output(), "vexa-board: unknown fault \"gremlin@3\"; known are " + exchange::FaultNames() +
                                    ", or all (without a moment)\n");
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"inject"}, std::vector<std::string>{"inject", "--clear", "reset"}}) {
        const auto refused = RunBoard(wrong, "refused.out");
        EXPECT_EQ(refused->Wait(), 1);
        EXPECT_THAT(refused->Output(), HasSubstr("inject needs either a FAULT or --clear"));
    }
}

TEST_F(ServedBoard, SlowReaderOverflowsItsOwnRingAlone) {
    Serve("20000");
    Reader& manager = Start(0, "20000");
    Reader& other = Start(2);
    const auto dropped = [&](int channel) { return Load(board->memory.channels[channel].dropped); };
    ASSERT_TRUE(WaitUntil([&] { return dropped(0) > 0; }, 40));
    ASSERT_TRUE(HasMore(other, 20));
    EXPECT_EQ(dropped(2), 0U);
    // Told once there is room again: the manager takes it for the loss it is.
    EXPECT_TRUE(WaitUntil([&] { return BringUps() >= 2; }, 60));
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

#include "software_board/SharedMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "common/RegisterMap.h"
#include "software_board/BoardServer.h"
#include "software_board/SharedClient.h"

namespace software_board {
namespace {

using testing::HasSubstr;

class SharedBoardMemory : public testing::Test {
protected:
    SharedBoardMemory() { std::filesystem::remove(path); }
    ~SharedBoardMemory() override { std::filesystem::remove(path); }

    uint16_t bus = static_cast<uint16_t>(2000 + getpid() % 8000);
    std::string path = SharedBoardPath(bus);
    SharedMapping server;
    SharedMapping client;
    std::string error;
};

TEST_F(SharedBoardMemory, IsOwnerOnlyAndGoesWithItsServer) {
    ASSERT_TRUE(server.Create(bus, error)) << error;
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    EXPECT_EQ(static_cast<std::size_t>(status.st_size), sizeof(SharedBoard));
    server.Close();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SharedBoardMemory, DoesNotTakeItsNameFromTheNextOne) {
    ASSERT_TRUE(server.Create(bus, error)) << error;
    std::filesystem::remove(path);
    SharedMapping next;
    ASSERT_TRUE(next.Create(bus, error)) << error;
    server.Close();
    EXPECT_TRUE(std::filesystem::exists(path));
    next.Close();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SharedBoardMemory, CannotBeAttachedToBeforeItIsWhole) {
    EXPECT_FALSE(client.Attach(bus, false, error));
    EXPECT_THAT(error, HasSubstr("start one with: vexa-board serve --bus"));
    ASSERT_TRUE(server.Create(bus, error)) << error;
    server->ringLines = RING_LINES;
    EXPECT_FALSE(client.Attach(bus, false, error));
    server.Publish();
    EXPECT_TRUE(client.Attach(bus, false, error)) << error;
}

TEST_F(SharedBoardMemory, IsSeenByBothSides) {
    ASSERT_TRUE(server.Create(bus, error)) << error;
    server->ringLines = RING_LINES;
    server.Publish();
    ASSERT_TRUE(client.Attach(bus, false, error)) << error;
    Store(client->memory.registers.values[7], 42U);
    EXPECT_EQ(Load(server->memory.registers.values[7]), 42U);
}

TEST_F(SharedBoardMemory, LinkDirectoryAndFifoAreRefused) {
    std::filesystem::create_symlink("/nonexistent", path);
    EXPECT_FALSE(server.Create(bus, error));
    EXPECT_FALSE(client.Attach(bus, false, error));
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_FALSE(server.Create(bus, error));
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(server.Create(bus, error));
    EXPECT_THAT(error, HasSubstr("is no regular file; remove it"));
    EXPECT_FALSE(client.Attach(bus, false, error));
}

TEST_F(SharedBoardMemory, BoardOfAnotherLayoutIsRefused) {
    ASSERT_TRUE(server.Create(bus, error)) << error;
    server->ringLines = RING_LINES;
    server->version = SHARED_BOARD_VERSION + 1;
    server.Publish();
    EXPECT_FALSE(client.Attach(bus, false, error));
    EXPECT_THAT(error, HasSubstr("is of another version; serve it anew"));
    server->version = SHARED_BOARD_VERSION;
    server->ringLines = 3;
    EXPECT_FALSE(client.Attach(bus, false, error));
    EXPECT_THAT(error, HasSubstr("is damaged"));
}

TEST_F(SharedBoardMemory, WhatIsNoBoardIsReplaced) {
    std::ofstream(path) << "something else of ours";
    EXPECT_FALSE(client.Attach(bus, false, error));
    EXPECT_TRUE(server.Create(bus, error)) << error;
}

TEST_F(SharedBoardMemory, FileHeldByALivingProcessIsNotTaken) {
    ASSERT_TRUE(server.Create(bus, error)) << error;
    SharedMapping second;
    EXPECT_FALSE(second.Create(bus, error));
    EXPECT_THAT(error, HasSubstr("is being served by process " + std::to_string(getpid())));
}

TEST_F(SharedBoardMemory, IsNotInheritedByAChild) {
    ASSERT_TRUE(server.Create(bus, error)) << error;
    const pid_t child = fork();
    if (child == 0) {
        server->version = 0;  // no such memory in the child
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) != 0);
    EXPECT_EQ(server->version, SHARED_BOARD_VERSION);
}

TEST(ProcessIds, OwnProcessIsAliveAndAnEndedOneIsNot) {
    EXPECT_TRUE(IsAlive(OwnProcessId()));
    EXPECT_EQ(ProcessNumber(OwnProcessId()), getpid());
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(IsAlive(static_cast<uint32_t>(child)));
}

TEST(ProcessIds, ProcessThatCannotBeLookedAtIsNotTakenForEnded) {
    const ProcessId self = OwnProcessId();
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool isAlive = IsAlive(self);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(isAlive);
}

TEST(ProcessIds, SameNumberWithAnotherStartIsAnotherProcess) {
    EXPECT_FALSE(IsAlive(OwnProcessId() + (uint64_t{1} << 32)));
}

class ServedChannel : public SharedBoardMemory {
protected:
    void Serve() {
        BoardOptions options;
        options.exchange.shfeInstruments = 4;
        options.exchange.ineInstruments = 2;
        ASSERT_TRUE(board->Open(bus, options, error)) << error;
    }
    std::unique_ptr<BoardServer> board = std::make_unique<BoardServer>();
};

TEST_F(ServedChannel, SecondReaderOfAChannelIsToldWhoHoldsIt) {
    Serve();
    SharedStream first;
    SharedStream second;
    ASSERT_TRUE(first.Open(bus, 3, error)) << error;
    EXPECT_FALSE(second.Open(bus, 3, error));
    EXPECT_THAT(error, HasSubstr("channel 3 of bus " + std::to_string(bus) + " is held by process " +
                                 std::to_string(getpid())));
    EXPECT_TRUE(second.Open(bus, 4, error)) << error;
}

TEST_F(ServedChannel, IsFreeAgainOnceItsStreamIsClosed) {
    Serve();
    { ASSERT_TRUE(SharedStream().Open(bus, 3, error)) << error; }
    EXPECT_TRUE(SharedStream().Open(bus, 3, error)) << error;
}

TEST_F(ServedChannel, OfAnEndedProcessIsTakenOver) {
    Serve();
    const pid_t child = fork();
    if (child == 0) {
        auto* stream = new SharedStream;  // never closed: the process just ends
        _exit(stream->Open(bus, 3, error) ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(SharedStream().Open(bus, 3, error)) << error;
}

TEST_F(ServedChannel, IsWonByOneOfManyThatClaimItAtOnce) {
    constexpr int RACES = 200;
    constexpr int RACERS = 4;
    struct Race {
        std::atomic<int> ready;
        std::atomic<int> tried;
        std::atomic<int> won;
    };
    void* pages = mmap(nullptr, sizeof(Race), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    Race& race = *static_cast<Race*>(pages);
    Serve();
    for (int number = 1; number <= RACES; ++number) {
        for (int racer = 0; racer < RACERS; ++racer) {
            if (fork() != 0) continue;
            for (++race.ready; race.ready < number * RACERS;) sched_yield();
            auto* stream = new SharedStream;  // held by the process until it ends
            if (stream->Open(bus, 0, error)) ++race.won;
            for (++race.tried; race.tried < number * RACERS;) sched_yield();
            _exit(0);
        }
        for (int racer = 0; racer < RACERS; ++racer) wait(nullptr);
        ASSERT_EQ(race.won, number);
    }
    munmap(pages, sizeof(Race));
}

TEST_F(ServedChannel, PlainRegistersNeedNoServersStep) {
    Serve();
    SharedRegisters registers;
    ASSERT_TRUE(registers.Open(bus, error)) << error;
    EXPECT_TRUE(registers.Write(reg::CONFIG_CHECKSUM, 77));
    uint64_t value = 0;
    ASSERT_TRUE(registers.Read(0x1001, value));
    EXPECT_EQ(value, 77U);
    ASSERT_TRUE(registers.Read(0x0101, value));
    EXPECT_EQ(value, 0x20260420U);
}

class Requests : public ServedChannel {
protected:
    /// Asks while another thread serves.
    bool AskFor(const std::string& request, EInjection kind = INJECT_FAULTS) {
        if (!asker.Attach(bus, false, error)) return false;
        std::atomic<bool> isOver = false;
        std::thread serving([&] {
            while (!isOver) board->Step();
        });
        text = request;
        const bool isDone = AskServer(asker, asker->injection, kind, 0, text);
        isOver = true;
        serving.join();
        return isDone;
    }
    SharedMapping asker;
    std::string text;
};

TEST_F(Requests, WhatIsWrongIsToldWhole) {
    Serve();
    EXPECT_FALSE(AskFor("gremlin"));
    EXPECT_EQ(text, "unknown fault \"gremlin\"; known are " + exchange::FaultNames() + ", or all (without a moment)");
}

TEST_F(Requests, EveryFaultCanBeAskedForAtOnceAndCleared) {
    Serve();
    std::string all;
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        all += std::string(all.empty() ? "" : ",") + row.name + "@18446744073709551615";
    }
    EXPECT_TRUE(AskFor(all)) << text;
    EXPECT_TRUE(AskFor("registers-open-fail,old-firmware")) << text;
    EXPECT_EQ(Load(asker->memory.registers.hardwareVersion), 0x20200101U);
    SharedRegisters registers;
    EXPECT_FALSE(registers.Open(bus, error));
    EXPECT_TRUE(AskFor("", CLEAR_FAULTS)) << text;
    EXPECT_TRUE(registers.Open(bus, error)) << error;
    EXPECT_EQ(Load(asker->memory.registers.hardwareVersion), 0x20260420U);
}

TEST_F(Requests, LongerThanTheBoxIsRefusedWithItsLength) {
    Serve();
    EXPECT_FALSE(AskFor(std::string(5000, 'x')));
    EXPECT_EQ(text, "a request has at most 4067 characters, this one 5000");
}

TEST_F(ServedChannel, CommandWithoutAServerFails) {
    Serve();
    SharedRegisters registers;
    ASSERT_TRUE(registers.Open(bus, error)) << error;
    board.reset();
    EXPECT_FALSE(registers.Write(reg::BRING_UP_START, 1));
}

}  // namespace
}  // namespace software_board

// Peers that write garbage over every part of a served board's memory while everybody uses it: nobody may read or write
// outside of it, divide by what stands there, or come to an end. Runs for a second; VEXA_HOSTILE_SECONDS says
// otherwise.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "exchange/Random.h"
#include "public/clock/Clock.h"
#include "software_board/BoardServer.h"
#include "software_board/BoardTables.h"
#include "software_board/SharedClient.h"
#include "tools/BoardText.h"

namespace software_board {
namespace {

int64_t Seconds() {
    const char* text = std::getenv("VEXA_HOSTILE_SECONDS");
    return text == nullptr ? 1 : std::atoll(text);
}

/// Standard output goes nowhere meanwhile.
class Silence {
public:
    Silence() : m_output(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(m_output, STDOUT_FILENO);
        close(m_output);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int m_output;
};

class HostilePeers : public testing::Test {
protected:
    HostilePeers() { std::filesystem::remove(SharedBoardPath(bus)); }
    ~HostilePeers() override { std::filesystem::remove(SharedBoardPath(bus)); }

    bool IsGoingOn() const { return !hasEnded.load(std::memory_order_relaxed); }

    static constexpr uint32_t COMMANDS[][2] = {{0x0010, 1}, {0x1000, 15}, {0x1000, 0}, {0x11120, 1}, {0x21120, 1}};

    // ---- those who keep to the rules ----

    void ServeAll() {
        while (IsGoingOn()) server.Step();
    }

    struct Seen {
        uint64_t sum = 0;
        uint64_t messages = 0;
    };
    static void Touch(const unsigned char* data, unsigned int length, void* user) {
        auto& [sum, messages] = *static_cast<Seen*>(user);
        for (unsigned int byte = 0; byte < std::max(length, DMA_READABLE_BYTES); ++byte) sum += data[byte];
        ++messages;
    }

    void ReadChannel(int32_t channel) {
        std::string error;
        while (IsGoingOn()) {
            SharedStream stream;
            if (!stream.Open(bus, channel, error)) continue;
            Seen seen;
            for (int poll = 0; poll < 20'000 && IsGoingOn() && stream.Receive(Touch, &seen) >= 0; ++poll) {
            }
            messagesSeen += seen.messages;
        }
    }

    void UseRegisters(uint64_t seed) {
        exchange::Random chance(seed, "registers");
        static constexpr uint32_t FIRSTS[] = {0x11000, 0x21000, 0x11100, 0x3000, 0x2030, 0x1200, 0x1000, 0x2FFF0};
        std::string error;
        while (IsGoingOn()) {
            SharedRegisters registers;
            if (!registers.Open(bus, error)) continue;
            for (int access = 0; access < 20'000 && IsGoingOn(); ++access) {
                const uint32_t index = FIRSTS[chance.Below(std::size(FIRSTS))] + chance.Below(40);
                uint64_t value = 0;
                const bool isThere = chance.OneIn(2) ? registers.Read(index, value)
                                                     : IsCommandIndex(index) || registers.Write(index, Garbage(chance));
                if (!isThere) break;
                ++accesses;
            }
        }
    }
    static bool IsCommandIndex(uint32_t index) { return index == 0x1000 || index == 0x11120 || index == 0x21120; }

    void Command() {
        std::string error;
        for (std::size_t turn = 0; IsGoingOn(); ++turn) {
            SharedRegisters registers;
            if (registers.Open(bus, error)) registers.Write(COMMANDS[turn % 5][0], COMMANDS[turn % 5][1]);
        }
    }

    void AskForFaults() {
        std::string error;
        static const std::string FAULTS[] = {"packet-lost", "register-all-ones", "reset", "gremlin", "all"};
        for (std::size_t turn = 0; IsGoingOn(); ++turn) {
            SharedMapping board;
            if (!board.Attach(bus, false, error)) continue;
            std::string text = FAULTS[turn % std::size(FAULTS)];
            AskServer(board, board->injection, INJECT_FAULTS, 0, text);
            AskServer(board, board->injection, CLEAR_FAULTS, 0, text);
        }
    }

    void Look() {
        std::string error;
        while (IsGoingOn()) {
            SharedMapping board;
            if (!board.Attach(bus, true, error)) continue;
            PrintStatus(*board, bus);
            PrintRegisters(*board, true);
            for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) PrintTable(*board, feed, "");
            std::printf("%s\n", BoardLine(*board, 1e300, 60).c_str());
            ++looks;
        }
    }

    // ---- those who do not ----

    static uint32_t Garbage(exchange::Random& chance) {
        static constexpr uint32_t TELLING[] = {0,          1,          2,          33,         34,         16384,
                                               16385,      0x7FFFFFFF, 0x80000000, 0x800000B8, 0x80000800, 0x80000801,
                                               0xFFFFFFFF, 0xFFFFFFFE, 0x1000,     0x0010};
        if (chance.OneIn(3)) return chance.Below(UINT32_MAX);
        return TELLING[chance.Below(std::size(TELLING))];
    }

    static void Put(SharedBoard& board, std::size_t offset, uint32_t value) {
        auto* bytes = reinterpret_cast<unsigned char*>(&board) + offset / sizeof value * sizeof value;
        Store(*reinterpret_cast<uint32_t*>(bytes), value);
    }

    /// Somewhere in one of the parts; the small ones as often as the large ones.
    static std::size_t Somewhere(exchange::Random& chance) {
        constexpr std::size_t MEMORY = offsetof(SharedBoard, memory);
        const std::size_t channel =
            MEMORY + offsetof(BoardMemory, channels) + chance.Below(CHANNEL_SIZE) * sizeof(ChannelMemory);
        const struct {
            std::size_t first, bytes;
        } parts[] = {
            {offsetof(SharedBoard, command), 2 * sizeof(RequestBox)},
            {offsetof(SharedBoard, command), CACHE_LINE},
            {offsetof(SharedBoard, injection), CACHE_LINE},
            {MEMORY, sizeof(BoardStatistics)},
            {MEMORY + offsetof(BoardMemory, registers), sizeof(BoardRegisters)},
            {MEMORY + offsetof(BoardMemory, registers) + offsetof(BoardRegisters, broken), 256},
            {MEMORY + offsetof(BoardMemory, slots), sizeof(SInstTableType) * SLOT_COUNT},
            {channel, offsetof(ChannelMemory, ring) + CACHE_LINE},
            {channel, sizeof(ChannelMemory)},
        };
        // What stands there ends whatever was opened: seldom, so that garbage is met by those who go on.
        if (chance.OneIn(2000)) return chance.Below(CACHE_LINE);
        const auto& part = parts[chance.Below(std::size(parts))];
        return part.first + chance.Below(static_cast<uint32_t>(part.bytes));
    }

    /// Those who attach look at these: mostly sound, so that garbage is met behind the checks too.
    void Heal(SharedBoard& board) const {
        Store(board.version, SHARED_BOARD_VERSION);
        Store(board.size, static_cast<uint32_t>(sizeof(SharedBoard)));
        Store(board.server, OwnProcessId());
        Store(board.hasEnded, 0U);
        Store(board.ringLines, RING_LINES);
        Store(board.memory.registers.broken, 0U);
        Store(board.magic, SHARED_BOARD_MAGIC);
    }

    /// A channel that garbage holds is free again.
    static void FreeChannel(SharedBoard& board, exchange::Random& chance) {
        Store(board.memory.channels[chance.OneIn(2) ? 0 : 5].holder, uint64_t{0});
    }

    /// Asks for a step of a start without waiting for the answer, so that the board moves whatever becomes of the
    /// boxes.
    static void Post(SharedBoard& board, exchange::Random& chance) {
        const auto& command = COMMANDS[chance.Below(std::size(COMMANDS))];
        Store(board.command.index, command[0]);
        Store(board.command.value, command[1]);
        Store(board.command.asked, chance.Below(UINT32_MAX));
    }

    /// Messages that no board wrote, of any length, where the reader goes on.
    static void Forge(SharedBoard& board, exchange::Random& chance) {
        DmaRing& ring = board.memory.channels[chance.OneIn(2) ? 0 : 5].ring;
        const uint64_t first = Load(ring.released) % RING_LINES;
        for (uint32_t line = 0; line < 200; ++line) {
            const uint32_t length = chance.OneIn(2) ? chance.Below(DMA_MESSAGE_CAPACITY + 2) : Garbage(chance);
            RingHead(ring.lines[(first + line) % RING_LINES]).store(RING_READY | length);
        }
    }

    void WriteGarbage(SharedBoard& board, uint64_t seed) {
        exchange::Random chance(seed, "garbage");
        while (IsGoingOn()) {
            for (uint32_t word = 0; word < 64; ++word) Put(board, Somewhere(chance), Garbage(chance));
            Heal(board);
            if (chance.OneIn(100)) FreeChannel(board, chance);
            if (chance.OneIn(100)) Post(board, chance);
            if (chance.OneIn(10)) Forge(board, chance);
            // Between a check and a use there are a few instructions: the word is turned over again and again.
            for (uint32_t time = 0; time < 200; ++time) {
                const uint32_t garbage = Garbage(chance);
                Store(board.ringLines, chance.OneIn(2) ? garbage : RING_LINES);
            }
        }
    }

    uint16_t bus = static_cast<uint16_t>(22'000 + getpid() % 8000);
    BoardServer server;
    std::atomic<bool> hasEnded = false;
    std::atomic<uint64_t> messagesSeen = 0;
    std::atomic<uint64_t> accesses = 0;
    std::atomic<uint64_t> looks = 0;
};

TEST_F(HostilePeers, FindNothingToBreak) {
    BoardOptions options;
    options.exchange.shfeInstruments = 8;
    options.exchange.ineInstruments = 4;
    std::string error;
    ASSERT_TRUE(server.Open(bus, options, error)) << error;
    SharedMapping spoiled;
    ASSERT_TRUE(spoiled.Attach(bus, false, error)) << error;
    {
        const Silence silence;
        std::vector<std::thread> peers;
        std::vector<std::thread> hostile;
        peers.emplace_back([this] { ServeAll(); });
        for (const int32_t channel : {0, 5}) peers.emplace_back([this, channel] { ReadChannel(channel); });
        for (const uint64_t seed : std::initializer_list<uint64_t>{1, 2})
            peers.emplace_back([this, seed] { UseRegisters(seed); });
        peers.emplace_back([this] { Command(); });
        peers.emplace_back([this] { AskForFaults(); });
        peers.emplace_back([this] { Look(); });
        for (const uint64_t seed : std::initializer_list<uint64_t>{3, 4}) {
            hostile.emplace_back([this, seed, &spoiled] { WriteGarbage(*spoiled, seed); });
        }
        const int64_t end = CClock::MonotonicNanoseconds() + Seconds() * 1'000'000'000;
        while (CClock::MonotonicNanoseconds() < end) CClock::SleepMicroseconds(1000);
        hasEnded = true;
        for (std::thread& peer : hostile) peer.join();
        Store(spoiled->hasEnded, 1U);  // whoever waits for an answer gives up
        for (std::thread& peer : peers) peer.join();
    }
    EXPECT_GT(messagesSeen, 0U);
    EXPECT_GT(accesses, 0U);
    EXPECT_GT(looks, 0U);
    std::printf("%lu messages, %lu register accesses, %lu looks\n", static_cast<unsigned long>(messagesSeen),
                static_cast<unsigned long>(accesses), static_cast<unsigned long>(looks));
}

}  // namespace
}  // namespace software_board

// A reader on a board's shared memory that changes under it: between its steps the server does what is due, words of
// the input are written anywhere, the board ends, and another is served in its place.
//
//     step   a byte for its kind, and what that needs
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "fuzz/Bytes.h"
#include "fuzz/Oracle.h"
#include "software_board/BoardServer.h"
#include "software_board/RegisterFile.h"
#include "software_board/SharedClient.h"
#include "testing/ManualClock.h"

namespace fuzz {
namespace {

using software_board::BoardServer;
using software_board::DmaRing;
using software_board::RING_LINE_BYTES;
using software_board::RING_LINES;
using software_board::RingConsumer;
using software_board::RingProducer;
using software_board::SharedBoard;
using software_board::SharedMapping;
using software_board::SharedRegisters;
using software_board::SharedStream;

constexpr int STEPS_MAX = 400;
constexpr int SERVER_STEPS_MAX = 48;
constexpr int SERVED_ANEW_MAX = 2;
constexpr int FAILED_POLLS_MAX = 20;
constexpr int32_t CHANNEL = 0;
constexpr uint32_t PLAIN_REGISTER = 0x3000;  ///< keeps what is written
constexpr uint32_t PLAIN_REGISTERS = 64;
constexpr uint32_t LOST = 0x80;

enum class EKind : uint8_t {
    Serve,
    Poll,
    Poke,
    Read,
    Write,
    Command,
    OpenAgain,
    End,
    ServeAnew,
    Look,
    Count_,
};

/// What the last message was.
struct Message {
    uint32_t length = 0;
    uint32_t type = 0;
    uint32_t eventData0 = 0;
    uint32_t sum = 0;  ///< of every byte that a provider promises, so that each is read
};

void Take(const unsigned char* data, unsigned int length, void* user) {
    FUZZ_REQUIRE(length <= DMA_MESSAGE_CAPACITY);
    auto& message = *static_cast<Message*>(user);
    message.length = length;
    std::memcpy(&message.type, data, sizeof message.type);
    std::memcpy(&message.eventData0, data + 8, sizeof message.eventData0);
    message.sum = 0;
    for (unsigned int i = 0; i < std::max(length, DMA_READABLE_BYTES); ++i) message.sum += data[i];
}

/// A ring on the heap, where a sanitizer sees what lies beyond it. What goes in comes out until a word is written.
class HeapRing {
public:
    explicit HeapRing(uint64_t begin) {
        static const auto ring = std::make_unique<DmaRing>();
        m_ring = ring.get();
        std::memset(static_cast<void*>(m_ring), 0, sizeof *m_ring);
        // From wherever a consumer may begin, near the end of a lap too: the producer begins at the front.
        m_consumer.emplace(*m_ring, RING_LINES);
        m_producer.emplace(*m_ring, RING_LINES);
        if (begin != 0) {
            m_ring->released = begin;
            m_consumer.emplace(*m_ring, RING_LINES);
            m_isTrusted = false;
        }
    }

    void PutMessage(uint32_t length) {
        static const uint8_t bytes[DMA_MESSAGE_CAPACITY + 8] = {};
        const uint32_t head = ++m_put;
        const bool isPut = m_producer->Put(&head, sizeof head, bytes, length % (DMA_MESSAGE_CAPACITY + 4));
        if (!isPut) --m_put;
    }

    void TakeMessage() {
        Message message;
        const bool isTaken = m_consumer->HandOver(Take, &message);
        if (!m_isTrusted) return;
        FUZZ_REQUIRE(isTaken == (m_taken < m_put));
        if (isTaken) FUZZ_REQUIRE(message.type == ++m_taken);
    }

    void Poke(uint32_t place, uint32_t value) {
        m_isTrusted = false;
        if (place % 4 == 0) {
            std::memcpy(&m_ring->released, &value, sizeof value);
        } else {
            std::memcpy(m_ring->lines[place / 4 % (RING_LINES + 1)].bytes, &value, sizeof value);
        }
    }

    void Discard() {
        m_isTrusted = false;
        m_consumer->Discard();
        m_consumer->IsEmpty();
        FUZZ_REQUIRE(m_producer->Waiting() <= m_producer->Written());
    }

private:
    DmaRing* m_ring = nullptr;
    std::optional<RingConsumer> m_consumer;
    std::optional<RingProducer> m_producer;
    bool m_isTrusted = true;
    uint32_t m_put = 0;
    uint32_t m_taken = 0;
};

class Peers {
public:
    explicit Peers(uint16_t bus) : m_bus(bus) {
        Serve();
        std::string error;
        FUZZ_REQUIRE(m_registers.Open(m_bus, error));
        OpenStream();
    }
    ~Peers() {
        m_stream.reset();
        m_server.reset();
        std::filesystem::remove(software_board::SharedBoardPath(m_bus));
    }
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    void Step(ByteReader& input) {
        switch (static_cast<EKind>(input.Take<uint8_t>() % static_cast<uint8_t>(EKind::Count_))) {
            case EKind::Serve:
                if (m_serverSteps++ < SERVER_STEPS_MAX) m_server->Step();
                return;
            case EKind::Poll: return Poll();
            case EKind::Poke: return Poke(input);
            case EKind::Read: return Read(Index(input));
            case EKind::Write: return Write(input);
            case EKind::Command: return Command(input);
            case EKind::OpenAgain: return OpenStream();
            case EKind::End: return End();
            case EKind::ServeAnew:
                if (m_servedAnew++ < SERVED_ANEW_MAX) ServeAnew();
                return;
            case EKind::Look: return Look();
            default: return;
        }
    }

private:
    // What was opened on the old one has ended for good.
    void ServeAnew() {
        Serve();
        // A stream that had failed before may go over at once, or hand over what the old board put into it since.
        if (m_hasFailed) m_isFollowed = false;
        m_isOld = m_isEnded = m_isReplaced = true;
    }

    void Serve() {
        m_server.reset();
        m_memory.Close();
        std::filesystem::remove(software_board::SharedBoardPath(m_bus));
        software_board::BoardOptions options;
        options.exchange.shfeInstruments = 5;
        options.exchange.ineInstruments = 3;
        options.ringMessages = 64;
        options.hbm2ReadyMs = 1;
        std::string error;
        m_server.emplace();
        FUZZ_REQUIRE(m_server->Open(m_bus, options, error));
        FUZZ_REQUIRE(m_memory.Attach(m_bus, false, error));
        m_isWhole = true;
    }

    void OpenStream() {
        m_stream.reset();
        m_stream.emplace();
        std::string error;
        const bool isOpen = m_stream->Open(m_bus, CHANNEL, error);
        FUZZ_REQUIRE(isOpen == error.empty());
        if (m_isWhole) FUZZ_REQUIRE(isOpen);
        if (!isOpen) m_stream.reset();
        m_hasFailed = m_isOld = false;
        m_isFollowed = true;
    }

    // A board that was replaced is told by a failed poll, then by a loss.
    void Poll() {
        if (!m_stream) return;
        Message message;
        const int32_t result = m_stream->Receive(Take, &message);
        FUZZ_REQUIRE(result <= 1);
        if (!m_isFollowed) return;
        if (result == 1 && m_hasFailed && m_isOld) {
            FUZZ_REQUIRE(message.type == DMA_EVENT && message.eventData0 == LOST);
            m_hasFailed = m_isOld = false;
            return;
        }
        if (result < 0) m_hasFailed = true;
        // Behind it a whole board is found within a few looks.
        m_failedPolls = result < 0 && m_isWhole ? m_failedPolls + 1 : 0;
        FUZZ_REQUIRE(m_failedPolls <= FAILED_POLLS_MAX);
        if (!m_isWhole || m_isOld) return;
        FUZZ_REQUIRE(result >= 0);
        if (result == 1) FUZZ_REQUIRE(message.type <= DMA_TCP && message.length >= sizeof(U50Event));
    }

    void Poke(ByteReader& input) {
        m_isWhole = false;
        m_isEnded = m_isReplaced;
        const auto place = input.Take<uint32_t>();
        const auto value = input.Take<uint32_t>();
        std::memcpy(Base(place) + place / 8 % 64 * sizeof value, &value, sizeof value);
    }

    /// Where words are looked at; the last kind of place is anywhere.
    unsigned char* Base(uint32_t place) {
        SharedBoard& board = *m_memory;
        auto& channel = board.memory.channels[CHANNEL];
        auto* whole = reinterpret_cast<unsigned char*>(&board);
        switch (place % 8) {
            case 0: return whole;
            case 1: return reinterpret_cast<unsigned char*>(&board.command);
            case 2: return reinterpret_cast<unsigned char*>(&board.injection);
            case 3: return reinterpret_cast<unsigned char*>(&channel.holder);
            case 4: return reinterpret_cast<unsigned char*>(&channel.ring);
            case 5: return reinterpret_cast<unsigned char*>(&board.memory.registers.broken);
            case 6: return channel.ring.lines[place / 512 % 256].bytes;
            default: return whole + place / 512 * 4096ULL % (sizeof board - 4096);
        }
    }

    static uint32_t Index(ByteReader& input) {
        constexpr uint32_t FIRSTS[] = {0x11000, 0x21000, 0x11100, 0x3000, 0x2030, 0x1200, 0x1000, 0x2FFF0};
        const auto first = input.Take<uint16_t>();
        return FIRSTS[first % std::size(FIRSTS)] + input.Take<uint16_t>() % 80;
    }

    // One that has ended answers nothing; one that nobody disturbs keeps what was written.
    void Read(uint32_t index) {
        constexpr uint64_t UNTOUCHED = 0x1234;
        uint64_t value = UNTOUCHED;
        const bool isAnswered = m_registers.Read(index, value);
        if (!isAnswered) FUZZ_REQUIRE(value == UNTOUCHED);
        if (m_isEnded) FUZZ_REQUIRE(!isAnswered);
    }

    void Write(ByteReader& input) {
        const uint32_t index = Index(input);
        if (software_board::IsCommand(index)) return;
        const bool isWritten = m_registers.Write(index, input.Take<uint32_t>());
        if (m_isEnded) FUZZ_REQUIRE(!isWritten);
        if (!m_isWhole || m_isEnded) return;
        const uint32_t plain = PLAIN_REGISTER + index % PLAIN_REGISTERS;
        uint64_t value = 0;
        FUZZ_REQUIRE(m_registers.Write(plain, index) && m_registers.Read(plain, value) && value == index);
    }

    /// As another process would ask.
    void Command(ByteReader& input) {
        constexpr uint32_t COMMANDS[][2] = {{0x0010, 1}, {0x1000, 15}, {0x1000, 0}, {0x11120, 1}, {0x21120, 1}};
        const auto& command = COMMANDS[input.Take<uint8_t>() % std::size(COMMANDS)];
        software_board::RequestBox& box = m_memory->command;
        box.index = command[0];
        box.value = command[1];
        ++box.asked;
        if (m_serverSteps++ >= SERVER_STEPS_MAX) return;
        m_server->Step();
        if (m_isWhole) FUZZ_REQUIRE(box.answered == box.asked);
    }

    void End() {
        m_memory->hasEnded = 1;
        m_isWhole = false;
        m_isEnded = true;
    }

    void Look() {
        SharedMapping mapping;
        std::string error;
        const bool isAttached = mapping.Attach(m_bus, true, error);
        FUZZ_REQUIRE(isAttached == error.empty());
        FUZZ_REQUIRE(isAttached == static_cast<bool>(mapping));
        if (isAttached) FUZZ_REQUIRE(mapping.RingLines() <= RING_LINES);
    }

    uint16_t m_bus;
    std::optional<BoardServer> m_server;
    SharedMapping m_memory;
    SharedRegisters m_registers;
    std::optional<SharedStream> m_stream;
    bool m_isWhole = true;  ///< no word of the board that is served was written
    bool m_isOld = false;   ///< the stream is that of a board that was replaced
    bool m_hasFailed = false;
    bool m_isFollowed = true;  ///< the stream's state is known
    bool m_isEnded = false;    ///< the board that the registers are of
    bool m_isReplaced = false;
    int m_failedPolls = 0;
    int m_serverSteps = 0;
    int m_servedAnew = 0;
};

void Run(ByteReader input) {
    ManualClock clock;
    clock.step = 20'000'000;
    const auto parts = input.Take<uint8_t>();
    if ((parts & 1) != 0) {
        HeapRing ring(input.Take<uint32_t>());
        for (int step = 0; step < STEPS_MAX && !input.IsEmpty(); ++step) {
            switch (input.Take<uint8_t>() % 4) {
                case 0: ring.PutMessage(input.Take<uint16_t>()); break;
                case 1:
                case 2: ring.TakeMessage(); break;
                default: {
                    const auto place = input.Take<uint32_t>();
                    ring.Poke(place, input.Take<uint32_t>());
                    if (place % 64 == 5) ring.Discard();
                }
            }
        }
        return;
    }
    Peers peers(static_cast<uint16_t>(10000 + getpid() % 50000));
    for (int step = 0; step < STEPS_MAX && !input.IsEmpty(); ++step) peers.Step(input);
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::Run(fuzz::ByteReader(data, size));
    return 0;
}

// Seeds of the targets whose inputs are short: what a session meets, one thing each.
#include <initializer_list>

#include "fuzz/Bytes.h"
#include "fuzz/SeedWriter.h"

namespace fuzz {
namespace {

using Block = std::vector<uint8_t>;

// Answers of fuzz_start_up.
constexpr uint8_t RIGHT = 0;
constexpr uint8_t ALL_ONES = 4;
constexpr uint8_t FAILED = 6;
constexpr uint8_t ZERO = 7;
constexpr uint8_t POLL_FAILS = 1;
constexpr uint8_t EVENT = 2;
constexpr uint8_t STOP = 5;
constexpr uint8_t EXIT = 6;
constexpr uint8_t UPDATE = 8;
constexpr uint8_t LIE = 9;

void AddEvent(Block& bytes, std::initializer_list<uint32_t> data) {
    Put(bytes, EVENT);
    for (const uint32_t word : data) Put(bytes, word);
    bytes.insert(bytes.end(), (6 - data.size()) * sizeof(uint32_t), 0);
}

constexpr uint8_t POLLING = 0x80;

Block StartUpInput(uint8_t configuration, const Block& start, const Block& session) {
    Block bytes{configuration, 0};
    for (const Block& part : {start, session}) {
        Put(bytes, static_cast<uint16_t>(part.size()));
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
}

Block Repeated(std::size_t rights, uint8_t answer, std::size_t times) {
    Block bytes(rights, RIGHT);
    bytes.insert(bytes.end(), times, answer);
    return bytes;
}

/// Updates, and losses after which the session rebuilds.
Block EventfulSession() {
    Block bytes{UPDATE};
    bytes.insert(bytes.end(), 176, 0x41);
    for (int word = 0; word < 4; ++word) {
        for (const uint32_t bits : {0x80U, 0x40U, 0x0FU, 0x01U}) {
            Block data(static_cast<std::size_t>(word) * sizeof(uint32_t), 0);
            Put(data, bits);
            data.resize(6 * sizeof(uint32_t));
            Put(bytes, EVENT);
            bytes.insert(bytes.end(), data.begin(), data.end());
        }
    }
    return bytes;
}

}  // namespace

void WriteStartUpSeeds(const std::string& folder) {
    int number = 0;
    const auto write = [&](uint8_t configuration, const Block& start, const Block& session) {
        WriteSeed(folder, std::to_string(number++), StartUpInput(configuration, start, session));
    };
    for (uint8_t configuration = 0; configuration < 4; ++configuration) {
        write(configuration, {}, {});
        write(configuration, {}, EventfulSession());
        write(configuration | POLLING, {}, EventfulSession());
    }
    for (uint8_t answer = 0; answer < 9; ++answer) {
        for (uint8_t kind = 4; kind < 8; ++kind) {
            Block bytes{0, 1, answer, kind};
            Put(bytes, uint32_t{2});
            WriteSeed(folder, std::to_string(number++), bytes);
        }
    }
    write(0, {}, {POLL_FAILS, 255, STOP});
    write(0, Repeated(90, POLL_FAILS, 1000), {});
    Block lie{LIE};
    Put(lie, uint32_t{0x80000001U});
    for (const std::size_t rights : {0U, 1U, 2U, 4U, 8U, 12U, 18U, 25U}) {
        for (const uint8_t answer : {ALL_ONES, FAILED, ZERO}) write(0, Repeated(rights, answer, 1), {});
        write(0, Repeated(rights, FAILED, 2000), {});
    }
    // Behind the opening, the identity, the counters and the first registers come the polls.
    for (const std::size_t rights : {23U, 24U, 60U, 1100U}) {
        for (const uint8_t poll : {POLL_FAILS, STOP, EXIT}) write(0, Repeated(rights, poll, 3), {});
        Block ready(rights, RIGHT);
        AddEvent(ready, {0, 0, 1});
        write(0, ready, {});
        Block lying(rights, RIGHT);
        lying.insert(lying.end(), lie.begin(), lie.end());
        write(0, lying, {});
    }
    write(0, {}, {POLL_FAILS, 9, RIGHT, STOP});
    write(0, {}, {EXIT});
    for (const uint8_t answer : {FAILED, ZERO, ALL_ONES}) {
        Block loss;
        AddEvent(loss, {0x80});
        loss.insert(loss.end(), 7, RIGHT);
        loss.insert(loss.end(), 3000, answer);
        write(0, {}, loss);
    }
}

}  // namespace fuzz

/// What went on between the library and the world: the last hundred events, and all of them in a file where one is
/// asked for. The same seed gives the same events.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace simulation {

enum class EEvent : uint8_t { Write, Read32, Read64, Slots, Message, Record, Call, Result, Script, Log };

struct Event {
    EEvent kind = EEvent::Script;
    int32_t channel = 0;
    uint64_t what = 0;   ///< register index, message type, call, script step
    uint64_t value = 0;  ///< value or hash
    int64_t time = 0;    ///< monotonic nanoseconds
};

class EventTrace {
public:
    /// `file` may be null and stays the caller's.
    explicit EventTrace(std::FILE* file = nullptr) : m_file(file) {}

    void Add(const Event& event);

    uint64_t Hash() const { return m_hash; }
    std::vector<std::string> LastLines() const;

private:
    static constexpr std::size_t KEPT = 100;

    std::FILE* m_file;
    std::array<Event, KEPT> m_last{};
    uint64_t m_count = 0;
    uint64_t m_hash = 0;
};

/// Mixes `value` into a running hash.
constexpr uint64_t Mix(uint64_t hash, uint64_t value) {
    hash = (hash ^ value) * 0x9E3779B97F4A7C15ULL;
    return hash ^ (hash >> 29);
}

uint64_t HashOf(const void* bytes, std::size_t size);

}  // namespace simulation

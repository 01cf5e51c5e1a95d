/// The one source of chance: splitmix64. The standard distributions differ between libraries, so none is used.
#pragma once

#include <cstdint>
#include <string_view>

namespace exchange {

class Random {
public:
    /// Every user has a stream of its own, told apart by `name`: one more draw here leaves the others as they were.
    Random(uint64_t seed, std::string_view name) : m_state(seed) {
        for (const char c : name) m_state = (m_state ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
    }

    uint64_t Next() {
        m_state += 0x9E3779B97F4A7C15ULL;
        uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ULL;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBULL;
        return mixed ^ (mixed >> 31);
    }

    /// 0 to `bound` - 1; 0 when `bound` is 0.
    uint32_t Below(uint32_t bound) { return static_cast<uint32_t>(((Next() >> 32) * bound) >> 32); }

    /// `low` to `high`, both included.
    int32_t Between(int32_t low, int32_t high) {
        return low + static_cast<int32_t>(Below(static_cast<uint32_t>(high - low) + 1));
    }

    bool OneIn(uint32_t times) { return Below(times) == 0; }

private:
    uint64_t m_state;
};

}  // namespace exchange

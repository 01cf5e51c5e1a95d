/// Memory that has no room for large objects.
#pragma once

#include <cstddef>
#include <cstdint>

class FailingMemory {
public:
    static constexpr std::size_t NO_LIMIT = SIZE_MAX;

    /// More at once is refused for its lifetime.
    explicit FailingMemory(std::size_t bytesAtOnceMax) { s_bytesAtOnceMax = bytesAtOnceMax; }
    ~FailingMemory() { s_bytesAtOnceMax = NO_LIMIT; }
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    static bool HasRoomFor(std::size_t bytes) { return bytes <= s_bytesAtOnceMax; }

private:
    static inline std::size_t s_bytesAtOnceMax = NO_LIMIT;
};

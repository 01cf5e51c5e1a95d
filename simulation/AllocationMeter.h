/// Counts the program's allocations (operator new, calloc) while a watch is on. Programs link it with --wrap=calloc.
#pragma once

#include <cstdint>

namespace simulation {

class AllocationMeter {
public:
    static uint64_t Count();

    /// Sets whether allocations count, for its lifetime.
    class Watch {
    public:
        explicit Watch(bool isWatched);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

    private:
        bool m_before;
    };
};

}  // namespace simulation

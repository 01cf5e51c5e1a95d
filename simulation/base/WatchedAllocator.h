/// Replaces the program's allocator (operator new, malloc, calloc, free) by one that knows what was allocated while
/// watched, and fails on request. Programs link it with --wrap for malloc, calloc, free, mmap and munmap.
#pragma once

#include <cstdint>

namespace simulation {

class WatchedAllocator {
public:
    enum class Failure { Once, FromThenOn };

    /// Counts from 1 again; the watched allocation with that number fails. 0: none fails.
    static void FailAt(uint64_t number, Failure failure = Failure::Once);

    /// Watched allocations since FailAt.
    static uint64_t Count();

    /// Blocks allocated while watched, less those freed while watched: what the watched code holds.
    static int64_t Alive();

    /// Bytes of pages the program has mapped and not unmapped, watched or not.
    static int64_t MappedBytes();

    /// Sets whether allocations are watched, for its lifetime.
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

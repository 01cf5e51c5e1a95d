/// Replaces the program's allocator (operator new, calloc) by one that counts and fails on request. Link it into a test
/// of its own.
#pragma once

#include <cstdint>

class FailingAllocator {
public:
    enum class Failure { Once, FromThenOn };

    /// Counts from 1 again; the allocation with that number fails. 0: none fails.
    static void FailAt(uint64_t number, Failure failure = Failure::Once);

    /// Allocations counted since FailAt.
    static uint64_t Count();

    /// Sets whether allocations are counted, and failed, for its lifetime.
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

#include "tests/support/FailingAllocator.h"

#include <cstdlib>
#include <new>

namespace {

bool g_isWatched = false;
uint64_t g_count = 0;
uint64_t g_failAt = 0;
FailingAllocator::Failure g_failure = FailingAllocator::Failure::Once;

bool MayAllocate() {
    if (!g_isWatched) return true;
    ++g_count;
    if (g_failAt == 0 || g_count < g_failAt) return true;
    return g_failure == FailingAllocator::Failure::Once && g_count > g_failAt;
}

void* Allocate(std::size_t size) noexcept { return MayAllocate() ? std::malloc(size == 0 ? 1 : size) : nullptr; }

void* AllocateOrThrow(std::size_t size) {
    void* memory = Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

void FailingAllocator::FailAt(uint64_t number, Failure failure) {
    g_count = 0;
    g_failAt = number;
    g_failure = failure;
}

uint64_t FailingAllocator::Count() { return g_count; }

FailingAllocator::Watch::Watch(bool isWatched) : m_before(g_isWatched) { g_isWatched = isWatched; }

FailingAllocator::Watch::~Watch() { g_isWatched = m_before; }

// Names and shapes are the language's and the linker's (--wrap=calloc).
// NOLINTBEGIN
void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return MayAllocate() ? __real_calloc(count, size) : nullptr;
}
}
// NOLINTEND

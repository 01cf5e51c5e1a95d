#include "simulation/base/WatchedAllocator.h"

#include <sys/mman.h>

#include <cstddef>
#include <new>

// The linker's names for the C library's own functions and for what stands in for them.
// NOLINTBEGIN
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* memory);
void* __real_mmap(void* address, std::size_t size, int protection, int flags, int file, off_t offset);
int __real_munmap(void* address, std::size_t size);
}
// NOLINTEND

namespace simulation {
namespace {

bool g_isWatched = false;
uint64_t g_count = 0;
uint64_t g_failAt = 0;
WatchedAllocator::Failure g_failure = WatchedAllocator::Failure::Once;
int64_t g_alive = 0;
int64_t g_mappedBytes = 0;

bool MayAllocate() {
    if (!g_isWatched) return true;
    ++g_count;
    if (g_failAt == 0 || g_count < g_failAt) return true;
    return g_failure == WatchedAllocator::Failure::Once && g_count > g_failAt;
}

void* Counted(void* memory) {
    if (g_isWatched && memory != nullptr) ++g_alive;
    return memory;
}

void* Allocate(std::size_t size) noexcept {
    return MayAllocate() ? Counted(__real_malloc(size == 0 ? 1 : size)) : nullptr;
}

void* AllocateOrThrow(std::size_t size) {
    void* memory = Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void Free(void* memory) noexcept {
    if (g_isWatched && memory != nullptr) --g_alive;
    __real_free(memory);
}

}  // namespace

void WatchedAllocator::FailAt(uint64_t number, Failure failure) {
    g_count = 0;
    g_failAt = number;
    g_failure = failure;
}

uint64_t WatchedAllocator::Count() { return g_count; }

int64_t WatchedAllocator::Alive() { return g_alive; }

int64_t WatchedAllocator::MappedBytes() { return g_mappedBytes; }

WatchedAllocator::Watch::Watch(bool isWatched) : m_before(g_isWatched) { g_isWatched = isWatched; }

WatchedAllocator::Watch::~Watch() { g_isWatched = m_before; }

}  // namespace simulation

// Names and shapes are the language's and the linker's.
// NOLINTBEGIN
void* operator new(std::size_t size) { return simulation::AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return simulation::AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return simulation::Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return simulation::Allocate(size); }
void operator delete(void* memory) noexcept { simulation::Free(memory); }
void operator delete[](void* memory) noexcept { simulation::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { simulation::Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { simulation::Free(memory); }

extern "C" {
void* __wrap_malloc(std::size_t size) {
    return simulation::MayAllocate() ? simulation::Counted(__real_malloc(size)) : nullptr;
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return simulation::MayAllocate() ? simulation::Counted(__real_calloc(count, size)) : nullptr;
}
void __wrap_free(void* memory) { simulation::Free(memory); }
void* __wrap_mmap(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
    void* pages = __real_mmap(address, size, protection, flags, file, offset);
    if (pages != MAP_FAILED) simulation::g_mappedBytes += static_cast<int64_t>(size);
    return pages;
}
int __wrap_munmap(void* address, std::size_t size) {
    const int result = __real_munmap(address, size);
    if (result == 0) simulation::g_mappedBytes -= static_cast<int64_t>(size);
    return result;
}
}
// NOLINTEND

#include "simulation/AllocationMeter.h"

#include <cstdlib>
#include <new>

namespace simulation {
namespace {

bool g_isWatched = false;
uint64_t g_count = 0;

void* Allocate(std::size_t size) noexcept {
    if (g_isWatched) ++g_count;
    return std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size) {
    void* memory = Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

uint64_t AllocationMeter::Count() { return g_count; }

AllocationMeter::Watch::Watch(bool isWatched) : m_before(g_isWatched) { g_isWatched = isWatched; }

AllocationMeter::Watch::~Watch() { g_isWatched = m_before; }

}  // namespace simulation

// Names and shapes are the language's and the linker's (--wrap=calloc).
// NOLINTBEGIN
void* operator new(std::size_t size) { return simulation::AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return simulation::AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return simulation::Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return simulation::Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (simulation::g_isWatched) ++simulation::g_count;
    return __real_calloc(count, size);
}
}
// NOLINTEND

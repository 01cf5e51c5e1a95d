// In front of the C++ library's: memory for single objects.
#include "tests/support/FailingMemory.h"

#include <cstdlib>
#include <new>

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return FailingMemory::HasRoomFor(size) ? std::malloc(size) : nullptr;
}

void* operator new(std::size_t size) {
    void* const memory = FailingMemory::HasRoomFor(size) ? std::malloc(size) : nullptr;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

/// Zeroed pages of this process alone, touched only where they are used.
#pragma once

#include <sys/mman.h>

#include <new>
#include <type_traits>

namespace software_board {

template <typename T>
class MappedMemory {
    static_assert(std::is_trivially_destructible_v<T>);

public:
    MappedMemory() {
        void* pages = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) throw std::bad_alloc();
        m_object = static_cast<T*>(pages);
    }
    ~MappedMemory() { munmap(m_object, sizeof(T)); }
    MappedMemory(const MappedMemory&) = delete;
    MappedMemory& operator=(const MappedMemory&) = delete;

    T& operator*() const { return *m_object; }
    T* operator->() const { return m_object; }

private:
    T* m_object;
};

}  // namespace software_board

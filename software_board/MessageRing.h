/// The messages of one channel, in order, in memory allocated once. A full ring drops and remembers that it did.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "common/FpgaStructCommon.h"

namespace software_board {

class MessageRing {
public:
    explicit MessageRing(uint32_t capacity) : m_capacity(capacity), m_slots(new Slot[capacity]) {}

    bool IsEmpty() const { return m_count == 0; }
    bool IsFull() const { return m_count == m_capacity; }
    void Clear() { m_count = 0; }

    /// Head and body become one message of at most DMA_MESSAGE_CAPACITY bytes. False when there was no room.
    bool Put(const void* head, uint32_t headSize, const void* body, uint32_t bodySize) {
        if (IsFull() || headSize + bodySize > DMA_MESSAGE_CAPACITY) return false;
        Slot& slot = m_slots[(m_first + m_count) % m_capacity];
        std::memcpy(slot.bytes, head, headSize);
        if (bodySize > 0) std::memcpy(slot.bytes + headSize, body, bodySize);
        slot.length = headSize + bodySize;
        ++m_count;
        return true;
    }

    const unsigned char* FrontBytes() const { return m_slots[m_first].bytes; }
    uint32_t FrontLength() const { return m_slots[m_first].length; }
    void PopFront() {
        if (m_count == 0) return;  // cleared while its message was looked at
        m_first = (m_first + 1) % m_capacity;
        --m_count;
    }

private:
    struct Slot {
        uint32_t length;
        alignas(8) unsigned char bytes[DMA_MESSAGE_CAPACITY];
    };

    uint32_t m_capacity;
    std::unique_ptr<Slot[]> m_slots;  // left untouched until used
    uint32_t m_first = 0;
    uint32_t m_count = 0;
};

}  // namespace software_board

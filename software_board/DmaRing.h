/// The messages of one channel on their way from the board to the host: one producer and one consumer, in one process
/// or in two.
///
/// The ring is an array of cache lines. A message is an 8-byte head and its bytes, in whole lines and at least three,
/// so that a live record (head, type, length, 176 bytes) takes exactly three:
///
///     | head: READY + length | message ...                |  line i
///     | ...                                               |  line i + 1
///     | ...                                               |  line i + 2
///     | head: 0 (nothing yet)                             |  line i + 3
///
/// The head's first word tells that the message is there and how long it is, so that a poll looks at nothing else. The
/// producer zeroes the head behind a message before it makes the message ready: whatever an earlier lap left there is
/// never taken for a head. A message that begins near the end runs on into spare lines behind the array; the lines at
/// the front that it would have covered are skipped in this lap, so that every message lies in one piece.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "common/FpgaStructCommon.h"
#include "public/reg/BoardProvider.h"

namespace software_board {

constexpr uint32_t RING_LINE_BYTES = 64;
constexpr uint32_t RING_HEAD_BYTES = 8;
constexpr uint32_t RING_LINES_MIN = 3;  ///< of one message; its first 184 bytes are then its own whatever its length
constexpr uint32_t RING_LINES = 16384;  ///< 1 MiB: 5,461 live records
constexpr uint32_t RING_READY = 0x80000000U;

constexpr uint32_t RingLinesOf(uint32_t messageBytes) {
    return std::max(RING_LINES_MIN, (RING_HEAD_BYTES + messageBytes + RING_LINE_BYTES - 1) / RING_LINE_BYTES);
}

constexpr uint32_t RING_LINES_MAX = RingLinesOf(DMA_MESSAGE_CAPACITY);
static_assert(RingLinesOf(DMA_UDP_RECORD_OFFSET + 176) == 3);

struct alignas(RING_LINE_BYTES) RingLine {
    unsigned char bytes[RING_LINE_BYTES];
};

/// The shared part. All zero is an empty ring.
struct DmaRing {
    alignas(RING_LINE_BYTES) uint64_t released;  ///< lines given back, counted since the beginning; by the consumer
    RingLine lines[RING_LINES + RING_LINES_MAX + 1];
};

inline std::atomic_ref<uint32_t> RingHead(RingLine& line) {
    return std::atomic_ref<uint32_t>(*reinterpret_cast<uint32_t*>(line.bytes));
}

inline uint32_t RingNext(uint32_t index, uint32_t lines, uint32_t lineCount) {
    return index + lines < lineCount ? index + lines : index + lines - lineCount;
}

class RingProducer {
public:
    /// `lineCount` of the ring's lines are used; both sides must say the same.
    RingProducer(DmaRing& ring, uint32_t lineCount) : m_ring(&ring), m_lineCount(lineCount) {}

    /// True when a message of this many bytes would find room.
    bool HasRoomFor(uint32_t messageBytes) {
        const uint64_t needed = m_written + RingLinesOf(messageBytes) + 1;  // the head behind it
        if (needed - m_released <= m_lineCount) return true;
        Refresh();
        return needed - m_released <= m_lineCount;
    }

    /// Lines handed over and not given back yet, as far as the consumer has told.
    uint64_t Waiting() {
        Refresh();
        return m_written - m_released;
    }

    /// Head and body become one message. False when there was no room, or it is longer than a message may be.
    bool Put(const void* head, uint32_t headBytes, const void* body, uint32_t bodyBytes) {
        const uint32_t length = headBytes + bodyBytes;
        if (length > DMA_MESSAGE_CAPACITY || !HasRoomFor(length)) return false;
        const uint32_t lines = RingLinesOf(length);
        RingLine* first = m_ring->lines + m_index;
        const uint32_t next = RingNext(m_index, lines, m_lineCount);
        RingHead(m_ring->lines[next]).store(0, std::memory_order_relaxed);
        std::memcpy(first->bytes + RING_HEAD_BYTES, head, headBytes);
        if (bodyBytes > 0) std::memcpy(first->bytes + RING_HEAD_BYTES + headBytes, body, bodyBytes);
        RingHead(*first).store(RING_READY | length, std::memory_order_release);
        m_index = next;
        m_written += lines;
        return true;
    }

    uint64_t Written() const { return m_written; }  ///< lines, counted since the beginning

private:
    void Refresh() {
        const uint64_t told = std::atomic_ref<uint64_t>(m_ring->released).load(std::memory_order_acquire);
        // Written by another process: never believed beyond what was handed over, nor backwards.
        if (told >= m_released && told <= m_written) m_released = told;
    }

    DmaRing* m_ring;
    uint32_t m_lineCount;
    uint32_t m_index = 0;
    uint64_t m_written = 0;
    uint64_t m_released =
        0;  ///< as last looked at: for a message the consumer's line is read only when this says "full"
};

class RingConsumer {
public:
    /// Goes on where the last consumer has given lines back: always at the beginning of a message.
    RingConsumer(DmaRing& ring, uint32_t lineCount)
        : m_ring(&ring), m_lineCount(lineCount), m_releaseStep(lineCount / RELEASES_PER_LAP) {
        m_consumed = std::atomic_ref<uint64_t>(ring.released).load(std::memory_order_acquire);
        m_published = m_consumed;
        m_index = static_cast<uint32_t>(m_consumed % lineCount);
    }

    /// The message in front, null when there is none. It stays where it is until Pop.
    const unsigned char* Front(uint32_t& length) {
        RingLine* line = m_ring->lines + m_index;
        // The three lines of a record are asked for at once, which is a few per cent faster than one after the other.
        __builtin_prefetch(line + 1);
        __builtin_prefetch(line + 2);
        const uint32_t head = RingHead(*line).load(std::memory_order_acquire);
        if ((head & RING_READY) == 0) return nullptr;
        length = head & ~RING_READY;
        // The memory is shared: a length that no producer writes is taken for an empty message.
        if (length > DMA_MESSAGE_CAPACITY) length = 0;
        m_frontLines = RingLinesOf(length);
        return line->bytes + RING_HEAD_BYTES;
    }

    /// Gives the message in front back. Told to the producer lazily, some times a lap.
    void Pop() {
        m_index = RingNext(m_index, m_frontLines, m_lineCount);
        m_consumed += m_frontLines;
        m_frontLines = 0;  // a handler may have discarded everything meanwhile
        if (m_consumed - m_published >= m_releaseStep) Publish();
    }

    /// Hands the message in front to `handler`, if there is one; it stays in its place until the handler has returned,
    /// by whatever way.
    bool HandOver(VexaBoardMessageHandler handler, void* user) {
        uint32_t length = 0;
        const unsigned char* message = Front(length);
        if (message == nullptr) return false;
        struct Popper {
            RingConsumer& ring;
            ~Popper() { ring.Pop(); }
        } const popper{*this};
        handler(message, length, user);
        return true;
    }

    bool IsEmpty() {
        uint32_t length = 0;
        return Front(length) == nullptr;
    }

    /// Passes over all that is there; so many messages at most as the ring has lines, since the producer may go on
    /// meanwhile.
    void Discard() {
        uint32_t length = 0;
        for (uint32_t passed = 0; passed < m_lineCount && Front(length) != nullptr; ++passed) Pop();
        Publish();
    }

private:
    static constexpr uint32_t RELEASES_PER_LAP = 8;

    void Publish() {
        m_published = m_consumed;
        std::atomic_ref<uint64_t>(m_ring->released).store(m_published, std::memory_order_release);
    }

    DmaRing* m_ring;
    uint32_t m_lineCount;
    uint32_t m_releaseStep;
    uint32_t m_index = 0;
    uint32_t m_frontLines = 0;
    uint64_t m_consumed = 0;
    uint64_t m_published = 0;
};

}  // namespace software_board

/// A process's way to a board that another process serves. Each object is used from one thread.
///
/// A board may end at any moment, and the next one of its bus be there at once: all zero, never brought up. So that no
/// host takes it for the old one, everything that was opened on a board fails once that has ended. Registers go over to
/// the next board with the write that begins a bring-up; a stream has failed at least once before it goes over.
#pragma once

#include <optional>
#include <string>

#include "public/reg/BoardProvider.h"
#include "software_board/DmaRing.h"
#include "software_board/SharedMemory.h"

namespace software_board {

class SharedRegisters {
public:
    bool Open(uint16_t bus, std::string& error);

    /// Plain registers are written where they are; those that the board must act on are handed to its server, and the
    /// call returns when it has acted. False when the board has ended, or its server does not answer.
    bool Write(uint32_t index, uint32_t value);

    /// False when the board has ended; `value` is left alone then.
    bool Read(uint32_t index, uint64_t& value);

private:
    static constexpr uint32_t ACCESSES_PER_LOOK = 4096;  // a look costs as much as a hundred of them

    bool IsThere(bool isLookDue);

    uint16_t m_bus = 0;
    SharedMapping m_mapping;
    bool m_hasEnded = false;
    uint32_t m_accesses = 0;
};

class SharedStream {
public:
    static constexpr int32_t BOARD_ENDED = -1;  ///< instead of a number of messages

    ~SharedStream() { Release(); }

    /// False when no board is served, or a living process holds the channel.
    bool Open(uint16_t bus, int32_t channel, std::string& error);

    /// One poll: the number of messages handed over, or BOARD_ENDED once it has. An empty one looks whether it
    /// has, and now and then whether the server lives. From the next poll on a board that is served anew is looked for;
    /// the stream goes over to it, and the host is told that packets were lost.
    int32_t Receive(VexaBoardMessageHandler handler, void* user) {
        if (m_ring->HandOver(handler, user)) [[likely]]
            return 1;
        if (!m_hasEnded && !m_mapping.HasEnded() && ++m_emptyPolls % POLLS_PER_LOOK != 0) [[likely]]
            return 0;
        return m_hasEnded ? GoOver(handler, user) : LookAfterServer();
    }

private:
    static constexpr uint32_t POLLS_PER_LOOK = 4096;  // a look costs as much as a thousand polls

    static constexpr int64_t LOOK_EVERY_NS = 50'000'000;  // for a board that is served anew

    int32_t LookAfterServer();
    int32_t GoOver(VexaBoardMessageHandler handler, void* user);
    bool MayLook();
    bool OpenAgain();
    void Release();

    uint16_t m_bus = 0;
    int32_t m_channel = 0;
    SharedMapping m_mapping;
    std::optional<RingConsumer> m_ring;
    uint32_t m_emptyPolls = 0;
    bool m_hasEnded = false;
    std::optional<int64_t> m_nextLookAt;  ///< on the monotonic clock; none when at once
};

/// Asks the serving process to act: on a register write (`text` empty), or on faults put in from outside. False when it
/// is refused, or nobody answers; `text` then says why.
bool AskServer(const SharedMapping& board, RequestBox& box, uint32_t index, uint32_t value, std::string& text);

}  // namespace software_board

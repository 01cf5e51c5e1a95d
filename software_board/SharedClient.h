/// A process's way to a board that another process serves. Each object is used from one thread.
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
    /// call returns when it has acted. A board that was served anew meanwhile is attached to with the next of these.
    /// False when there is no server, or it does not answer.
    bool Write(uint32_t index, uint32_t value);
    uint64_t Read(uint32_t index);

private:
    uint16_t m_bus = 0;
    SharedMapping m_mapping;
};

class SharedStream {
public:
    ~SharedStream() { Release(); }

    /// False when no board is served, or a living process holds the channel.
    bool Open(uint16_t bus, int32_t channel, std::string& error);

    /// One poll. Now and then an empty one looks after the server: once the board is served anew, the stream goes over
    /// to it and the host is told that packets were lost.
    bool Receive(VexaBoardMessageHandler handler, void* user) {
        if (m_ring->HandOver(handler, user)) [[likely]]
            return true;
        if (++m_emptyPolls % POLLS_PER_LOOK != 0) return false;
        return LookAfterServer(handler, user);
    }

private:
    static constexpr uint32_t POLLS_PER_LOOK = 4096;  // a look costs as much as a thousand polls

    bool LookAfterServer(VexaBoardMessageHandler handler, void* user);
    void Release();

    uint16_t m_bus = 0;
    int32_t m_channel = 0;
    SharedMapping m_mapping;
    std::optional<RingConsumer> m_ring;
    uint32_t m_emptyPolls = 0;
};

/// Asks the serving process to act: on a register write (`text` empty), or on a fault put in from outside. False when
/// it is refused, or nobody answers.
bool Ask(SharedBoard& board, RequestBox& box, uint32_t index, uint32_t value, std::string& text);

}  // namespace software_board

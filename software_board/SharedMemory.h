/// A board's memory between processes: /dev/shm/vexa-board-<bus>, owner only. One process serves it, any number of the
/// owner's processes attach.
#pragma once

#include <cstdint>
#include <string>

#include "software_board/BoardMemory.h"
#include "software_board/ProcessId.h"

namespace software_board {

constexpr uint32_t REQUEST_TEXT_CAPACITY = 4068;  ///< with the words before it 4 KiB

/// Work that another process asks the serving one for; one at a time.
struct RequestBox {
    uint64_t claimedBy;  ///< ProcessId; 0: free
    uint32_t asked;      ///< counts requests; by the asking process
    uint32_t answered;   ///< the request that was answered last; by the serving process
    uint32_t isRefused;  ///< the answer
    uint32_t index;      ///< of the register, for a command; what is asked for (EInjection), for an injection
    uint32_t value;
    char text[REQUEST_TEXT_CAPACITY];  ///< the faults asked for, then what is wrong with them
};

std::string TextOf(const RequestBox& box);

enum EInjection : uint32_t {
    INJECT_FAULTS = 0,  ///< those that the text names
    CLEAR_FAULTS = 1,   ///< every fault, those to come too
};

struct SharedBoard {
    uint64_t magic;    ///< written last, so that it stands in a whole board only
    uint32_t version;  ///< of this layout
    uint32_t size;     ///< of this record
    ProcessId server;
    /// The board has ended: set by its server when it ends in good order, by the next one of this bus otherwise.
    uint32_t hasEnded;
    uint32_t ringLines;  ///< of each channel's ring
    uint64_t servedSince;
    uint64_t seed;
    std::array<uint32_t, FEED_COUNT> instruments;  ///< that the exchange lists
    alignas(CACHE_LINE) RequestBox command;        ///< register writes that the board must act on
    alignas(CACHE_LINE) RequestBox injection;
    BoardMemory memory;
};

static_assert(sizeof(RequestBox) % CACHE_LINE == 0 && offsetof(SharedBoard, command) == CACHE_LINE);

constexpr uint64_t SHARED_BOARD_MAGIC = 0x315244424158'4556;  // "VEXABDR1"
constexpr uint32_t SHARED_BOARD_VERSION = 2;

std::string SharedBoardPath(uint16_t bus);

/// The mapping of one process.
class SharedMapping {
public:
    SharedMapping() = default;
    ~SharedMapping() { Close(); }
    SharedMapping(const SharedMapping&) = delete;
    SharedMapping& operator=(const SharedMapping&) = delete;
    SharedMapping(SharedMapping&& other) noexcept { Swap(other); }
    SharedMapping& operator=(SharedMapping&& other) noexcept {
        Swap(other);
        return *this;
    }

    /// Makes the board of this bus, all zero, to be served by this process; Publish makes it one to attach to. What a
    /// crashed server left is replaced, and those who are still attached to it can see that it has ended; a board that
    /// is being served is refused. False with a text that says why.
    bool Create(uint16_t bus, std::string& error);
    void Publish();

    /// Attaches to a board that is being served. `isReadOnly` for those who only look.
    bool Attach(uint16_t bus, bool isReadOnly, std::string& error);

    /// The server takes its board's name away as well.
    void Close();

    // Of a board attached to: what was found sound then, whatever stands in the memory now.
    ProcessId Server() const { return m_server; }
    uint32_t RingLines() const { return m_ringLines; }

    /// True once the board is known to have ended. Costs one load.
    bool HasEnded() const { return Load(m_board->hasEnded) != 0; }
    /// Looks whether the server lives. Costs some system calls.
    bool IsServed() const { return !HasEnded() && IsAlive(m_server); }

    explicit operator bool() const { return m_board != nullptr; }
    SharedBoard& operator*() const { return *m_board; }
    SharedBoard* operator->() const { return m_board; }

private:
    void Swap(SharedMapping& other) noexcept;
    bool Map(int descriptor, bool isReadOnly);
    std::string WhyUnusable(uint16_t bus);

    SharedBoard* m_board = nullptr;
    ProcessId m_server = 0;
    uint32_t m_ringLines = 0;
    std::string m_path;
    int m_lock = -1;  ///< the server's hold on the file, which ends with the process
};

}  // namespace software_board

/// All that a host can reach of a board, as one block of plain data: on the heap of one process, or in memory shared by
/// the process that serves the board and those that use it. All zero is a board that was never brought up.
///
/// Any process of the owner may write any word of it at any time. Words that two processes look at go through Load and
/// Store, and whoever depends on one reads it once, into a local, and checks that. Slots are copied word by word. The
/// bytes of the messages in the rings alone are read as they stand.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/FpgaStructCommon.h"
#include "software_board/DmaRing.h"

namespace software_board {

constexpr uint32_t REGISTER_COUNT = 0x30000;
constexpr std::size_t CACHE_LINE = 64;

template <typename Word>
Word Load(const Word& word) {
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_relaxed);
}

template <typename Word>
void Store(Word& word, Word value) {
    std::atomic_ref<Word>(word).store(value, std::memory_order_relaxed);
}

/// For counters with one writer.
template <typename Word>
void Add(Word& word, Word more) {
    Store(word, static_cast<Word>(Load(word) + more));
}

/// What the board has seen and done; never goes back.
struct BoardStatistics {
    uint64_t bringUps = 0;
    uint64_t registerWrites = 0;
    uint64_t registerReads = 0;
    uint64_t refusedTableWrites = 0;  ///< through a closed port
    uint64_t snapshotConnections = 0;
    uint64_t snapshotFrames = 0;
    uint64_t liveUpdates = 0;           ///< updates of the exchange since the first engine start
    uint64_t lostUpdates = 0;           ///< of these, never applied to the board's tables
    uint64_t delivered = 0;             ///< records put into rings
    uint64_t overruns = 0;              ///< messages that found a ring full
    uint64_t refusedSnapshotOpens = 0;  ///< without a bring-up before
    uint64_t refusedEngineStarts = 0;   ///< without a bring-up and a snapshot phase before
};

enum class EBoardPhase : uint32_t { Idle = 0, Memory = 1, Snapshot = 2, Tables = 3, Live = 4 };

/// The registers of one table's two-step access.
struct TablePortState {
    uint32_t writeData = 0;
    uint32_t readAddress = 0;
    uint32_t isOpen = 0;
};

/// What a feed's snapshot connection needs, one bit each.
enum EProgrammed : uint32_t {
    PROGRAMMED_HOST_IP = 1U << 0,     ///< the session's source address
    PROGRAMMED_HOST_PORT = 1U << 1,   ///< and port
    PROGRAMMED_GROUP_IP = 1U << 2,    ///< line A's group
    PROGRAMMED_GROUP_PORT = 1U << 3,  ///< and its port
    PROGRAMMED_ALL = (1U << 4) - 1,
};

/// What is broken about a board, one bit each.
enum EBroken : uint32_t {
    BROKEN_CARD = 1U << 0,           ///< every read gives all ones, no write arrives: the card is gone
    BROKEN_VERSION_WRITE = 1U << 1,  ///< the host's version never arrives
    BROKEN_STREAMS = 1U << 2,        ///< no stream can be opened
    BROKEN_REGISTERS = 1U << 3,      ///< the registers cannot be opened
    BROKEN_MEMORY = 1U << 4,         ///< HBM2 never becomes ready
};

struct BoardRegisters {
    uint32_t values[REGISTER_COUNT];
    uint32_t broken;  ///< EBroken
    uint32_t hardwareVersion;
    uint32_t isMemoryReady;
    uint32_t phase;  ///< EBoardPhase
    /// For each feed what the host has written of its connection since the snapshot phase was opened (EProgrammed).
    std::array<uint32_t, FEED_COUNT> programmed;
    std::array<TablePortState, FEED_COUNT> ports;
    std::array<uint64_t, FEED_COUNT> packets;
    std::array<uint64_t, FEED_COUNT> lastUpdate;  ///< seconds since the epoch
    uint64_t events;
};

/// The slots of the four tables, feed behind feed.
constexpr std::size_t SLOT_COUNT = 2 * (std::size_t{SHFE_INST_CAPACITY} + INE_INST_CAPACITY);

struct ChannelMemory {
    /// The process that reads the channel (ProcessId); 0 when nobody does.
    alignas(CACHE_LINE) uint64_t holder;
    // The producer's line.
    alignas(CACHE_LINE) uint64_t written;  ///< lines of the ring, counted since the beginning
    uint64_t delivered;                    ///< records
    uint64_t dropped;                      ///< messages that found the ring full, or were lost on purpose
    uint32_t hasOverrun;                   ///< the host has not been told yet
    std::array<uint32_t, 4> lastEvent;     ///< event_data0 to event_data3 of the last event put into the ring
    DmaRing ring;
};

/// Tells a host that messages for it were lost.
constexpr U50Event LOST_EVENT{DMA_EVENT, sizeof(U50Event), (EVENT_LOST & EVENT_GROUP), 0, 0, 0, 0, 0};

struct BoardMemory {
    BoardStatistics statistics;
    BoardRegisters registers;
    SInstTableType slots[SLOT_COUNT];
    ChannelMemory channels[CHANNEL_SIZE];
};

}  // namespace software_board

/// The software board: answers the board provider interface as the card does, as far as the host can tell, with the
/// synthetic exchange behind it. Stepped by `receive` on the caller's thread; it makes no thread of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "common/FpgaStructCommon.h"
#include "exchange/Exchange.h"
#include "exchange/Faults.h"
#include "public/reg/BoardProvider.h"

namespace software_board {

struct BoardOptions {
    exchange::ExchangeOptions exchange;
    exchange::Faults faults;
    uint16_t shfeSnapPort = 33022;  ///< TCP source port of the snapshot servers
    uint16_t ineSnapPort = 33022;
    uint32_t updatesPerSecond = 0;    ///< pace of the live updates by the clock; 0: one whenever the host asks
    uint32_t lostPacketAfter = 2000;  ///< live updates before the packet-lost fault without a moment
    uint32_t hbm2ReadyMs = 500;       ///< from the start of a bring-up
    uint32_t hardwareVersion = 0x20260420;
    uint32_t ringMessages = 8192;  ///< capacity of one channel's ring
};

/// What the board has seen and done; never goes back.
struct BoardStatistics {
    uint64_t bringUps = 0;
    uint64_t registerWrites = 0;
    uint64_t registerReads = 0;
    uint64_t refusedTableWrites = 0;  ///< through a closed port
    uint64_t snapshotConnections = 0;
    uint64_t snapshotFrames = 0;
    uint64_t liveUpdates = 0;  ///< updates of the exchange since the first engine start
    uint64_t lostUpdates = 0;  ///< of these, never applied to the board's tables
    uint64_t delivered = 0;    ///< records put into rings
    uint64_t overruns = 0;     ///< messages that found a ring full
};

class SoftwareBoard {
public:
    explicit SoftwareBoard(const BoardOptions& options);
    ~SoftwareBoard();

    /// Registers as the host sees them.
    void Write(uint32_t index, uint32_t value);
    uint32_t Read(uint32_t index);
    uint64_t Read64(uint32_t index);

    /// One poll of a channel's stream: at most one message.
    bool Receive(int32_t channel, VexaBoardMessageHandler handler, void* user);
    void OpenStream(int32_t channel);
    void CloseStream(int32_t channel);

    /// The board's copy of a slot, past the table ports (for tests).
    const SInstTableType& Slot(EMDQPDataType feed, int32_t instNo) const;
    bool IsPortOpen(EMDQPDataType feed) const;
    bool IsLive() const;  ///< the engines run

    /// From now on the exchange moves every instrument exactly once more and then stops: what an application holds
    /// once nothing more arrives must equal the truth.
    void FinishAfterOneMoreOfEach();
    bool IsDrained() const;  ///< nothing is left to deliver

    /// Loses `updates` updates of the exchange and says so with a packet-lost event.
    void LosePackets(uint32_t updates);

    /// Puts an event message into a channel's ring.
    void RaiseEvent(int32_t channel, const U50Event& event);

    exchange::Exchange& Market();
    const BoardStatistics& Statistics() const;

    /// Called for every register write, before it takes effect (progress displays, traces).
    std::function<void(uint32_t index, uint32_t value)> onWrite;

    SoftwareBoard(const SoftwareBoard&) = delete;
    SoftwareBoard& operator=(const SoftwareBoard&) = delete;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// The provider table over the boards of this process, one per bus number. A board that was not installed is made when
/// its registers or a stream are first opened, from the provider argument: "key=value" pairs, comma-separated:
/// seed, shfe, ine (instruments), rate (updates per second), faults (names joined by "+", each with "@moment" or
/// without), lost_after.
const VexaBoardProvider& Provider();

/// Puts `board` on `bus`; null takes it away. The board stays the caller's.
void InstallBoard(uint16_t bus, SoftwareBoard* board);

/// Reads a provider argument into `options`; false with a text that names the key or value and what is allowed.
bool ParseArgument(std::string_view argument, BoardOptions& options, std::string& error);

}  // namespace software_board

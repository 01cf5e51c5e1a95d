/// The software board: answers the board provider interface as the card does, as far as the host can tell, with the
/// synthetic exchange behind it. Stepped by `receive` on the caller's thread; it makes no thread of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "common/FpgaStructCommon.h"
#include "exchange/Exchange.h"
#include "public/reg/BoardProvider.h"
#include "software_board/BoardMemory.h"
#include "software_board/BoardOptions.h"

namespace software_board {

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
    bool IsDrained() const;                     ///< nothing is left to deliver
    bool HasMessageFor(int32_t channel) const;  ///< in its ring, or to be told of its ring

    /// Loses `updates` updates of the exchange and says so with a packet-lost event.
    void LosePackets(uint32_t updates);

    /// Puts an event message into a channel's ring.
    void RaiseEvent(int32_t channel, const U50Event& event);

    /// The feed's last update was then, in seconds since the epoch, until its next one.
    void SetLastUpdate(EMDQPDataType feed, uint64_t seconds);

    /// Lets faults happen from now on, by name (exchange::ParseFaults). False with a text that tells what is wrong.
    bool Inject(std::string_view names, std::string& error);
    void ClearFaults();  ///< all of them, those to come too

    exchange::Exchange& Market();
    const BoardMemory& Memory() const;
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
/// its registers or a stream are first opened, from the provider argument (ParseArgument).
const VexaBoardProvider& Provider();

/// Puts `board` on `bus`; null takes it away. The board stays the caller's.
void InstallBoard(uint16_t bus, SoftwareBoard* board);

}  // namespace software_board

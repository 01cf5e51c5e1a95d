/// What makes a board move: bring-up, snapshot connections, live updates, events. Acts on the board's memory alone and
/// is driven step by step: by the polls of the process that holds the board, or by the process that serves it.
#pragma once

#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/Exchange.h"
#include "software_board/BoardFaultSchedule.h"
#include "software_board/BoardMemory.h"
#include "software_board/BoardOptions.h"
#include "software_board/DmaRing.h"
#include "software_board/SnapshotService.h"

namespace software_board {

class BoardEngine {
public:
    /// `memory` must be all zero and outlive the engine.
    BoardEngine(const BoardOptions& options, BoardMemory& memory);
    BoardEngine(const BoardEngine&) = delete;
    BoardEngine& operator=(const BoardEngine&) = delete;

    /// Acts on a command register that was written (IsCommand).
    void Execute(uint32_t index, uint32_t value);

    // Each of these does one thing that is due, and tells whether there was one.
    bool TellMemoryReady();
    bool TellOverrun(int32_t channel);  ///< once there is room again
    bool SnapshotStep();                ///< one frame to channel 0, unless its ring is full
    bool LiveStep();                    ///< one update of the exchange

    void PutEvent(int32_t channel, const U50Event& event);
    void LosePackets(uint32_t updates);

    /// Lets faults happen from now on, by name; the moment of a board fault counts from here. False with a text that
    /// tells what is wrong.
    bool Inject(std::string_view names, std::string& error);

    /// Ends every fault: those that last, and those still to come. Snapshot connections under way keep theirs.
    void ClearFaults();

    /// From now on every instrument moves exactly once more.
    void FinishAfterOneMoreOfEach();
    bool HasFinished() const;

    bool IsLive() const { return m_isLive; }
    exchange::Exchange& Market() { return m_market; }
    uint32_t RingLineCount() const { return m_ringLines; }

private:
    void BringUp();
    void OpenSnapshot();
    void CloseSnapshot();
    void ConnectProgrammedFeeds();
    bool MayAcknowledge();
    void StartEngine(uint32_t index);
    void Refuse(uint32_t index, uint64_t& count);
    void EnterPhase(EBoardPhase phase);

    void PutEventToAll(const U50Event& event);
    void Drop(std::size_t channel);
    bool Put(std::size_t channel, const void* head, uint32_t headBytes, const void* body, uint32_t bodyBytes);

    void CountUpdates(uint32_t updates);
    bool IsDue() const;
    bool NextOfSweep(exchange::LiveUpdate& update);
    void CountPacket(EMDQPDataType feed);
    void ApplyUpdate(const exchange::LiveUpdate& update);

    // ---- faults (BoardFaults.cpp) ----
    void ApplyDueFaults();
    void ApplyFault(exchange::EFault fault);
    void MarkBroken(EBroken what);
    void StopTheMarketAt(int hour, int minute);

    BoardOptions m_options;
    BoardMemory& m_memory;
    exchange::Exchange m_market;
    SnapshotService m_snapshot;
    uint32_t m_ringLines;
    std::vector<RingProducer> m_rings;
    std::vector<uint8_t> m_frame;  ///< the next one to arrive; empty when it has to be fetched

    std::optional<int64_t> m_memoryReadyAt;   ///< on the monotonic clock; none before the first bring-up, or once told
    EBoardPhase m_phase = EBoardPhase::Idle;  ///< the host is told, not asked
    bool m_isSnapshotOpen = false;
    uint64_t m_lists = 0;                            ///< of instruments, where they change
    std::bitset<FEED_COUNT> m_connected;             ///< feeds, since the snapshot phase was opened
    std::optional<int64_t> m_nextAcknowledgementAt;  ///< on the monotonic clock; none when at once
    bool m_isLive = false;
    int64_t m_liveSince = 0;
    uint64_t m_updates = 0;  ///< of the exchange
    uint64_t m_updatesSinceLive = 0;
    BoardFaultSchedule m_faultSchedule;
    uint32_t m_quietSteps = 0;  ///< steps for which the exchange stays silent
    uint32_t m_dropRecords = 0;
    bool m_isFinishing = false;
    std::size_t m_sweepPosition = 0;
};

}  // namespace software_board

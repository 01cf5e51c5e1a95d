/// Holds a receiver of snapshot streams to the rules: what is decoded is what was sent, whatever is dropped is counted
/// once, and a reset leaves nothing behind.
#pragma once

#include <array>
#include <cstdint>

#include "fuzz/SnapshotStream.h"
#include "src/board/RegisterWriter.h"
#include "src/snapshot/SnapshotPhase.h"
#include "testing/SnapshotUnits.h"

namespace fuzz {

class SnapshotWatch;

/// The snapshot phase with all that it works on. What the reassembly hands on goes past a watch.
struct SnapshotReceiver final : IStreamHandler {
    Identity OnConnection(const uint8_t* payload, uint32_t length, uint16_t port) override {
        return units.feeds.OnConnection(payload, length, port);
    }
    bool OnMessage(const uint8_t* message, uint32_t arrived, uint16_t port, const tcp_session_t& session) override;

    SnapshotState state;
    SnapshotWatch* watch = nullptr;
    CRegisterWriter registers{CDrvRegEnyx::GetInstance()};
    SnapshotUnits units{state, registers, this};
    CSnapshotPhase phase{{state.config, CDrvRegEnyx::GetInstance(), CWriteShot::GetInstance(), state.counters},
                         {units.reassembly, units.store, state.isLoaded, state.priceErrors}};
};

class SnapshotWatch {
public:
    explicit SnapshotWatch(SnapshotReceiver& receiver);
    ~SnapshotWatch();
    SnapshotWatch(const SnapshotWatch&) = delete;
    SnapshotWatch& operator=(const SnapshotWatch&) = delete;

    std::array<Stream, STREAM_COUNT> streams;

    /// Sends bytes `begin` to `end` of the stream, and looks at what became of them.
    void Send(Stream& stream, std::size_t begin, std::size_t end, EWrong wrong);

    /// Sends what belongs to no stream. Where it may have reached one, that is followed no further.
    void SendStranger(const std::vector<uint8_t>& message);

    /// The session's data are cleared, and nothing is left of them.
    void Clear();

    /// Called for every message that is handed on. True when it was its feed's last.
    bool Decode(const uint8_t* message, uint32_t arrived, uint16_t port, const tcp_session_t& session);

private:
    /// What one message may change.
    struct State {
        CCounters counters;
        uint32_t early;
        tcp_session_t session;
    };
    struct FieldCounts;

    State Look(uint16_t port) const;
    uint64_t Moved(const State& before, ECounter counter) const;
    void Hand(const std::vector<uint8_t>& message);
    bool WasStoppedByFilter(const State& before) const;
    void Follow(Stream& stream, std::size_t begin, std::size_t end, EWrong wrong);
    void RequireOneCount(const State& before, EWrong wrong) const;
    void RequireBalance(const State& before, const Stream& stream, std::size_t begin, std::size_t end) const;
    void RequireWhereabouts(const Stream& stream) const;
    FieldCounts CountFields(const uint8_t* message, EMDQPDataType feed) const;

    SnapshotReceiver& m_receiver;
};

}  // namespace fuzz

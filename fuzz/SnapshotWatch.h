/// Holds a receiver of snapshot streams to the rules: what is decoded is what was sent, whatever is dropped is counted
/// once, and a reset leaves nothing behind.
#pragma once

#include <array>
#include <cstdint>

#include "fuzz/SnapshotStream.h"
#include "tests/support/TestableApi.h"

namespace fuzz {

class SnapshotWatch {
public:
    explicit SnapshotWatch(TestableApi& api);
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

    /// Called for every message that is decoded.
    int32_t Decode(mdqp_t* message, uint16_t dstPort);

    static SnapshotWatch* Current();

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
    FieldCounts CountFields(const mdqp_t& message, EMDQPDataType feed) const;

    TestableApi& m_api;
};

}  // namespace fuzz

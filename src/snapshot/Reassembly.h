/// Makes a byte stream of the segments of each snapshot connection and cuts it into MDQP messages. One thread.
///
///     checked frame -> connection -> in-order bytes -> whole messages -> IStreamHandler
///                          |             |
///                    early segments   carry-over: the message that a segment's end has cut
///
/// Invariants: lost_flag is 1 exactly while the list holds entries; frag_buf_offset stays below FRAG_BUF_LIMIT; a
/// message is handed on only when all of it has arrived, or when it is of no feed. All connections together hold a
/// bounded number of early segments and of carry-over buffers, whatever arrives.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>

#include "src/Counters.h"
#include "src/snapshot/CarryOverOwners.h"
#include "src/snapshot/SnapshotFrame.h"
#include "src/snapshot/TcpSession.h"

/// Takes what the streams carry. It must not call back into the reassembly.
class IStreamHandler {
public:
    struct Identity {
        bool isKnown;    ///< the connection's feed
        bool isRefused;  ///< the connection, payload and all
    };

    /// A connection's first payload, which begins with a message.
    virtual Identity OnConnection(const uint8_t* payload, uint32_t length, uint16_t port) = 0;

    /// The next message of a stream. `arrived` bytes are readable, eight at least; fewer than its header announces may
    /// be there where its connection's first message was longer than the payload it came in. True when it was the
    /// feed's last: what follows on the connection is another's.
    virtual bool OnMessage(const uint8_t* message, uint32_t arrived, uint16_t port, const tcp_session_t& session) = 0;

protected:
    ~IStreamHandler() = default;
};

class CReassembly {
public:
    using Sessions = tcp_session_t[TCP_SESSION_COUNT];

    /// What it works on outlives it.
    CReassembly(Sessions& sessions, CCounters& counters, IStreamHandler& handler)
        : m_sessions(sessions), m_counters(counters), m_handler(handler) {}
    ~CReassembly() { Clear(); }
    CReassembly(const CReassembly&) = delete;
    CReassembly& operator=(const CReassembly&) = delete;

    enum class EResult {
        Taken,
        BeginAgain,  ///< so many segments came early that the whole snapshot has to begin anew; nothing was cleared
    };

    /// A segment of the connection to its local port, or the first of a new one.
    EResult Receive(const SnapshotFrame& frame);

    /// Makes the port's session ready for a new connection. 0, or -1 when there is no carry-over buffer for it.
    int32_t Open(tcp_session_t& session, int32_t port);

    /// Empties a session and frees what it holds.
    void Reset(tcp_session_t& session);

    /// The session is in use no more.
    static void Close(tcp_session_t& session) { session.init = 0; }

    /// Resets every session that was touched since the last time.
    void Clear();

    uint32_t EarlySegments() const { return m_earlySegments; }
    uint32_t CarryOverBuffers() const { return m_carryOverOwners.Count(); }
    uint32_t TouchedSessions() const { return m_touchedCount; }
    uint16_t TouchedPort(uint32_t index) const { return m_touched[index]; }

private:
    /// Where the size of a message behind the first one of a payload is taken from.
    enum class EMessageStep { OwnLength, FirstLength };

    void Touch(uint16_t port);
    uint8_t* NewFragBuf();
    uint8_t* DetachFragBuf(tcp_session_t& session);
    void FreeEarlySegments(tcp_session_t& session);

    void BeginConnection(tcp_session_t& session, const SnapshotFrame& frame);
    EResult ReceiveOfConnection(tcp_session_t& session, const SnapshotFrame& frame);
    bool DeliverPayload(tcp_session_t& session, const SnapshotFrame& frame);
    void DeliverMessages(tcp_session_t& session, const SnapshotFrame& frame, EMessageStep step);
    void DeliverBehindCarryOver(tcp_session_t& session, const SnapshotFrame& frame);
    void DeliverCarryOver(tcp_session_t& session);
    void HandOn(tcp_session_t& session, const uint8_t* message, uint32_t arrived);

    EResult StoreEarlySegment(tcp_session_t& session, const SnapshotFrame& frame);
    void InsertEarlySegment(tcp_session_t& session, const SnapshotFrame& frame);
    tcp_lost_buf_t* NewEarlySegment(const SnapshotFrame& frame);
    tcp_lost_buf_t* DetachFirstEarlySegment(tcp_session_t& session);
    void DrainEarlySegments(tcp_session_t& session);

    Sessions& m_sessions;
    CCounters& m_counters;
    IStreamHandler& m_handler;

    uint32_t m_earlySegments = 0;
    CCarryOverOwners m_carryOverOwners;

    // Which sessions were touched, so that clearing costs no more than it has to.
    std::bitset<TCP_SESSION_COUNT> m_isTouched;
    std::array<uint16_t, TCP_SESSION_COUNT> m_touched{};
    uint32_t m_touchedCount = 0;
};

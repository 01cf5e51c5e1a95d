// Runs on the receiving thread; see the header for what goes in and out. A delivery may end the use of its session, so
// nothing is remembered across one but the session itself.
#include "src/snapshot/Reassembly.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "common/Mdqp.h"
#include "public/log/LogLine.h"

namespace {

/// A first payload must be longer than a message with the snapshot's identification alone.
constexpr uint32_t FIRST_PAYLOAD_BYTES = 44;

constexpr uint32_t HEADER_BYTES = sizeof(mdqp_t);
constexpr uint32_t MARK_BYTES = offsetof(mdqp_t, length);  // flag and type, by which a message is known

/// Of a header that its segment cuts short the first two bytes are enough.
bool IsMessageStart(const uint8_t* bytes, uint32_t length) {
    if (length < MARK_BYTES) return false;
    const uint8_t flag = bytes[offsetof(mdqp_t, flag)];
    return (flag == mdqp::FLAG_LAST || flag == mdqp::FLAG_MORE) &&
           bytes[offsetof(mdqp_t, type_id)] == mdqp::TYPE_SNAPSHOT;
}

bool IsFirstPayload(const SnapshotFrame& frame) {
    if (frame.payloadLength <= FIRST_PAYLOAD_BYTES) return false;
    const auto header = snapshot_frame::Raw<mdqp_t>(frame.payload);
    return header.flag == mdqp::FLAG_MORE && header.type_id == mdqp::TYPE_SNAPSHOT;
}

/// Entries keep whole frames that were checked when they came.
SnapshotFrame FrameOf(const tcp_lost_buf_t& entry) {
    SnapshotFrame frame{};
    if (snapshot_frame::ReadHeaders(entry.buf, entry.len, frame)) snapshot_frame::ReadPayload(frame);
    return frame;
}

uint32_t SeqOf(const tcp_lost_buf_t& entry) { return FrameOf(entry).seq; }

struct FreeEntry {
    void operator()(tcp_lost_buf_t* entry) const { std::free(entry); }
};

/// Keeps the start of a message until the rest has come. `data` may lie in the buffer itself.
void KeepTail(tcp_session_t& session, const uint8_t* data, uint32_t length) {
    std::memmove(session.frag_buf, data, length);
    session.frag_buf_offset = length;
    session.frag_flag = 1;
}

void KeepNothing(tcp_session_t& session) {
    session.frag_buf_offset = 0;
    session.frag_flag = 0;
}

void LinkFirst(tcp_session_t& session, tcp_lost_buf_t* entry) {
    session.lost_buf_head = entry;
    session.lost_flag = 1;
    ++session.lost_buf_size;
}

void LinkBefore(tcp_session_t& session, tcp_lost_buf_t* follower, tcp_lost_buf_t* entry) {
    entry->next = follower;
    entry->before = follower->before;
    if (entry->before == nullptr) {
        session.lost_buf_head = entry;
    } else {
        entry->before->next = entry;
    }
    follower->before = entry;
    ++session.lost_buf_size;
}

void LinkAfterLast(tcp_session_t& session, tcp_lost_buf_t* last, tcp_lost_buf_t* entry) {
    entry->before = last;
    last->next = entry;
    ++session.lost_buf_size;
}

}  // namespace

// ---- the session's memory -----------------------------------------------------------------------------------------

int32_t CReassembly::Open(tcp_session_t& session, int32_t port) {
    Touch(static_cast<uint16_t>(port));
    if (session.frag_buf == nullptr) {
        const bool isMade = !m_carryOverOwners.IsFull();
        session.frag_buf = NewFragBuf();
        if (session.frag_buf == nullptr) {
            VEXA_LOG_AS("_InitTcpSession", LOG_ERROR, "failed to allocate memcory for fragment memory.");
            return -1;
        }
        m_carryOverOwners.Add(session);
        // One that changes hands was told when it was made: a scan of all ports would fill the log.
        if (isMade)
            VEXA_LOG_AS("_InitTcpSession", LOG_DEBUG, " dstPort:%d frag_buf:%p", port,
                        static_cast<void*>(session.frag_buf));
    }
    // What an earlier connection of this port left behind is no part of the new one's stream.
    FreeEarlySegments(session);
    KeepNothing(session);
    return 0;
}

void CReassembly::Reset(tcp_session_t& session) {
    FreeEarlySegments(session);
    std::free(DetachFragBuf(session));
    session = tcp_session_t{};
}

void CReassembly::Clear() {
    for (const uint16_t port : std::span(m_touched).first(m_touchedCount)) {
        Reset(m_sessions[port]);
        m_isTouched.reset(port);
    }
    m_touchedCount = 0;
}

void CReassembly::Touch(uint16_t port) {
    if (m_isTouched.test(port)) return;
    m_isTouched.set(port);
    m_touched[m_touchedCount++] = port;
}

void CReassembly::FreeEarlySegments(tcp_session_t& session) {
    while (session.lost_buf_head != nullptr) std::free(DetachFirstEarlySegment(session));
}

// Every port gets a buffer before its payload is looked at, so that strays must not keep one from a connection that
// brings a feed. A buffer that changes hands keeps its bytes: nobody reads behind the new owner's offset.
uint8_t* CReassembly::NewFragBuf() {
    // calloc leaves fresh memory untouched: a buffer that is never filled costs next to nothing.
    if (!m_carryOverOwners.IsFull()) return static_cast<uint8_t*>(std::calloc(FRAG_BUF_SIZE, sizeof(uint8_t)));
    tcp_session_t* unused = m_carryOverOwners.OldestUnused();
    return unused == nullptr ? nullptr : DetachFragBuf(*unused);
}

// The buffer is the caller's.
uint8_t* CReassembly::DetachFragBuf(tcp_session_t& session) {
    uint8_t* buffer = session.frag_buf;
    if (buffer != nullptr) m_carryOverOwners.Remove(session);
    session.frag_buf = nullptr;
    KeepNothing(session);
    return buffer;
}

// ---- a segment ----------------------------------------------------------------------------------------------------

CReassembly::EResult CReassembly::Receive(const SnapshotFrame& frame) {
    tcp_session_t& session = m_sessions[frame.dstPort];
    if (session.init == 1) return ReceiveOfConnection(session, frame);
    BeginConnection(session, frame);
    return EResult::Taken;
}

void CReassembly::BeginConnection(tcp_session_t& session, const SnapshotFrame& frame) {
    if (Open(session, frame.dstPort) != 0) {
        m_counters.Add(ECounter::SegmentRefused);
        return;
    }
    session.dst_host = frame.ipDst;
    session.src_host = frame.ipSrc;
    session.dst_port = frame.dstPort;
    session.src_port = frame.srcPort;
    if (!IsFirstPayload(frame)) {
        m_counters.Add(ECounter::SegmentRefused);
        return;
    }
    session.current_seq = frame.seq;
    session.next_expt_seq = frame.seq + frame.payloadLength;
    const IStreamHandler::Identity identity = m_handler.OnConnection(frame.payload, frame.payloadLength, frame.dstPort);
    if (identity.isKnown) session.init = 1;
    if (identity.isRefused) {
        m_counters.Add(ECounter::SegmentRefused);
        return;
    }
    DeliverMessages(session, frame, EMessageStep::FirstLength);
}

CReassembly::EResult CReassembly::ReceiveOfConnection(tcp_session_t& session, const SnapshotFrame& frame) {
    if (frame.ipDst != session.dst_host || frame.ipSrc != session.src_host) {
        m_counters.Add(ECounter::SegmentOtherHost);
    } else if (frame.seq == session.next_expt_seq) {
        session.next_expt_seq += frame.payloadLength;
        DeliverPayload(session, frame);
        DrainEarlySegments(session);
    } else if (session.next_expt_seq > frame.seq) {
        m_counters.Add(ECounter::SegmentRepeated);
    } else {
        return StoreEarlySegment(session, frame);
    }
    return EResult::Taken;
}

// False when the payload should have begun with a message and did not.
bool CReassembly::DeliverPayload(tcp_session_t& session, const SnapshotFrame& frame) {
    if (session.frag_flag == 1) {
        DeliverBehindCarryOver(session, frame);
        return true;
    }
    if (!IsMessageStart(frame.payload, frame.payloadLength)) {
        // A bare acknowledgement carries nothing that could be dropped.
        if (frame.payloadLength > 0) m_counters.Add(ECounter::PayloadNotMdqp);
        return false;
    }
    if (frame.payloadLength < HEADER_BYTES) {
        KeepTail(session, frame.payload, frame.payloadLength);
    } else {
        DeliverMessages(session, frame, EMessageStep::OwnLength);
    }
    return true;
}

// The payload begins with a message's whole header. A connection's first segment is stepped through by the size of its
// first message; what a later header of it says counts only against reading beyond what has arrived.
void CReassembly::DeliverMessages(tcp_session_t& session, const SnapshotFrame& frame, EMessageStep step) {
    const uint8_t* message = frame.payload;
    uint32_t arrived = frame.payloadLength;  // from `message` on
    uint32_t size = MdqpBytes(message);
    while (size <= arrived) {
        HandOn(session, message, arrived);
        const uint32_t left = arrived - size;
        if (left == 0) return;
        if (left < HEADER_BYTES) {
            // The message's first bytes, not the payload's last: servers flush whole headers, so that no segment of a
            // sound stream ends here.
            KeepTail(session, message, left);
            return;
        }
        message += size;
        arrived = left;
        if (step == EMessageStep::OwnLength) size = MdqpBytes(message);
    }
    KeepTail(session, message, arrived);
}

// Also behind a payload that is empty: a connection's first segment may leave whole messages here, down to the feed's
// last one, behind which nothing but acknowledgements comes.
void CReassembly::DeliverBehindCarryOver(tcp_session_t& session, const SnapshotFrame& frame) {
    if (session.frag_buf_offset + frame.payloadLength >= FRAG_BUF_LIMIT) {
        VEXA_LOG_AS("_TcpHandler", LOG_WARNING, "ignore tcp message!");
        m_counters.Add(ECounter::CarryOverGivenUp);
        Close(session);
        std::free(DetachFragBuf(session));
        FreeEarlySegments(session);
        return;
    }
    std::copy_n(frame.payload, frame.payloadLength, session.frag_buf + session.frag_buf_offset);
    session.frag_buf_offset += frame.payloadLength;
    if (session.frag_buf_offset < MARK_BYTES) return;
    if (!IsMessageStart(session.frag_buf, session.frag_buf_offset)) {
        if (frame.payloadLength > 0) m_counters.Add(ECounter::PayloadNotMdqp);
        return;
    }
    DeliverCarryOver(session);
}

void CReassembly::DeliverCarryOver(tcp_session_t& session) {
    const uint8_t* message = session.frag_buf;
    uint32_t arrived = session.frag_buf_offset;  // from `message` on
    while (arrived >= HEADER_BYTES && MdqpBytes(message) <= arrived) {
        const uint32_t size = MdqpBytes(message);
        HandOn(session, message, arrived);
        message += size;
        arrived -= size;
    }
    if (arrived == 0) {
        KeepNothing(session);
    } else {
        KeepTail(session, message, arrived);
    }
}

void CReassembly::HandOn(tcp_session_t& session, const uint8_t* message, uint32_t arrived) {
    if (m_handler.OnMessage(message, arrived, session.dst_port, session)) Close(session);
}

// ---- segments that came early -------------------------------------------------------------------------------------

CReassembly::EResult CReassembly::StoreEarlySegment(tcp_session_t& session, const SnapshotFrame& frame) {
    // Stored, a bare acknowledgement would make the data of the same number a repetition, and the stream would stall.
    if (frame.payloadLength == 0) {
        m_counters.Add(ECounter::SegmentEarlyDropped);
    } else if (session.lost_flag != 1) {
        if (tcp_lost_buf_t* entry = NewEarlySegment(frame)) LinkFirst(session, entry);
    } else if (session.lost_buf_size >= LOST_BUF_LIMIT) {
        VEXA_LOG_AS("_TcpHandler", LOG_WARNING, "break tcp seq detected. expt: %u, Got: %u", session.next_expt_seq,
                    frame.seq);
        m_counters.Add(ECounter::EarlyOverflow);
        return EResult::BeginAgain;
    } else {
        InsertEarlySegment(session, frame);
    }
    return EResult::Taken;
}

// Looks one entry ahead: what equals a later entry is stored in front of it and passed over when the list is drained.
void CReassembly::InsertEarlySegment(tcp_session_t& session, const SnapshotFrame& frame) {
    tcp_lost_buf_t* visited = session.lost_buf_head;
    uint32_t visitedSeq = SeqOf(*visited);
    if (visitedSeq == frame.seq) {
        m_counters.Add(ECounter::SegmentRepeated);
        return;
    }
    while (visitedSeq < frame.seq && visited->next != nullptr) {
        visited = visited->next;
        visitedSeq = SeqOf(*visited);
        if (visitedSeq < frame.seq) VEXA_LOG_AS("_TcpHandler", LOG_ERROR, "free the cache of packet loss.");
    }
    tcp_lost_buf_t* entry = NewEarlySegment(frame);
    if (entry == nullptr) return;
    if (visitedSeq < frame.seq) {
        LinkAfterLast(session, visited, entry);
    } else {
        LinkBefore(session, visited, entry);
    }
}

// Null, with a line, when there is no room: in an entry, in the budget, or in the process.
tcp_lost_buf_t* CReassembly::NewEarlySegment(const SnapshotFrame& frame) {
    tcp_lost_buf_t* entry = nullptr;
    if (frame.length <= EARLY_FRAME_CAPACITY && m_earlySegments < EARLY_SEGMENT_BUDGET) {
        entry = static_cast<tcp_lost_buf_t*>(std::calloc(1, sizeof(tcp_lost_buf_t)));
    }
    if (entry == nullptr) {
        VEXA_LOG_AS("_TcpHandler", LOG_ERROR, "failed to malloc buffer to store tcp_lost_buf_t");
        m_counters.Add(ECounter::SegmentEarlyDropped);
        return nullptr;
    }
    std::memcpy(entry->buf, frame.bytes, frame.length);
    entry->len = frame.length;
    ++m_earlySegments;
    return entry;
}

// The entry is the caller's to free.
tcp_lost_buf_t* CReassembly::DetachFirstEarlySegment(tcp_session_t& session) {
    tcp_lost_buf_t* first = session.lost_buf_head;
    session.lost_buf_head = first->next;
    if (session.lost_buf_head != nullptr) {
        session.lost_buf_head->before = nullptr;
    } else {
        session.lost_flag = 0;
        session.lost_buf_size = 0;
    }
    --m_earlySegments;
    return first;
}

void CReassembly::DrainEarlySegments(tcp_session_t& session) {
    while (session.lost_buf_head != nullptr) {
        if (SeqOf(*session.lost_buf_head) > session.next_expt_seq) return;
        // Detached before its delivery, which may free the list.
        const std::unique_ptr<tcp_lost_buf_t, FreeEntry> entry(DetachFirstEarlySegment(session));
        const SnapshotFrame frame = FrameOf(*entry);
        if (frame.seq < session.next_expt_seq) {
            m_counters.Add(ECounter::SegmentRepeated);
            continue;
        }
        session.next_expt_seq += frame.payloadLength;
        if (!DeliverPayload(session, frame)) {
            VEXA_LOG_AS("_TcpHandler", LOG_ERROR, "not a mdqp header, check program logic");
            return;
        }
    }
}

// Makes a byte stream of the segments of each snapshot connection and cuts it into MDQP messages. Runs on the receiving
// thread. In: checked frames of connections in use; out: whole messages to _ParseMdqp, in stream order.
// Invariants: lost_flag is 1 exactly while the list holds entries; frag_buf_offset stays below FRAG_BUF_LIMIT; a
// message is handed on only when as many bytes as its header announces have arrived. A delivery may empty the session,
// so nothing is remembered across one but the session itself.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "src/SnapshotFrame.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

constexpr uint32_t HEADER_BYTES = sizeof(mdqp_t);
constexpr uint32_t MARK_BYTES = offsetof(mdqp_t, length);  // flag and type, by which a message is known

uint32_t MessageBytes(const uint8_t* header) {
    return HEADER_BYTES + snapshot_frame::Raw<uint16_t>(header + offsetof(mdqp_t, length));
}

/// Of a header that its segment cuts short the first two bytes are enough.
bool IsMessageStart(const uint8_t* bytes, uint32_t length) {
    if (length < MARK_BYTES) return false;
    const uint8_t flag = bytes[offsetof(mdqp_t, flag)];
    return (flag == mdqp::FLAG_LAST || flag == mdqp::FLAG_MORE) &&
           bytes[offsetof(mdqp_t, type_id)] == mdqp::TYPE_SNAPSHOT;
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

int32_t CVexaShfeMdApiImpl::_InitTcpSession(tcp_session_t& refSession, int32_t dstPort) {
    _MarkSession(static_cast<uint16_t>(dstPort));
    if (refSession.frag_buf == nullptr) {
        const bool isMade = !m_carryOverOwners.IsFull();
        refSession.frag_buf = _NewFragBuf();
        if (refSession.frag_buf == nullptr) {
            VEXA_LOG(LOG_ERROR, "failed to allocate memcory for fragment memory.");
            return -1;
        }
        m_carryOverOwners.Add(refSession);
        // One that changes hands was told when it was made: a scan of all ports would fill the log.
        if (isMade) VEXA_LOG(LOG_DEBUG, " dstPort:%d frag_buf:%p", dstPort, static_cast<void*>(refSession.frag_buf));
    }
    // What an earlier connection of this port left behind is no part of the new one's stream.
    _FreeEarlySegments(refSession);
    KeepNothing(refSession);
    return 0;
}

void CVexaShfeMdApiImpl::ResetSession(tcp_session_t& refSession) {
    _FreeEarlySegments(refSession);
    std::free(_DetachFragBuf(refSession));
    refSession = tcp_session_t{};
}

void CVexaShfeMdApiImpl::_FreeEarlySegments(tcp_session_t& session) {
    while (session.lost_buf_head != nullptr) std::free(_DetachFirstEarlySegment(session));
}

// Every port gets a buffer before its payload is looked at, so that strays must not keep one from a connection that
// brings a feed. A buffer that changes hands keeps its bytes: nobody reads behind the new owner's offset.
uint8_t* CVexaShfeMdApiImpl::_NewFragBuf() {
    // calloc leaves fresh memory untouched: a buffer that is never filled costs next to nothing.
    if (!m_carryOverOwners.IsFull()) return static_cast<uint8_t*>(std::calloc(FRAG_BUF_SIZE, sizeof(uint8_t)));
    tcp_session_t* unused = m_carryOverOwners.OldestUnused();
    return unused == nullptr ? nullptr : _DetachFragBuf(*unused);
}

// The buffer is the caller's.
uint8_t* CVexaShfeMdApiImpl::_DetachFragBuf(tcp_session_t& session) {
    uint8_t* buffer = session.frag_buf;
    if (buffer != nullptr) m_carryOverOwners.Remove(session);
    session.frag_buf = nullptr;
    KeepNothing(session);
    return buffer;
}

// ---- the checksum -------------------------------------------------------------------------------------------------

uint16_t CVexaShfeMdApiImpl::TcpCheckSum(void* data, int32_t len) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint32_t sum = 0;
    for (; len >= 2; len -= 2, bytes += 2) sum += snapshot_frame::Raw<uint16_t>(bytes);
    if (len == 1) {
        const uint8_t lastWord[2] = {*bytes, 0};
        sum += snapshot_frame::Raw<uint16_t>(lastWord);
    }
    while ((sum >> 16) != 0) sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

// ---- a segment of a connection in use -----------------------------------------------------------------------------

void CVexaShfeMdApiImpl::_ReceiveSegment(tcp_session_t& session, const SnapshotFrame& frame) {
    if (frame.ipDst != session.dst_host || frame.ipSrc != session.src_host) {
        m_counters.Add(ECounter::SegmentOtherHost);
    } else if (frame.seq == session.next_expt_seq) {
        session.next_expt_seq += frame.payloadLength;
        _DeliverPayload(session, frame);
        _DrainEarlySegments(session);
    } else if (session.next_expt_seq > frame.seq) {
        m_counters.Add(ECounter::SegmentRepeated);
    } else {
        _StoreEarlySegment(session, frame);
    }
}

// False when the payload should have begun with a message and did not.
bool CVexaShfeMdApiImpl::_DeliverPayload(tcp_session_t& session, const SnapshotFrame& frame) {
    if (session.frag_flag == 1) {
        _DeliverBehindCarryOver(session, frame);
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
        _DeliverMessages(session, frame, EMessageStep::OwnLength);
    }
    return true;
}

// The payload begins with a message's whole header. A connection's first segment is stepped through by the size of its
// first message; what a later header of it says counts only against reading beyond what has arrived.
void CVexaShfeMdApiImpl::_DeliverMessages(tcp_session_t& session, const SnapshotFrame& frame, EMessageStep step) {
    const uint8_t* message = frame.payload;
    uint32_t arrived = frame.payloadLength;  // from `message` on
    uint32_t size = MessageBytes(message);
    while (size <= arrived) {
        _HandOver(message, arrived, session.dst_port);
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
        if (step == EMessageStep::OwnLength) size = MessageBytes(message);
    }
    KeepTail(session, message, arrived);
}

// Also behind a payload that is empty: a connection's first segment may leave whole messages here, down to the feed's
// last one, behind which nothing but acknowledgements comes.
void CVexaShfeMdApiImpl::_DeliverBehindCarryOver(tcp_session_t& session, const SnapshotFrame& frame) {
    if (session.frag_buf_offset + frame.payloadLength >= FRAG_BUF_LIMIT) {
        SNAPSHOT_LOG(LOG_WARNING, "ignore tcp message!");
        m_counters.Add(ECounter::CarryOverGivenUp);
        session.init = 0;
        std::free(_DetachFragBuf(session));
        _FreeEarlySegments(session);
        return;
    }
    std::copy_n(frame.payload, frame.payloadLength, session.frag_buf + session.frag_buf_offset);
    session.frag_buf_offset += frame.payloadLength;
    if (session.frag_buf_offset < MARK_BYTES) return;
    if (!IsMessageStart(session.frag_buf, session.frag_buf_offset)) {
        if (frame.payloadLength > 0) m_counters.Add(ECounter::PayloadNotMdqp);
        return;
    }
    _DeliverCarryOver(session);
}

void CVexaShfeMdApiImpl::_DeliverCarryOver(tcp_session_t& session) {
    const uint8_t* message = session.frag_buf;
    uint32_t arrived = session.frag_buf_offset;  // from `message` on
    while (arrived >= HEADER_BYTES && MessageBytes(message) <= arrived) {
        const uint32_t size = MessageBytes(message);
        _HandOver(message, arrived, session.dst_port);
        message += size;
        arrived -= size;
    }
    if (arrived == 0) {
        KeepNothing(session);
    } else {
        KeepTail(session, message, arrived);
    }
}

// A header that announces more than has arrived would be read past the end; of no feed, nothing behind the header is.
void CVexaShfeMdApiImpl::_HandOver(const uint8_t* message, uint32_t arrived, uint16_t dstPort) {
    EMDQPDataType feed{};
    if (MessageBytes(message) > arrived && _FindFeed(dstPort, feed)) {
        m_counters.Add(ECounter::FieldMalformed);
        return;
    }
    // The decoder's records are writable by their types alone.
    _ParseMdqp(reinterpret_cast<mdqp_t*>(const_cast<uint8_t*>(message)), dstPort, *this);
}

// ---- segments that came early -------------------------------------------------------------------------------------

void CVexaShfeMdApiImpl::_StoreEarlySegment(tcp_session_t& session, const SnapshotFrame& frame) {
    // Stored, a bare acknowledgement would make the data of the same number a repetition, and the stream would stall.
    if (frame.payloadLength == 0) {
        m_counters.Add(ECounter::SegmentEarlyDropped);
        return;
    }
    if (session.lost_flag != 1) {
        if (tcp_lost_buf_t* entry = _NewEarlySegment(frame)) LinkFirst(session, entry);
        return;
    }
    if (session.lost_buf_size >= LOST_BUF_LIMIT) {
        SNAPSHOT_LOG(LOG_WARNING, "break tcp seq detected. expt: %u, Got: %u", session.next_expt_seq, frame.seq);
        m_counters.Add(ECounter::EarlyOverflow);
        _Cleandata(*this);
        SNAPSHOT_LOG(LOG_WARNING, "packet loss > 20 msg, free cache, init again.");
        return;
    }
    _InsertEarlySegment(session, frame);
}

// Looks one entry ahead: what equals a later entry is stored in front of it and passed over when the list is drained.
void CVexaShfeMdApiImpl::_InsertEarlySegment(tcp_session_t& session, const SnapshotFrame& frame) {
    tcp_lost_buf_t* visited = session.lost_buf_head;
    uint32_t visitedSeq = SeqOf(*visited);
    if (visitedSeq == frame.seq) {
        m_counters.Add(ECounter::SegmentRepeated);
        return;
    }
    while (visitedSeq < frame.seq && visited->next != nullptr) {
        visited = visited->next;
        visitedSeq = SeqOf(*visited);
        if (visitedSeq < frame.seq) SNAPSHOT_LOG(LOG_ERROR, "free the cache of packet loss.");
    }
    tcp_lost_buf_t* entry = _NewEarlySegment(frame);
    if (entry == nullptr) return;
    if (visitedSeq < frame.seq) {
        LinkAfterLast(session, visited, entry);
    } else {
        LinkBefore(session, visited, entry);
    }
}

// Null, with a line, when there is no room: in an entry, in the budget, or in the process.
tcp_lost_buf_t* CVexaShfeMdApiImpl::_NewEarlySegment(const SnapshotFrame& frame) {
    tcp_lost_buf_t* entry = nullptr;
    if (frame.length <= EARLY_FRAME_CAPACITY && m_earlySegmentCount < EARLY_SEGMENT_BUDGET) {
        entry = static_cast<tcp_lost_buf_t*>(std::calloc(1, sizeof(tcp_lost_buf_t)));
    }
    if (entry == nullptr) {
        SNAPSHOT_LOG(LOG_ERROR, "failed to malloc buffer to store tcp_lost_buf_t");
        m_counters.Add(ECounter::SegmentEarlyDropped);
        return nullptr;
    }
    std::memcpy(entry->buf, frame.bytes, frame.length);
    entry->len = frame.length;
    ++m_earlySegmentCount;
    return entry;
}

// The entry is the caller's to free.
tcp_lost_buf_t* CVexaShfeMdApiImpl::_DetachFirstEarlySegment(tcp_session_t& session) {
    tcp_lost_buf_t* first = session.lost_buf_head;
    session.lost_buf_head = first->next;
    if (session.lost_buf_head != nullptr) {
        session.lost_buf_head->before = nullptr;
    } else {
        session.lost_flag = 0;
        session.lost_buf_size = 0;
    }
    --m_earlySegmentCount;
    return first;
}

void CVexaShfeMdApiImpl::_DrainEarlySegments(tcp_session_t& session) {
    while (session.lost_buf_head != nullptr) {
        if (SeqOf(*session.lost_buf_head) > session.next_expt_seq) return;
        // Detached before its delivery, which may free the list.
        const std::unique_ptr<tcp_lost_buf_t, FreeEntry> entry(_DetachFirstEarlySegment(session));
        const SnapshotFrame frame = FrameOf(*entry);
        if (frame.seq < session.next_expt_seq) {
            m_counters.Add(ECounter::SegmentRepeated);
            continue;
        }
        session.next_expt_seq += frame.payloadLength;
        if (!_DeliverPayload(session, frame)) {
            SNAPSHOT_LOG(LOG_ERROR, "not a mdqp header, check program logic");
            return;
        }
    }
}

// The DMA handler of the snapshot phase: filters the board's frames down to sound segments of the snapshot servers,
// begins connections, and finishes the phase. Runs on the receiving thread, called by the channel's poll.
// In: raw DMA messages, trusted in nothing; out: segments to the reassembly, in the end the tables to the board.
// Invariants: a message is copied once and only the copy is looked at; a frame that is dropped changes nothing but one
// counter.
#include <algorithm>
#include <cstring>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "public/log/RaisedLogLevel.h"
#include "src/SnapshotFrame.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

/// A first payload must be longer than a message with the snapshot's identification alone.
constexpr uint32_t FIRST_PAYLOAD_BYTES = 44;

// A header length counts four-bit words, so that an IP header can never be too long for a TCP part behind it.
static_assert(frame_headers::ETHERNET_BYTES + 15 * frame_headers::WORD_BYTES < TCP_LENGTH_LIMIT);
static_assert(frame_headers::PSEUDO_HEADER_BYTES + TCP_LENGTH_LIMIT <= DMA_MESSAGE_CAPACITY);

/// Only segments hold a frame; an event or an update is no packet that an analyser could read.
void CaptureMessage(const CWriteShot& capture, const unsigned char* message, uint32_t length) {
    capture.WriteShotBinLog(message, length);
    const bool isSegment = snapshot_frame::Raw<U50Event>(message).dma_type == DMA_TCP;
    if (!isSegment || length < DMA_TCP_FRAME_OFFSET) return;
    capture.WriteShotPcapLog(message + DMA_TCP_FRAME_OFFSET, length - DMA_TCP_FRAME_OFFSET);
}

void TellNoTcpMessage(const U50Event& head, int32_t channel) {
    SNAPSHOT_LOG(LOG_WARNING, "invalide DMA Data Type[%u]", head.dma_type);
    if (head.dma_type != DMA_EVENT) return;
    SNAPSHOT_LOG(LOG_WARNING,
                 "channel%d receive DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u] event_data3[%u] "
                 "event_data4[%u] event_data5[%u]",
                 channel, head.event_data0, head.event_data1, head.event_data2, head.event_data3, head.event_data4,
                 head.event_data5);
}

bool IsSnapshotPort(const U50SnapTcpPort& ports, uint16_t port) {
    return std::any_of(FEEDS.begin(), FEEDS.end(),
                       [&](const FeedTraits& feed) { return ports.*feed.snapPort == port; });
}

bool IsFirstPayload(const SnapshotFrame& frame) {
    if (frame.payloadLength <= FIRST_PAYLOAD_BYTES) return false;
    const auto header = snapshot_frame::Raw<mdqp_t>(frame.payload);
    return header.flag == mdqp::FLAG_MORE && header.type_id == mdqp::TYPE_SNAPSHOT;
}

/// The addresses and the length that the checksum covers besides the TCP part; then that part without its checksum.
void FillChecksumArea(const SnapshotFrame& frame, uint8_t* area) {
    std::memcpy(area, &frame.ipSrc, sizeof(frame.ipSrc));
    std::memcpy(area + 4, &frame.ipDst, sizeof(frame.ipDst));
    area[8] = 0;
    area[9] = frame.protocol;
    area[10] = static_cast<uint8_t>(frame.tcpLength >> 8);
    area[11] = static_cast<uint8_t>(frame.tcpLength);
    std::memcpy(area + frame_headers::PSEUDO_HEADER_BYTES, frame.tcp, static_cast<std::size_t>(frame.tcpLength));
    std::memset(area + frame_headers::PSEUDO_HEADER_BYTES + frame_headers::TCP_CHECKSUM, 0, sizeof(frame.check));
}

}  // namespace

void CVexaShfeMdApiImpl::_TcpHandler(const unsigned char* data, unsigned int len, void* userData) {
    if (userData == nullptr || data == nullptr) {
        VEXA_LOG(LOG_DEBUG, "user_data or lpPacket is nullptr");
        return;
    }
    auto& api = *static_cast<CVexaShfeMdApiImpl*>(userData);
    if (len > DMA_MESSAGE_CAPACITY) {
        api.m_counters.Add(ECounter::MessageTooLong);
        return;
    }
    unsigned char message[DMA_MESSAGE_CAPACITY] = {};
    std::memcpy(message, data, len);
    if (api.m_u50ConfigInfo.dma_data_flag) CaptureMessage(api.m_writeDmaShot, message, len);

    const auto head = snapshot_frame::Raw<U50Event>(message);
    if (head.dma_type != DMA_TCP) {
        TellNoTcpMessage(head, api.m_u50ConfigInfo.channel_id);
        api.m_counters.Add(ECounter::FrameForeign);
        return;
    }
    api._HandleFrame(message + DMA_TCP_FRAME_OFFSET, std::max(len, DMA_TCP_FRAME_OFFSET) - DMA_TCP_FRAME_OFFSET);
}

// ---- the filter ---------------------------------------------------------------------------------------------------

// `bytes` lies in a zeroed area that is longer than any header, whatever `length` says.
void CVexaShfeMdApiImpl::_HandleFrame(const unsigned char* bytes, uint32_t length) {
    if (bytes[frame_headers::ETHERNET_BYTES + frame_headers::IP_PROTOCOL] != frame_headers::PROTOCOL_TCP) {
        m_counters.Add(ECounter::FrameForeign);
        return;
    }
    SnapshotFrame frame{};
    if (!snapshot_frame::ReadHeaders(bytes, length, frame)) {
        m_counters.Add(ECounter::FrameMalformed);
        return;
    }
    if (!IsSnapshotPort(m_u50ConfigInfo.snapTcpPort, frame.srcPort)) {
        m_counters.Add(ECounter::FrameForeign);
        return;
    }
    if (frame.tcpLength >= TCP_LENGTH_LIMIT) {
        SNAPSHOT_LOG(LOG_ERROR, "TcpCheckSum false");
        m_counters.Add(ECounter::FrameMalformed);
        return;
    }
    // Before the checksum: a cut frame whose lost bytes were zeros would still sum up in the zeroed copy.
    if (!snapshot_frame::IsTcpCaptured(frame)) {
        m_counters.Add(ECounter::FrameMalformed);
        return;
    }
    if (!_IsChecksumRight(frame)) return;
    if (!snapshot_frame::ReadPayload(frame)) {
        m_counters.Add(ECounter::FrameMalformed);
        return;
    }
    if (_TestCompletion()) _HandleSegment(frame);
}

bool CVexaShfeMdApiImpl::_IsChecksumRight(const SnapshotFrame& frame) {
    uint8_t area[DMA_MESSAGE_CAPACITY];
    FillChecksumArea(frame, area);
    const uint16_t checksum =
        TcpCheckSum(area, frame.tcpLength + static_cast<int32_t>(frame_headers::PSEUDO_HEADER_BYTES));
    if (checksum == frame.check) return true;
    SNAPSHOT_LOG(LOG_ERROR, "TcpCheckSum false, tcp_hdr->check is 0x%x, tcpchecksum is 0x%x", frame.check, checksum);
    m_counters.Add(ECounter::ChecksumWrong);
    return false;
}

// ---- completion ---------------------------------------------------------------------------------------------------

// Looked at on every sound segment, before the segment itself. False when the segment must not be handled.
bool CVexaShfeMdApiImpl::_TestCompletion() {
    const uint8_t enabled = m_u50ConfigInfo.enabled_mask.enabled_mask;
    if (enabled == 0) {
        SNAPSHOT_LOG(LOG_ERROR, "both shfe and ine are not subscribed");
        m_counters.Add(ECounter::SegmentRefused);
        return false;
    }
    return enabled != m_finishedMask.enabled_mask || _FinishSnapshot();
}

bool CVexaShfeMdApiImpl::_FinishSnapshot() {
    if (ShfePriceCheck(*this) != 0) {
        _Cleandata(*this);
        m_counters.Add(ECounter::PriceCheckFailed);
        SNAPSHOT_LOG(LOG_WARNING, "price check is error, shot cnt is %d.",
                     static_cast<int>(m_writeDmaShot.GetBinShotCnt()));
        return false;
    }
    m_isTcpInitFinished = true;
    if (m_u50ConfigInfo.debug_flag) {
        CClock::SleepMicroseconds(m_u50ConfigInfo.dma_sleep);
        SNAPSHOT_LOG(LOG_WARNING, "DMA sleep %dus", static_cast<int>(m_u50ConfigInfo.dma_sleep));
    }
    {
        const CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
        m_drvRegEnyx.WriteRegister(reg::SNAPSHOT_CONTROL, reg::SNAPSHOT_CLOSED);
    }
    _WriteContractTables();
    return true;
}

void CVexaShfeMdApiImpl::_WriteContractTables() {
    for (const EMDQPDataType feed : ALL_FEEDS) {
        const FeedTraits& traits = TraitsOf(feed);
        const reg::TableRegisters& table = traits.registers.table;
        _WriteContractTable(FeedTable(m_u50InstTable, feed), HasFeed(m_u50ConfigInfo.enabled_mask, feed),
                            table.writeAddr, table.writeData, static_cast<int32_t>(m_u50InstCount.*traits.instCount),
                            traits.capacity);
    }
}

// ---- one segment --------------------------------------------------------------------------------------------------

void CVexaShfeMdApiImpl::_HandleSegment(const SnapshotFrame& frame) {
    constexpr uint8_t RESET = frame_headers::TCP_RST | frame_headers::TCP_ACK;
    if ((frame.flags & RESET) == RESET) {
        _Cleandata(*this);
        m_counters.Add(ECounter::ResetByPeer);
        SNAPSHOT_LOG(LOG_WARNING, "rst msg, Session closed dstport:%d", frame.dstPort);
        return;
    }
    tcp_session_t& session = m_sessions[frame.dstPort];
    if (session.init == 1) {
        _ReceiveSegment(session, frame);
    } else {
        _BeginConnection(session, frame);
    }
}

void CVexaShfeMdApiImpl::_BeginConnection(tcp_session_t& session, const SnapshotFrame& frame) {
    if (_InitTcpSession(session, frame.dstPort) != 0) {
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
    if (!_BindFeed(frame.payload, frame.payloadLength, frame.dstPort)) return;
    _DeliverMessages(session, frame, EMessageStep::FirstLength);
}

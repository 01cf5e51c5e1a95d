// Lines name the handler that messages come in by.
#include "src/snapshot/SnapshotPhase.h"

#include <algorithm>
#include <cstring>

#include "public/clock/Clock.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/board/TableDownload.h"
#include "src/snapshot/PriceCheck.h"

namespace {

#define HANDLER_LOG(level, ...) VEXA_LOG_AS("_TcpHandler", level, __VA_ARGS__)

/// Only segments hold a frame; an event or an update is no packet that an analyser could read.
void CaptureMessage(const CWriteShot& captures, const unsigned char* message, uint32_t length) {
    captures.WriteShotBinLog(message, length);
    const bool isSegment = snapshot_frame::Raw<U50Event>(message).dma_type == DMA_TCP;
    if (!isSegment || length < DMA_TCP_FRAME_OFFSET) return;
    captures.WriteShotPcapLog(message + DMA_TCP_FRAME_OFFSET, length - DMA_TCP_FRAME_OFFSET);
}

void TellNoTcpMessage(const U50Event& head, int32_t channel) {
    HANDLER_LOG(LOG_WARNING, "invalide DMA Data Type[%u]", head.dma_type);
    if (head.dma_type != DMA_EVENT) return;
    HANDLER_LOG(LOG_WARNING,
                "channel%d receive DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u] event_data3[%u] "
                "event_data4[%u] event_data5[%u]",
                channel, head.event_data0, head.event_data1, head.event_data2, head.event_data3, head.event_data4,
                head.event_data5);
}

bool IsSnapshotPort(const U50SnapTcpPort& ports, uint16_t port) {
    return std::any_of(FEEDS.begin(), FEEDS.end(),
                       [&](const FeedTraits& feed) { return ports.*feed.snapPort == port; });
}

}  // namespace

void CSnapshotPhase::Take(const unsigned char* data, uint32_t length) {
    if (length > DMA_MESSAGE_CAPACITY) {
        m_with.counters.Add(ECounter::MessageTooLong);
        return;
    }
    unsigned char message[DMA_MESSAGE_CAPACITY] = {};
    std::memcpy(message, data, length);
    if (m_with.config.dma_data_flag) CaptureMessage(m_with.captures, message, length);

    const auto head = snapshot_frame::Raw<U50Event>(message);
    if (head.dma_type != DMA_TCP) {
        TellNoTcpMessage(head, m_with.config.channel_id);
        m_with.counters.Add(ECounter::FrameForeign);
        return;
    }
    TakeFrame(message + DMA_TCP_FRAME_OFFSET, std::max(length, DMA_TCP_FRAME_OFFSET) - DMA_TCP_FRAME_OFFSET);
}

void CSnapshotPhase::Clear() {
    m_units.reassembly.Clear();
    m_units.store.Clear();
    m_units.priceErrors.clear();
    m_units.isLoaded = false;
}

void CSnapshotPhase::Forget() {
    m_units.store.Forget();
    m_units.isLoaded = false;
}

// ---- the filter ---------------------------------------------------------------------------------------------------

// `bytes` lies in a zeroed area that is longer than any header, whatever `length` says.
void CSnapshotPhase::TakeFrame(const uint8_t* bytes, uint32_t length) {
    constexpr uint32_t PROTOCOL = frame_headers::ETHERNET_BYTES + frame_headers::IP_PROTOCOL;
    if (bytes[PROTOCOL] != frame_headers::PROTOCOL_TCP) {
        m_with.counters.Add(ECounter::FrameForeign);
        return;
    }
    SnapshotFrame frame{};
    if (!snapshot_frame::ReadHeaders(bytes, length, frame)) {
        m_with.counters.Add(ECounter::FrameMalformed);
        return;
    }
    if (!IsSnapshotPort(m_with.config.snapTcpPort, frame.srcPort)) {
        m_with.counters.Add(ECounter::FrameForeign);
        return;
    }
    if (frame.tcpLength >= TCP_LENGTH_LIMIT) {
        HANDLER_LOG(LOG_ERROR, "TcpCheckSum false");
        m_with.counters.Add(ECounter::FrameMalformed);
        return;
    }
    // Before the checksum: a cut frame whose lost bytes were zeros would still sum up in the zeroed copy.
    if (!snapshot_frame::IsTcpCaptured(frame)) {
        m_with.counters.Add(ECounter::FrameMalformed);
        return;
    }
    if (!IsChecksumRight(frame)) return;
    if (!snapshot_frame::ReadPayload(frame)) {
        m_with.counters.Add(ECounter::FrameMalformed);
        return;
    }
    if (TestCompletion()) TakeSegment(frame);
}

bool CSnapshotPhase::IsChecksumRight(const SnapshotFrame& frame) {
    const uint16_t checksum = snapshot_frame::TcpChecksum(frame);
    if (checksum == frame.check) return true;
    HANDLER_LOG(LOG_ERROR, "TcpCheckSum false, tcp_hdr->check is 0x%x, tcpchecksum is 0x%x", frame.check, checksum);
    m_with.counters.Add(ECounter::ChecksumWrong);
    return false;
}

// ---- completion ---------------------------------------------------------------------------------------------------

// Looked at on every sound segment, before the segment itself. False when the segment must not be handled.
bool CSnapshotPhase::TestCompletion() {
    const uint8_t enabled = m_with.config.enabled_mask.enabled_mask;
    if (enabled == 0) {
        HANDLER_LOG(LOG_ERROR, "both shfe and ine are not subscribed");
        m_with.counters.Add(ECounter::SegmentRefused);
        return false;
    }
    return enabled != m_units.store.Finished() || Finish();
}

bool CSnapshotPhase::Finish() {
    if (price_check::CheckAll(m_units.store, m_with.config.shield_price_check, m_units.priceErrors) != 0) {
        Clear();
        m_with.counters.Add(ECounter::PriceCheckFailed);
        HANDLER_LOG(LOG_WARNING, "price check is error, shot cnt is %d.",
                    static_cast<int>(m_with.captures.GetBinShotCnt()));
        return false;
    }
    m_units.isLoaded = true;
    if (m_with.config.debug_flag) {
        CClock::SleepMicroseconds(m_with.config.dma_sleep);
        HANDLER_LOG(LOG_WARNING, "DMA sleep %dus", static_cast<int>(m_with.config.dma_sleep));
    }
    {
        const CRaisedLogLevel raised(m_with.config.log_level);
        m_with.board.WriteRegister(reg::SNAPSHOT_CONTROL, reg::SNAPSHOT_CLOSED);
    }
    WriteTables();
    return true;
}

void CSnapshotPhase::WriteTables() {
    for (const FeedTraits& feed : FEEDS) {
        WriteTable(m_with.board, m_with.config, feed.registers.table,
                   {m_units.store.Table(feed.feed), m_units.store.UsedSlots(feed.feed), feed.capacity,
                    HasFeed(m_with.config.enabled_mask, feed.feed)});
    }
}

// ---- one segment --------------------------------------------------------------------------------------------------

void CSnapshotPhase::TakeSegment(const SnapshotFrame& frame) {
    constexpr uint8_t RESET = frame_headers::TCP_RST | frame_headers::TCP_ACK;
    if ((frame.flags & RESET) == RESET) {
        Clear();
        m_with.counters.Add(ECounter::ResetByPeer);
        HANDLER_LOG(LOG_WARNING, "rst msg, Session closed dstport:%d", frame.dstPort);
        return;
    }
    if (m_units.reassembly.Receive(frame) == CReassembly::EResult::BeginAgain) {
        Clear();
        HANDLER_LOG(LOG_WARNING, "packet loss > 20 msg, free cache, init again.");
    }
}

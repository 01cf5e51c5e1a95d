/// Snapshot servers and a receiver of whatever kind: what they say, and what came of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "exchange/FrameWriter.h"
#include "exchange/MdqpWriter.h"
#include "src/snapshot/Reassembly.h"
#include "testing/SnapshotUnits.h"
#include "tests/support/QuietLog.h"

using Bytes = std::vector<uint8_t>;

class SnapshotTest : public ::testing::Test {
protected:
    static constexpr uint16_t SNAP_PORT = 33022;
    static constexpr uint16_t LOCAL_PORT = 40001;
    static constexpr uint32_t SERVER = 0x0A010203;
    static constexpr uint32_t HOST = 0x0A010204;
    static constexpr int16_t SHFE_TOPIC = 1000;
    static constexpr int16_t INE_TOPIC = 5000;
    static constexpr uint32_t FIRST_SEQ = 5000;
    static constexpr uint16_t PADDING = 0x0031;    ///< a field that decoders pass over
    static constexpr uint32_t MESSAGE_BYTES = 40;  ///< of Numbered with its padding
    static constexpr int32_t TROUBLE = LOG_ERROR | LOG_WARNING;

    SnapshotTest() {
        U50ConfigInfo& config = state->config;
        config.enabled_mask.enabled_mask = FeedBit(SHFE_2PS) | FeedBit(INE_2PS);
        config.snapTcpPort.shfe2ps_snap_port = SNAP_PORT;
        config.snapTcpPort.ine2ps_snap_port = SNAP_PORT;
        config.topicID.shfe2ps_topic_id = SHFE_TOPIC;
        config.topicID.ine2ps_topic_id = INE_TOPIC;
        config.topicID.shfe4ps_topic_id = SHFE_TOPIC + 1;
        config.topicID.ine4ps_topic_id = INE_TOPIC + 1;
    }

    // ---- the receiver ----

    /// A DMA message.
    virtual void Hand(const Bytes& message) = 0;
    virtual CReassembly& Reassembly() = 0;
    /// Numbers of the SHFE 2ps messages that were decoded, in order.
    virtual std::vector<int32_t> Decoded() const = 0;

    // ---- what servers say ----

    /// Identifies the feed; its size is that of Numbered(n, padding).
    static Bytes FirstMessage(int16_t topic, uint16_t padding = 30) {
        const Bytes zeros(padding);
        return exchange::MdqpWriter().Snap(topic, 1).Field(PADDING, zeros.data(), padding).Bytes();
    }

    /// A message that can be told apart: the board is told its number.
    static Bytes Numbered(int32_t number, uint16_t padding = 20) {
        const Bytes zeros(padding);
        return exchange::MdqpWriter().PacketNo(number).Field(PADDING, zeros.data(), padding).Bytes();
    }

    static Bytes LastMessage() { return exchange::MdqpWriter(mdqp::FLAG_LAST).Bytes(); }

    static Bytes Join(const std::vector<Bytes>& parts) {
        Bytes whole;
        for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
        return whole;
    }

    static Bytes Cut(const Bytes& bytes, std::size_t first, std::size_t last) {
        const auto at = [&](std::size_t offset) {
            return bytes.begin() + static_cast<std::ptrdiff_t>(std::min(offset, bytes.size()));
        };
        return Bytes(at(first), at(last));
    }

    static uint32_t SizeOf(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

    /// Numbered messages from `first` to `last`.
    static Bytes Stream(int32_t first, int32_t last) {
        Bytes stream;
        for (int32_t number = first; number <= last; ++number) {
            const Bytes message = Numbered(number);
            stream.insert(stream.end(), message.begin(), message.end());
        }
        return stream;
    }

    static exchange::FrameWriter Segment(uint32_t seq, Bytes payload, uint16_t localPort = LOCAL_PORT) {
        exchange::FrameWriter frame({SERVER, HOST, SNAP_PORT, localPort});
        frame.Seq(seq).Payload(std::move(payload));
        return frame;
    }

    void Arrive(uint32_t seq, const Bytes& payload, uint16_t localPort = LOCAL_PORT) {
        Hand(Segment(seq, payload, localPort).DmaMessage());
    }

    /// Begins a connection; gives the sequence number behind its first segment.
    uint32_t Begin(int16_t topic = SHFE_TOPIC, uint16_t localPort = LOCAL_PORT, uint32_t seq = FIRST_SEQ) {
        const Bytes first = FirstMessage(topic);
        Arrive(seq, first, localPort);
        return seq + SizeOf(first);
    }

    // ---- what came of it ----

    tcp_session_t& Session(uint16_t port = LOCAL_PORT) { return state->sessions[port]; }

    // By value: assertions take references, which the packed record's pointers cannot give.
    uint8_t* FragBuf() { return Session().frag_buf; }
    tcp_lost_buf_t* EarlyHead() { return Session().lost_buf_head; }
    Bytes Carried() { return Bytes(FragBuf(), FragBuf() + Session().frag_buf_offset); }

    /// Sequence numbers of the stored early segments, from the head on.
    std::vector<uint32_t> EarlySeqs() {
        std::vector<uint32_t> seqs;
        const tcp_lost_buf_t* before = nullptr;
        for (const tcp_lost_buf_t* entry = Session().lost_buf_head; entry != nullptr; entry = entry->next) {
            SnapshotFrame frame{};
            EXPECT_TRUE(snapshot_frame::ReadHeaders(entry->buf, entry->len, frame));
            EXPECT_TRUE(entry->before == before);
            seqs.push_back(frame.seq);
            before = entry;
        }
        return seqs;
    }

    uint64_t Counted(ECounter counter) const { return state->counters[counter]; }

    QuietLog log;
    std::unique_ptr<SnapshotState> state = std::make_unique<SnapshotState>();
};

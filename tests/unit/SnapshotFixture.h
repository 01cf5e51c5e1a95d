/// A session in the snapshot phase and the servers that talk to it, frame by frame.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "exchange/FrameWriter.h"
#include "exchange/MdqpWriter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"
#include "tests/support/VirtualClock.h"

using Bytes = std::vector<uint8_t>;

class SnapshotFixture : public ::testing::Test {
protected:
    static constexpr uint16_t SNAP_PORT = 33022;
    static constexpr uint16_t LOCAL_PORT = 40001;
    static constexpr uint32_t SERVER = 0x0A010203;
    static constexpr uint32_t HOST = 0x0A010204;
    static constexpr int16_t SHFE_TOPIC = 1000;
    static constexpr int16_t INE_TOPIC = 5000;
    static constexpr uint32_t FIRST_SEQ = 5000;
    static constexpr uint16_t PADDING = 0x0031;  ///< a field that decoders pass over
    /// Without the trace of register accesses: a completed snapshot makes five million.
    static constexpr ELOGLEVEL EVERYDAY_LEVEL = static_cast<ELOGLEVEL>(LOG_ALL - LOG_DEBUG_EX);

    void SetUp() override {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api = MakeApi();
        U50ConfigInfo& config = api->m_u50ConfigInfo;
        config.enabled_mask.enabled_mask = FeedBit(SHFE_2PS) | FeedBit(INE_2PS);
        config.snapTcpPort.shfe2ps_snap_port = SNAP_PORT;
        config.snapTcpPort.ine2ps_snap_port = SNAP_PORT;
        config.topicID.shfe2ps_topic_id = SHFE_TOPIC;
        config.topicID.ine2ps_topic_id = INE_TOPIC;
        config.topicID.shfe4ps_topic_id = SHFE_TOPIC + 1;
        config.topicID.ine4ps_topic_id = INE_TOPIC + 1;
        config.log_level = EVERYDAY_LEVEL;
        board.Forget();
        log.lines.clear();
    }

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

    static exchange::FrameWriter Segment(uint32_t seq, Bytes payload, uint16_t localPort = LOCAL_PORT) {
        exchange::FrameWriter frame({SERVER, HOST, SNAP_PORT, localPort});
        frame.Seq(seq).Payload(std::move(payload));
        return frame;
    }

    // ---- what arrives ----

    /// A block of exactly the bytes that a provider promises, so that sanitizers see any byte read beyond it.
    void Hand(const Bytes& message) {
        const std::size_t readable = std::max<std::size_t>(message.size(), DMA_READABLE_BYTES);
        const std::unique_ptr<uint8_t[]> block(new uint8_t[readable]());
        std::copy(message.begin(), message.end(), block.get());
        TestableApi::_TcpHandler(block.get(), static_cast<unsigned int>(message.size()), api.get());
    }

    void Arrive(uint32_t seq, const Bytes& payload, uint16_t localPort = LOCAL_PORT) {
        Hand(Segment(seq, payload, localPort).DmaMessage());
    }

    /// Begins a connection; gives the sequence number behind its first segment.
    uint32_t Begin(int16_t topic = SHFE_TOPIC, uint16_t localPort = LOCAL_PORT, uint32_t seq = FIRST_SEQ) {
        const Bytes first = FirstMessage(topic);
        Arrive(seq, first, localPort);
        return seq + static_cast<uint32_t>(first.size());
    }

    /// Writes go nowhere from here on: the five million of a completed snapshot tell most tests nothing.
    static void Unplug() { CDrvRegEnyx::GetInstance().Destory(); }

    // ---- what came of it ----

    tcp_session_t& Session(uint16_t port = LOCAL_PORT) { return api->m_sessions[port]; }

    // By value: assertions take references, which the packed record's pointers cannot give.
    uint8_t* FragBuf() { return Session().frag_buf; }
    tcp_lost_buf_t* EarlyHead() { return Session().lost_buf_head; }
    Bytes Carried() { return Bytes(FragBuf(), FragBuf() + Session().frag_buf_offset); }

    /// Numbers of the SHFE 2ps messages that were decoded, in order.
    std::vector<int32_t> Decoded() const {
        std::vector<int32_t> numbers;
        for (const Access& access : board.AccessesTo(0x11110, 0x11110)) {
            numbers.push_back(static_cast<int32_t>(access.value));
        }
        return numbers;
    }

    uint64_t Counted(ECounter counter) const { return api->m_counters[counter]; }

    static constexpr int32_t TROUBLE = LOG_ERROR | LOG_WARNING;

    VirtualClock clock;
    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api;
};

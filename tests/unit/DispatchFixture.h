/// Messages of the snapshot phase, whole snapshots with nothing in them, and what the board was told.
#pragma once

#include <cstdio>
#include <cstring>

#include "src/snapshot/SnapshotFrame.h"
#include "tests/unit/SnapshotFixture.h"

class DispatchFixture : public SnapshotFixture {
protected:
    static constexpr uint16_t INE_PORT = LOCAL_PORT + 1;

    static Bytes EventMessage() {
        const U50Event event{DMA_EVENT, sizeof(U50Event), 10, 11, 12, 13, 14, 15};
        Bytes message(sizeof event);
        std::memcpy(message.data(), &event, sizeof event);
        return message;
    }

    static Bytes MessageOfType(uint32_t type, std::size_t size) {
        Bytes message(size);
        if (size > 0) std::memcpy(message.data(), &type, std::min(sizeof type, size));
        return message;
    }

    void Reset(uint8_t flags, uint16_t port = LOCAL_PORT) {
        Hand(Segment(FIRST_SEQ, {}, port).Flags(flags).DmaMessage());
    }

    /// The feed's whole snapshot, with nothing in it.
    void Finish(int16_t topic, uint16_t port) { Arrive(Begin(topic, port), LastMessage(), port); }

    void FinishBoth() {
        Finish(SHFE_TOPIC, LOCAL_PORT);
        Finish(INE_TOPIC, INE_PORT);
    }

    /// A segment that says nothing, on which a completed snapshot is noticed.
    void OneMoreSegment() { Arrive(FIRST_SEQ, {}); }

    /// First writes to each table's address register, in order.
    std::vector<uint32_t> TablesInOrder() const {
        std::vector<uint32_t> order;
        for (const Access& write : board.Writes()) {
            const bool isTable =
                write.index == 0x11000 || write.index == 0x21000 || write.index == 0x11004 || write.index == 0x21004;
            if (isTable && (order.empty() || order.back() != write.index)) order.push_back(write.index);
        }
        return order;
    }

    std::string ChecksumLine(const Bytes& frame, uint16_t right) const {
        const uint16_t check = snapshot_frame::Raw<uint16_t>(frame.data() + CHECK_OFFSET);
        char line[128];
        std::snprintf(line, sizeof line, "TcpCheckSum false, tcp_hdr->check is 0x%x, tcpchecksum is 0x%x", check,
                      right);
        return line;
    }

    /// The last message of a feed, with one instrument.
    static Bytes Book(double bid, double ask) {
        inst_info_t info{};
        std::memcpy(info.inst_id, "cu2612", sizeof "cu2612");
        deal_info_t deal{};
        deal.upper_limit_price = 200;
        deal.lower_limit_price = 1;
        std::memcpy(deal.action_day, "20260430", sizeof "20260430");
        const Bytes zeros(8);
        return exchange::MdqpWriter(mdqp::FLAG_LAST)
            .InstInfo(info)
            .DealInfo(deal)
            .PriceDetail(0, '0', bid, 1)
            .PriceDetail(0, '1', ask, 1)
            .Field(PADDING, zeros.data(), 8)
            .Bytes();
    }

    static constexpr std::size_t CHECK_OFFSET = 14 + 20 + 16;
};

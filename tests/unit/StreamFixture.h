/// The reassembly alone, and behind it what identifies and decodes: no board, no clock, no session object.
#pragma once

#include <cstring>

#include "tests/support/RecordedWrites.h"
#include "tests/unit/SnapshotTest.h"

class StreamFixture : public SnapshotTest {
protected:
    /// The frame in a block of its own size, so that sanitizers see any byte read beyond it.
    void Hand(const Bytes& message) override {
        const std::size_t length = message.size() - DMA_TCP_FRAME_OFFSET;
        const std::unique_ptr<uint8_t[]> block(new uint8_t[length]);
        std::copy(message.begin() + DMA_TCP_FRAME_OFFSET, message.end(), block.get());
        SnapshotFrame frame{};
        ASSERT_TRUE(snapshot_frame::ReadHeaders(block.get(), static_cast<uint32_t>(length), frame));
        ASSERT_TRUE(snapshot_frame::IsTcpCaptured(frame) && snapshot_frame::ReadPayload(frame));
        result = units.reassembly.Receive(frame);
    }

    CReassembly& Reassembly() override { return units.reassembly; }

    std::vector<int32_t> Decoded() const override {
        std::vector<int32_t> numbers;
        for (const Access& access : board.accesses) {
            if (access.index == 0x11110) numbers.push_back(static_cast<int32_t>(access.value));
        }
        return numbers;
    }

    CReassembly::EResult result = CReassembly::EResult::Taken;  ///< of the last segment
    RecordedWrites board;
    SnapshotUnits units{*state, board};
    CInstrumentStore& store = units.store;
    CFeedIdentification& feeds = units.feeds;
};

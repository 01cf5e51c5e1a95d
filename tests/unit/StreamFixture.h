/// A connection's byte stream made of numbered messages, and what the reassembly keeps of it.
#pragma once

#include "src/SnapshotFrame.h"
#include "tests/unit/SnapshotFixture.h"

class StreamFixture : public SnapshotFixture {
protected:
    static constexpr std::size_t MESSAGE_BYTES = 40;  ///< of Numbered with its padding

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
};

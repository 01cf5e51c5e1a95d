#include "exchange/SnapshotConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/unit/ConnectionFrames.h"

namespace exchange {
namespace {

TEST(SnapshotConnectionTest, SegmentsMakeUpTheMessages) {
    EXPECT_EQ(Reassembled(FramesOf(Faults{})), Joined(ManyMessages()));
}

TEST(SnapshotConnectionTest, FirstSegmentIsExactlyTheFirstMessage) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        EXPECT_EQ(PayloadOf(FramesOf(Faults{}, seed).front()), ManyMessages().front());
    }
}

TEST(SnapshotConnectionTest, EveryFrameIsRightAndNoLongerThanASegment) {
    for (const Bytes& frame : FramesOf(Faults{})) {
        EXPECT_TRUE(IsChecksumRight(frame));
        EXPECT_EQ(FlagsOf(frame), TCP_PSH | TCP_ACK);
        EXPECT_LE(PayloadOf(frame).size(), 1400U);
        EXPECT_FALSE(PayloadOf(frame).empty());
    }
}

TEST(SnapshotConnectionTest, FramesCarryTheEndpoints) {
    const Bytes frame = FramesOf(Faults{}).front();
    EXPECT_EQ(Word32(frame, ETHERNET_BYTES + 12), ENDPOINTS.srcIp);
    EXPECT_EQ(Word32(frame, ETHERNET_BYTES + 16), ENDPOINTS.dstIp);
    EXPECT_EQ(Word16(frame, TCP_START), ENDPOINTS.srcPort);
    EXPECT_EQ(Word16(frame, TCP_START + 2), ENDPOINTS.dstPort);
    EXPECT_EQ(SeqOf(frame), INITIAL_SEQ);
}

TEST(SnapshotConnectionTest, NoSegmentEndsInsideAHeader) {
    std::set<std::size_t> starts;
    std::size_t start = 0;
    for (const Bytes& message : ManyMessages()) {
        starts.insert(start);
        start += message.size();
    }
    for (uint64_t seed = 1; seed <= 50; ++seed) {
        for (const Bytes& frame : FramesOf(Faults{}, seed)) {
            const std::size_t end = SeqOf(frame) - INITIAL_SEQ + PayloadOf(frame).size();
            const std::size_t messageStart = *std::prev(starts.upper_bound(end));
            const bool isInHeader = end > messageStart && end - messageStart < sizeof(mdqp_t);
            EXPECT_FALSE(isInHeader) << "seed " << seed << ", stream position " << end;
        }
    }
}

class HeaderAtTheEndOfASegment : public testing::TestWithParam<std::size_t> {};

TEST_P(HeaderAtTheEndOfASegment, IsCutInFrontOrNotAtAll) {
    const std::size_t inside = GetParam();  // bytes of the third message that would still fit
    const Messages messages{Message(100), Message(1400 - inside), Message(1400), Message(60, mdqp::FLAG_LAST)};
    const Messages frames = FramesOf(Faults{}, 1, messages);
    const std::size_t second = PayloadOf(frames[1]).size();
    if (inside > 0 && inside < sizeof(mdqp_t)) {
        EXPECT_EQ(second, 1400 - inside);
    }
    EXPECT_EQ(Reassembled(frames), Joined(messages));
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, HeaderAtTheEndOfASegment, testing::Range(std::size_t{0}, std::size_t{10}));

TEST(SnapshotConnectionTest, FirstMessageLongerThanASegmentIsCutButStaysAlone) {
    const Messages messages{Message(2000), Message(100, mdqp::FLAG_LAST)};
    const Messages frames = FramesOf(Faults{}, 1, messages);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(PayloadOf(frames[0]).size() + PayloadOf(frames[1]).size(), 2000U);
}

TEST(SnapshotConnectionTest, BareAcknowledgementsFollowTheStream) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, ManyMessages(), Faults{}, 1);
    EXPECT_FALSE(connection.IsSent());
    FramesUpToTheEnd(connection);
    EXPECT_TRUE(connection.IsSent());
    for (int i = 0; i < 3; ++i) {
        Bytes frame;
        ASSERT_TRUE(connection.NextFrame(frame));
        EXPECT_EQ(FlagsOf(frame), TCP_ACK);
        EXPECT_EQ(SeqOf(frame), INITIAL_SEQ + Joined(ManyMessages()).size());
        EXPECT_EQ(frame.size(), PAYLOAD_START);
        EXPECT_TRUE(IsChecksumRight(frame));
    }
}

TEST(SnapshotConnectionTest, StreamWithoutMessagesIsSentAtOnce) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, {}, Faults{}, 1);
    EXPECT_TRUE(connection.IsSent());
    Bytes frame;
    EXPECT_TRUE(connection.NextFrame(frame));
    EXPECT_EQ(FlagsOf(frame), TCP_ACK);
}

TEST(SnapshotConnectionTest, SequenceNumbersRunOverTheirEnd) {
    SnapshotConnection connection(ENDPOINTS, UINT32_MAX - 99, ManyMessages(), Faults{}, 1);
    const Messages frames = FramesUpToTheEnd(connection);
    EXPECT_EQ(SeqOf(frames[0]), UINT32_MAX - 99);
    EXPECT_EQ(SeqOf(frames[1]), 200U);
}

TEST(SnapshotConnectionTest, SameSeedGivesTheSameFrames) {
    const Faults faults = AllDisturbances();
    EXPECT_EQ(FramesOf(faults, 7), FramesOf(faults, 7));
    EXPECT_NE(FramesOf(faults, 7), FramesOf(faults, 8));
}

}  // namespace
}  // namespace exchange

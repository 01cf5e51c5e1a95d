#include "exchange/SnapshotConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "src/Mdqp.h"

namespace exchange {
namespace {

constexpr TcpEndpoints ENDPOINTS{0x0A010203, 0x0A040506, 33022, 41000};
constexpr uint32_t INITIAL_SEQ = 1000000;
constexpr std::size_t ETHERNET_BYTES = 14;
constexpr std::size_t IP_BYTES = 20;
constexpr std::size_t TCP_BYTES = 20;
constexpr std::size_t TCP_START = ETHERNET_BYTES + IP_BYTES;
constexpr std::size_t PAYLOAD_START = TCP_START + TCP_BYTES;
constexpr int FAR_MORE_THAN_A_SESSION = 5000;

using Bytes = std::vector<uint8_t>;
using Messages = std::vector<Bytes>;

uint32_t Word16(const Bytes& frame, std::size_t at) { return uint32_t{frame[at]} * 256 + frame[at + 1]; }

uint32_t SeqOf(const Bytes& frame) { return Word16(frame, TCP_START + 4) * 65536 + Word16(frame, TCP_START + 6); }

uint8_t FlagsOf(const Bytes& frame) { return frame[TCP_START + 13]; }

Bytes PayloadOf(const Bytes& frame) { return Bytes(frame.begin() + PAYLOAD_START, frame.end()); }

/// The Internet checksum the slow way: the sum over pseudo-header and segment, its checksum included, is all ones.
bool IsChecksumRight(const Bytes& frame) {
    Bytes covered(frame.begin() + ETHERNET_BYTES + 12, frame.end());  // addresses, TCP header, payload
    const std::size_t tcpLength = frame.size() - TCP_START;
    covered.insert(covered.end(), covered.size() % 2, 0);
    uint64_t sum = 6 + tcpLength;
    for (std::size_t i = 0; i < covered.size(); i += 2) sum += Word16(covered, i);
    return sum % 65535 == 0;
}

/// A message of `size` bytes with a recognisable body.
Bytes Message(std::size_t size, uint8_t flag = mdqp::FLAG_MORE) {
    Bytes message(size);
    for (std::size_t i = 0; i < size; ++i) message[i] = static_cast<uint8_t>(i * 7 + size);
    message[0] = flag;
    message[1] = mdqp::TYPE_SNAPSHOT;
    message[2] = static_cast<uint8_t>((size - sizeof(mdqp_t)) % 256);
    message[3] = static_cast<uint8_t>((size - sizeof(mdqp_t)) / 256);
    return message;
}

/// Sizes that bring message starts to every place of a segment.
Messages ManyMessages() {
    Messages messages{Message(300)};
    for (std::size_t i = 0; i < 200; ++i) messages.push_back(Message(301 + i * 37 % 900));
    messages.push_back(Message(5000));
    messages.push_back(Message(8, mdqp::FLAG_LAST));
    return messages;
}

Bytes Joined(const Messages& messages) {
    Bytes stream;
    for (const Bytes& message : messages) stream.insert(stream.end(), message.begin(), message.end());
    return stream;
}

/// Everything a connection sends until it stops or has sent all.
Messages FramesUpToTheEnd(SnapshotConnection& connection) {
    Messages frames;
    Bytes frame;
    for (int i = 0; i < FAR_MORE_THAN_A_SESSION && !connection.IsSent() && connection.NextFrame(frame); ++i) {
        frames.push_back(frame);
    }
    return frames;
}

Messages FramesOf(const Faults& faults, uint64_t seed = 1, const Messages& messages = ManyMessages()) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, messages, faults, seed);
    return FramesUpToTheEnd(connection);
}

/// The stream as a receiver of right segments puts it together, whatever their order.
Bytes Reassembled(const Messages& frames) {
    std::map<uint32_t, Bytes> segments;
    for (const Bytes& frame : frames) {
        if (IsChecksumRight(frame)) segments[SeqOf(frame)] = PayloadOf(frame);
    }
    Bytes stream;
    for (const auto& [seq, payload] : segments) {
        if (seq != INITIAL_SEQ + stream.size()) break;
        stream.insert(stream.end(), payload.begin(), payload.end());
    }
    return stream;
}

std::vector<uint32_t> SeqsOf(const Messages& frames) {
    std::vector<uint32_t> seqs;
    for (const Bytes& frame : frames) seqs.push_back(SeqOf(frame));
    return seqs;
}

Faults Only(bool Faults::*fault) {
    Faults faults;
    faults.*fault = true;
    return faults;
}

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
    EXPECT_EQ(Word16(frame, ETHERNET_BYTES + 12) * 65536 + Word16(frame, ETHERNET_BYTES + 14), ENDPOINTS.srcIp);
    EXPECT_EQ(Word16(frame, ETHERNET_BYTES + 16) * 65536 + Word16(frame, ETHERNET_BYTES + 18), ENDPOINTS.dstIp);
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
    Faults faults;
    faults.reorder = faults.duplicate = faults.corrupt = true;
    EXPECT_EQ(FramesOf(faults, 7), FramesOf(faults, 7));
    EXPECT_NE(FramesOf(faults, 7), FramesOf(faults, 8));
}

TEST(SnapshotConnectionTest, ReorderSwapsAFewSegmentsNotFarApart) {
    const Messages frames = FramesOf(Only(&Faults::reorder));
    const std::vector<uint32_t> seqs = SeqsOf(frames);
    std::vector<uint32_t> sorted = seqs;
    std::sort(sorted.begin(), sorted.end());
    int moved = 0;
    for (std::size_t i = 0; i < seqs.size(); ++i) moved += seqs[i] != sorted[i];
    EXPECT_GE(moved, 2);
    EXPECT_LE(moved, 16);
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionTest, DuplicateRepeatsWholeSegments) {
    const Messages frames = FramesOf(Only(&Faults::duplicate));
    const std::set<Bytes> distinct(frames.begin(), frames.end());
    EXPECT_GT(frames.size(), distinct.size());
    EXPECT_EQ(distinct.size(), FramesOf(Faults{}).size());
}

TEST(SnapshotConnectionTest, CorruptSendsADamagedCopyFirst) {
    const Messages frames = FramesOf(Only(&Faults::corrupt));
    int damaged = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (IsChecksumRight(frames[i])) continue;
        ++damaged;
        ASSERT_LT(i + 1, frames.size());
        EXPECT_EQ(SeqOf(frames[i]), SeqOf(frames[i + 1]));
        EXPECT_TRUE(IsChecksumRight(frames[i + 1]));
    }
    EXPECT_GT(damaged, 0);
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionTest, ResetComesHalfWayAndNothingBehindIt) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, ManyMessages(), Only(&Faults::reset), 1);
    const Messages frames = FramesUpToTheEnd(connection);
    EXPECT_EQ(FlagsOf(frames.back()), TCP_RST | TCP_ACK);
    EXPECT_TRUE(IsChecksumRight(frames.back()));
    EXPECT_EQ(frames.size(), FramesOf(Faults{}).size() / 2 + 1);
    EXPECT_TRUE(connection.IsReset());
    EXPECT_FALSE(connection.IsSent());
    Bytes frame;
    EXPECT_FALSE(connection.NextFrame(frame));
}

TEST(SnapshotConnectionTest, StallStopsHalfWayForGood) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, ManyMessages(), Only(&Faults::stall), 1);
    EXPECT_EQ(FramesUpToTheEnd(connection).size(), FramesOf(Faults{}).size() / 2);
    EXPECT_FALSE(connection.IsSent());
    EXPECT_FALSE(connection.IsReset());
    Bytes frame;
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(connection.NextFrame(frame));
}

TEST(SnapshotConnectionTest, ResetWinsOverAStall) {
    Faults faults;
    faults.reset = faults.stall = true;
    EXPECT_EQ(FlagsOf(FramesOf(faults).back()), TCP_RST | TCP_ACK);
}

TEST(SnapshotConnectionTest, CopiesDoNotCompleteABrokenStream) {
    const Messages shortest{Message(300), Message(8, mdqp::FLAG_LAST)};
    for (uint64_t seed = 1; seed <= 200; ++seed) {
        Faults faults;
        faults.duplicate = faults.corrupt = faults.reorder = faults.stall = true;
        EXPECT_LT(Reassembled(FramesOf(faults, seed, shortest)).size(), Joined(shortest).size());
    }
}

TEST(SnapshotConnectionTest, FirstSegmentStaysFirstUnderEveryFault) {
    Faults faults;
    faults.reorder = faults.duplicate = faults.corrupt = true;
    const Messages few{Message(300), Message(2000), Message(1400), Message(60, mdqp::FLAG_LAST)};
    for (uint64_t seed = 1; seed <= 500; ++seed) {
        for (const Bytes& frame : FramesOf(faults, seed, few)) {
            ASSERT_EQ(SeqOf(frame), INITIAL_SEQ) << "seed " << seed;
            if (IsChecksumRight(frame)) break;
        }
    }
}

}  // namespace
}  // namespace exchange

// Faults of where segments begin and end, and of segments that hold nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tests/unit/ConnectionFrames.h"

namespace exchange {
namespace {

/// Stream positions at which a message begins.
std::set<std::size_t> StartsOf(const Messages& messages) {
    std::set<std::size_t> starts;
    std::size_t start = 0;
    for (const Bytes& message : messages) {
        starts.insert(start);
        start += message.size();
    }
    return starts;
}

std::size_t BeginOf(const Bytes& frame) { return SeqOf(frame) - INITIAL_SEQ; }
std::size_t EndOf(const Bytes& frame) { return BeginOf(frame) + PayloadOf(frame).size(); }

/// Bytes of the header that `position` lies in the middle of; 0 elsewhere.
std::size_t BytesIntoHeader(const std::set<std::size_t>& starts, std::size_t position) {
    const std::size_t into = position - *std::prev(starts.upper_bound(position));
    return into < sizeof(mdqp_t) ? into : 0;
}

class SplitHeaders : public testing::TestWithParam<Faults> {};

INSTANTIATE_TEST_SUITE_P(OfSegments, SplitHeaders,
                         testing::Values(Only(EFault::SplitHeaders), Only(EFault::SplitHeaders, EFault::SplitSmall)));

TEST_P(SplitHeaders, EndTwoToSevenBytesIntoAMessageThatTheyBegin) {
    const std::set<std::size_t> starts = StartsOf(ManyMessages());
    std::set<std::size_t> seen;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        const Messages frames = FramesOf(GetParam(), seed);
        EXPECT_EQ(PayloadOf(frames.front()), ManyMessages().front());
        EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
        for (const Bytes& frame : frames) {
            const std::size_t into = BytesIntoHeader(starts, EndOf(frame));
            if (into == 0) continue;
            seen.insert(into);
            const std::size_t start = EndOf(frame) - into;
            const bool isSecondCut = BeginOf(frame) > start && PayloadOf(frame).size() == 1;
            EXPECT_TRUE(BeginOf(frame) == start || isSecondCut) << "seed " << seed << ", position " << EndOf(frame);
            EXPECT_GE(into, 2U);
        }
    }
    EXPECT_THAT(seen, testing::ElementsAre(2U, 3U, 4U, 5U, 6U, 7U));
}

TEST(LongFirstSegment, GoesOnBehindItsMessageInFewerBytesThanThatHas) {
    std::set<std::size_t> sizes;
    for (uint64_t seed = 1; seed <= 50; ++seed) {
        const Messages frames = FramesOf(Only(EFault::LongFirstSegment), seed);
        const std::size_t size = PayloadOf(frames.front()).size();
        EXPECT_GE(size, 300U + 8U);
        EXPECT_LT(size, 300U + 300U);
        sizes.insert(size);
        EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
        for (const Bytes& frame : frames) EXPECT_FALSE(PayloadOf(frame).empty());
    }
    EXPECT_GT(sizes.size(), 10U);
    EXPECT_EQ(*sizes.rbegin(), 599U);
}

TEST(LongFirstSegment, HoldsAWholeStreamThatIsShortEnough) {
    const Messages messages{Message(300), Message(150), Message(100, mdqp::FLAG_LAST)};
    int whole = 0;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        const Messages frames = FramesOf(Only(EFault::LongFirstSegment), seed, messages);
        EXPECT_EQ(Reassembled(frames), Joined(messages));
        whole += frames.size() == 1;
    }
    EXPECT_GT(whole, 5);
    EXPECT_LT(whole, 20);
}

TEST(LongFirstSegment, IsAsOrdinaryWhenNothingFits) {
    const Messages tooLong{Message(1395), Message(100, mdqp::FLAG_LAST)};
    EXPECT_EQ(PayloadOf(FramesOf(Only(EFault::LongFirstSegment), 1, tooLong).front()), tooLong.front());
    const Messages alone{Message(200, mdqp::FLAG_LAST)};
    EXPECT_EQ(FramesOf(Only(EFault::LongFirstSegment), 1, alone).size(), 1U);
}

TEST(BareAcks, ComeInOrderAndEarlyAndChangeNothingElse) {
    const Messages frames = FramesOf(Only(EFault::BareAck));
    uint32_t expected = INITIAL_SEQ;
    int inOrder = 0;
    int early = 0;
    Messages others;
    for (const Bytes& frame : frames) {
        if (!PayloadOf(frame).empty()) {
            others.push_back(frame);
            expected = SeqOf(frame) + static_cast<uint32_t>(PayloadOf(frame).size());
            continue;
        }
        EXPECT_EQ(FlagsOf(frame), TCP_ACK);
        EXPECT_TRUE(IsChecksumRight(frame));
        EXPECT_GE(SeqOf(frame), expected);
        (SeqOf(frame) == expected ? inOrder : early) += 1;
    }
    EXPECT_GT(inOrder, 5);
    EXPECT_GT(early, 5);
    EXPECT_EQ(others, FramesOf(Faults{}));
}

class OneSegment : public testing::TestWithParam<EFault> {};

INSTANTIATE_TEST_SUITE_P(CutShort, OneSegment,
                         testing::Values(EFault::Reset, EFault::Stall, EFault::DropForGood, EFault::EarlyFlood));

TEST_P(OneSegment, StaysSoThatAConnectionBegins) {
    const Messages alone{Message(200, mdqp::FLAG_LAST)};
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, alone, Only(GetParam()), 1);
    EXPECT_EQ(PayloadOf(FramesUpToTheEnd(connection).front()), alone.front());
    EXPECT_FALSE(connection.IsSent());
}

/// A receiver that compares sequence numbers plainly would keep such a copy as an early segment for ever.
TEST(Duplicates, NeverArriveBehindTheSequenceWrapTheyStandBefore) {
    int repeated = 0;
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        const uint32_t initial = 0U - 500U - seed * 20;
        SnapshotConnection connection(ENDPOINTS, initial, ManyMessages(),
                                      Only(EFault::Duplicate, EFault::Drop, EFault::Reorder), seed);
        uint32_t expected = initial;
        std::map<uint32_t, uint32_t> sizes;
        for (const Bytes& frame : FramesUpToTheEnd(connection)) {
            const uint32_t seq = SeqOf(frame);
            const auto size = static_cast<uint32_t>(PayloadOf(frame).size());
            EXPECT_FALSE(expected < initial && seq >= initial) << "seed " << seed;
            const bool isSecond = !sizes.emplace(seq, size).second;
            EXPECT_FALSE(isSecond && seq >= initial && seq + size < initial) << "seed " << seed;
            repeated += isSecond;
            for (auto at = sizes.find(expected); at != sizes.end(); at = sizes.find(expected)) expected += at->second;
        }
    }
    EXPECT_GT(repeated, 0);
}

}  // namespace
}  // namespace exchange

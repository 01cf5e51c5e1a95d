// What each fault of segments does to the frames of a connection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <set>

#include "tests/unit/ConnectionFrames.h"

namespace exchange {
namespace {

/// Segments that end inside a message's header.
int HeadersCut(const Messages& frames) {
    std::set<std::size_t> starts;
    std::size_t start = 0;
    for (const Bytes& message : ManyMessages()) {
        starts.insert(start);
        start += message.size();
    }
    int cut = 0;
    for (const Bytes& frame : frames) {
        const std::size_t end = SeqOf(frame) - INITIAL_SEQ + PayloadOf(frame).size();
        const std::size_t messageStart = *std::prev(starts.upper_bound(end));
        cut += end > messageStart && end - messageStart < sizeof(mdqp_t);
    }
    return cut;
}

TEST(SnapshotConnectionFaults, ReorderSwapsAFewSegmentsNotFarApart) {
    const Messages frames = FramesOf(Only(EFault::Reorder));
    const std::vector<uint32_t> seqs = SeqsOf(frames);
    std::vector<uint32_t> sorted = seqs;
    std::sort(sorted.begin(), sorted.end());
    int moved = 0;
    for (std::size_t i = 0; i < seqs.size(); ++i) moved += seqs[i] != sorted[i];
    EXPECT_GE(moved, 2);
    EXPECT_LE(moved, 16);
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionFaults, DuplicateRepeatsWholeSegments) {
    const Messages frames = FramesOf(Only(EFault::Duplicate));
    const std::set<Bytes> distinct(frames.begin(), frames.end());
    EXPECT_GT(frames.size(), distinct.size());
    EXPECT_EQ(distinct.size(), FramesOf(Faults{}).size());
}

TEST(SnapshotConnectionFaults, CorruptSendsADamagedCopyFirst) {
    const Messages frames = FramesOf(Only(EFault::CorruptChecksum));
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

TEST(SnapshotConnectionFaults, ResetComesHalfWayAndNothingBehindIt) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, ManyMessages(), Only(EFault::Reset), 1);
    const Messages frames = FramesUpToTheEnd(connection);
    EXPECT_EQ(FlagsOf(frames.back()), TCP_RST | TCP_ACK);
    EXPECT_TRUE(IsChecksumRight(frames.back()));
    EXPECT_EQ(frames.size(), FramesOf(Faults{}).size() / 2 + 1);
    EXPECT_TRUE(connection.IsOver());
    EXPECT_FALSE(connection.IsSent());
    Bytes frame;
    EXPECT_FALSE(connection.NextFrame(frame));
}

TEST(SnapshotConnectionFaults, StallStopsHalfWayForGood) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, ManyMessages(), Only(EFault::Stall), 1);
    EXPECT_EQ(FramesUpToTheEnd(connection).size(), FramesOf(Faults{}).size() / 2);
    EXPECT_FALSE(connection.IsSent());
    EXPECT_FALSE(connection.IsOver());
    Bytes frame;
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(connection.NextFrame(frame));
}

TEST(SnapshotConnectionFaults, ResetWinsOverAStall) {
    EXPECT_EQ(FlagsOf(FramesOf(Only(EFault::Reset, EFault::Stall)).back()), TCP_RST | TCP_ACK);
}

TEST(SnapshotConnectionFaults, CopiesDoNotCompleteABrokenStream) {
    const Messages shortest{Message(300), Message(8, mdqp::FLAG_LAST)};
    for (uint64_t seed = 1; seed <= 200; ++seed) {
        Faults faults = AllDisturbances();
        faults.Set(EFault::Stall);
        EXPECT_LT(Reassembled(FramesOf(faults, seed, shortest)).size(), Joined(shortest).size());
    }
}

TEST(SnapshotConnectionFaults, FirstSegmentStaysFirstUnderEveryFault) {
    const Faults faults = AllDisturbances();
    const Messages few{Message(300), Message(2000), Message(1400), Message(60, mdqp::FLAG_LAST)};
    for (uint64_t seed = 1; seed <= 500; ++seed) {
        for (const Bytes& frame : FramesOf(faults, seed, few)) {
            ASSERT_EQ(SeqOf(frame), INITIAL_SEQ) << "seed " << seed;
            if (IsOfTheStream(frame)) break;
        }
    }
}

Messages Copies(const Messages& frames, bool (*isCopy)(const Bytes&)) {
    Messages copies;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(copies), isCopy);
    return copies;
}

TEST(SnapshotConnectionFaults, DropLeavesSegmentsOutAndSendsThemAFewPlacesLater) {
    const Messages frames = FramesOf(Only(EFault::Drop));
    const std::vector<uint32_t> seqs = SeqsOf(frames);
    std::vector<uint32_t> sorted = seqs;
    std::sort(sorted.begin(), sorted.end());
    int late = 0;
    for (std::size_t i = 1; i < seqs.size(); ++i) {
        const auto place = std::find(sorted.begin(), sorted.end(), seqs[i]) - sorted.begin();
        EXPECT_LE(std::abs(place - static_cast<std::ptrdiff_t>(i)), 20);
        late += seqs[i] < seqs[i - 1];
    }
    EXPECT_GT(late, 3);
    EXPECT_EQ(frames.size(), FramesOf(Faults{}).size());
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionFaults, LyingCopiesHaveImpossibleLengths) {
    int totals = 0;
    int ipHeaders = 0;
    int tcpHeaders = 0;
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        const Messages frames = FramesOf(Only(EFault::CorruptLength), seed);
        for (std::size_t i = 0; i < frames.size(); ++i) {
            if (AreLengthsRight(frames[i])) continue;
            const uint32_t total = Word16(frames[i], ETHERNET_BYTES + 2);
            const bool isTotalWrong = total > frames[i].size() - ETHERNET_BYTES || total < IP_BYTES + TCP_BYTES;
            const bool isIpHeaderShort = (frames[i][ETHERNET_BYTES] & 0x0F) < 5;
            const bool isTcpHeaderShort = frames[i][TCP_START + 12] >> 4 < 5;
            EXPECT_EQ(isTotalWrong + isIpHeaderShort + isTcpHeaderShort, 1);
            totals += isTotalWrong;
            ipHeaders += isIpHeaderShort;
            tcpHeaders += isTcpHeaderShort;
            ASSERT_LT(i + 1, frames.size());
            EXPECT_EQ(PayloadOf(frames[i]), PayloadOf(frames[i + 1]));
        }
        EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
    }
    EXPECT_GT(totals, 0);
    EXPECT_GT(ipHeaders, 0);
    EXPECT_GT(tcpHeaders, 0);
}

TEST(SnapshotConnectionFaults, ForeignPortFramesComeFromTheSameHost) {
    const Messages frames = FramesOf(Only(EFault::ForeignPort));
    const Messages foreign = Copies(frames, [](const Bytes& frame) { return !IsOfTheServer(frame); });
    EXPECT_GT(foreign.size(), 3U);
    for (const Bytes& frame : foreign) {
        EXPECT_EQ(Word32(frame, ETHERNET_BYTES + 12), ENDPOINTS.srcIp);
        EXPECT_LT(Word16(frame, TCP_START), 1024U);
        EXPECT_TRUE(IsChecksumRight(frame));
    }
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionFaults, ForeignHostFramesFitTheStreamAndHoldSomethingElse) {
    const Messages frames = FramesOf(Only(EFault::ForeignHost));
    int foreign = 0;
    for (std::size_t i = 0; i + 1 < frames.size(); ++i) {
        if (IsOfTheServer(frames[i])) continue;
        ++foreign;
        EXPECT_NE(Word32(frames[i], ETHERNET_BYTES + 12), ENDPOINTS.srcIp);
        EXPECT_EQ(Word32(frames[i], TCP_START), Word32(frames[i + 1], TCP_START)) << "both ports";
        EXPECT_EQ(SeqOf(frames[i]), SeqOf(frames[i + 1]));
        EXPECT_NE(SeqOf(frames[i]), INITIAL_SEQ);
        EXPECT_TRUE(IsChecksumRight(frames[i]));
        EXPECT_NE(PayloadOf(frames[i]), PayloadOf(frames[i + 1]));
    }
    EXPECT_GT(foreign, 3);
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionFaults, ForeignHostNeverComesBeforeTheFirstSegment) {
    for (uint64_t seed = 1; seed <= 100; ++seed) {
        EXPECT_TRUE(IsOfTheServer(FramesOf(Only(EFault::ForeignHost), seed).front())) << "seed " << seed;
    }
}

TEST(SnapshotConnectionFaults, SplitSmallMakesTinySegmentsAndKeepsHeadersWhole) {
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        const Messages frames = FramesOf(Only(EFault::SplitSmall), seed);
        const auto isOneByte = [](const Bytes& frame) { return frame.size() == PAYLOAD_START + 1; };
        EXPECT_GT(std::count_if(frames.begin(), frames.end(), isOneByte), 50);
        EXPECT_EQ(PayloadOf(frames.front()), ManyMessages().front());
        EXPECT_EQ(HeadersCut(frames), 0);
        EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
    }
}

TEST(SnapshotConnectionFaults, SplitAnywhereCutsHeadersToo) {
    const Messages frames = FramesOf(Only(EFault::SplitAnywhere));
    EXPECT_GT(HeadersCut(frames), 0);
    EXPECT_EQ(PayloadOf(frames.front()), ManyMessages().front());
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionFaults, ResetWithoutAckComesInOrderAndTheStreamGoesOn) {
    const Messages frames = FramesOf(Only(EFault::ResetWithoutAck));
    uint32_t expected = INITIAL_SEQ;
    int resets = 0;
    for (const Bytes& frame : frames) {
        EXPECT_EQ(SeqOf(frame), expected);
        expected += static_cast<uint32_t>(PayloadOf(frame).size());
        resets += FlagsOf(frame) == TCP_RST;
    }
    EXPECT_EQ(resets, 1);
    EXPECT_EQ(Reassembled(frames), Joined(ManyMessages()));
}

TEST(SnapshotConnectionFaults, DropForGoodLeavesOneSegmentOutAndEndsInSilence) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, ManyMessages(), Only(EFault::DropForGood), 1);
    const Messages frames = FramesUpToTheEnd(connection);
    const Messages whole = FramesOf(Faults{});
    EXPECT_EQ(frames.size(), whole.size() - 1);
    EXPECT_EQ(frames.back(), whole.back());
    EXPECT_LT(Reassembled(frames).size(), Joined(ManyMessages()).size());
    Bytes frame;
    EXPECT_FALSE(connection.NextFrame(frame));
    EXPECT_FALSE(connection.IsOver());
}

TEST(SnapshotConnectionFaults, DropForGoodIsNeverFollowedByAFlood) {
    Messages many = ManyMessages();
    for (int i = 0; i < 2000; ++i) many.insert(many.begin() + 1, Message(1400));
    const Messages frames = FramesOf(Only(EFault::DropForGood), 1, many);
    std::size_t missing = 1;
    while (SeqOf(frames[missing]) == SeqOf(frames[missing - 1]) + PayloadOf(frames[missing - 1]).size()) ++missing;
    EXPECT_GT(frames.size() - missing, 100U);
    EXPECT_LT(frames.size() - missing, 450U);
}

TEST(SnapshotConnectionFaults, EarlyFloodIsMoreThanAReceiverKeepsBehindAMissingByte) {
    const Messages shortest{Message(300), Message(8, mdqp::FLAG_LAST)};
    for (const Messages& messages : {shortest, ManyMessages()}) {
        SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, messages, Only(EFault::EarlyFlood), 1);
        const Messages frames = FramesUpToTheEnd(connection);
        const std::size_t inOrder = Reassembled(frames).size();
        std::set<uint32_t> early;
        for (const Bytes& frame : frames) {
            if (SeqOf(frame) - INITIAL_SEQ > inOrder) early.insert(SeqOf(frame));
        }
        EXPECT_GT(early.size(), 501U);
        EXPECT_LT(inOrder, Joined(messages).size());
        EXPECT_TRUE(connection.IsOver());
        EXPECT_FALSE(connection.IsSent());
    }
}

TEST(SnapshotConnectionFaults, NothingChangesPlacesAcrossTheSequenceWrap) {
    const std::size_t streamed = Joined(ManyMessages()).size();
    for (uint32_t before = 1000; before < streamed; before += 5000) {
        SnapshotConnection connection(ENDPOINTS, 0 - before, ManyMessages(), Only(EFault::Drop, EFault::Reorder),
                                      before);
        bool isWrapped = false;
        for (const Bytes& frame : FramesUpToTheEnd(connection)) {
            const bool isBehind = SeqOf(frame) < 0 - before;
            EXPECT_TRUE(isBehind || !isWrapped) << before;
            isWrapped = isBehind;
        }
        EXPECT_TRUE(isWrapped);
    }
}

TEST(SnapshotConnectionFaults, OneFaultLeavesTheOthersWhereTheyWere) {
    const auto damaged = [](const Faults& faults) {
        std::set<Bytes> frames;
        for (const Bytes& frame : FramesOf(faults)) {
            if (!IsChecksumRight(frame)) frames.insert(frame);
        }
        return frames;
    };
    EXPECT_EQ(damaged(Only(EFault::CorruptChecksum)),
              damaged(Only(EFault::CorruptChecksum, EFault::ForeignHost, EFault::Duplicate)));
}

TEST(SnapshotConnectionFaults, DisturbancesTogetherStillBringTheWholeStream) {
    for (uint64_t seed = 1; seed <= 50; ++seed) {
        EXPECT_EQ(Reassembled(FramesOf(AllDisturbances(), seed)), Joined(ManyMessages()));
    }
}

}  // namespace
}  // namespace exchange

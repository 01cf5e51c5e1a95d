#include <numeric>
#include <tuple>

#include "src/SnapshotFrame.h"
#include "tests/unit/SnapshotFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

// ---- the checksum -------------------------------------------------------------------------------------------------

uint16_t CheckSum(Bytes bytes) { return TestableApi::TcpCheckSum(bytes.data(), static_cast<int32_t>(bytes.size())); }

/// In the order in which two bytes lie in memory, whatever the machine.
uint16_t InMemory(uint8_t first, uint8_t second) {
    const uint8_t bytes[] = {first, second};
    return snapshot_frame::Raw<uint16_t>(bytes);
}

TEST(TcpCheckSum, NothingSumsToAllOnes) { EXPECT_EQ(CheckSum({}), 0xFFFF); }

TEST(TcpCheckSum, WordsAreAddedAndComplemented) {
    EXPECT_EQ(CheckSum({1, 2, 3, 4}), static_cast<uint16_t>(~InMemory(4, 6)));
}

TEST(TcpCheckSum, CarryIsAddedAgain) {
    EXPECT_EQ(CheckSum({0xFF, 0xFF, 1, 0}), static_cast<uint16_t>(~InMemory(1, 0)));
}

TEST(TcpCheckSum, OddLastByteIsTheFirstOfAZeroPaddedWord) { EXPECT_EQ(CheckSum({1, 2, 7}), CheckSum({1, 2, 7, 0})); }

// ---- streams ------------------------------------------------------------------------------------------------------

class TcpReassembly : public SnapshotFixture {
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
            SnapshotFrame frame;
            EXPECT_TRUE(snapshot_frame::ReadHeaders(entry->buf, entry->len, frame));
            EXPECT_TRUE(entry->before == before);
            seqs.push_back(frame.seq);
            before = entry;
        }
        return seqs;
    }

    /// A message of 65,543 bytes is begun and fed until `total` of its bytes are carried. Gives the next number.
    uint32_t FeedEndlessMessage(uint32_t seq, uint32_t total) {
        constexpr uint32_t CHUNK = 1900;
        Bytes chunk(CHUNK);
        const mdqp_t header{mdqp::FLAG_MORE, mdqp::TYPE_SNAPSHOT, UINT16_MAX, 0};
        std::memcpy(chunk.data(), &header, sizeof header);
        for (uint32_t fed = 0; fed < total; fed += CHUNK) {
            chunk.resize(std::min(CHUNK, total - fed));
            Arrive(seq, chunk);
            seq += SizeOf(chunk);
            std::fill(chunk.begin(), chunk.end(), uint8_t{0});
        }
        return seq;
    }
};

TEST_F(TcpReassembly, FirstSegmentRecordsTheConnection) {
    const uint32_t next = Begin();
    const tcp_session_t session = Session();
    EXPECT_EQ(uint16_t{session.src_port}, SNAP_PORT);
    EXPECT_EQ(uint16_t{session.dst_port}, LOCAL_PORT);
    const uint8_t serverAsReceived[] = {10, 1, 2, 3};
    const uint8_t hostAsReceived[] = {10, 1, 2, 4};
    EXPECT_EQ(uint32_t{session.src_host}, snapshot_frame::Raw<uint32_t>(serverAsReceived));
    EXPECT_EQ(uint32_t{session.dst_host}, snapshot_frame::Raw<uint32_t>(hostAsReceived));
    EXPECT_EQ(uint32_t{session.current_seq}, FIRST_SEQ);
    EXPECT_EQ(uint32_t{session.next_expt_seq}, next);
}

TEST_F(TcpReassembly, SegmentOfOddLengthPasses) {
    Arrive(Begin(), Numbered(1, 21));
    EXPECT_THAT(Decoded(), ElementsAre(1));
}

TEST_F(TcpReassembly, RepeatedSegmentParsesNothing) {
    const uint32_t next = Begin();
    Arrive(next, Numbered(1));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Counted(ECounter::SegmentRepeated), 1U);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(TcpReassembly, EarlySegmentIsReplayedOnceTheGapIsFilled) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Session().lost_flag, 1);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 1U);
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 0U);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

TEST_F(TcpReassembly, EarlySegmentsAreKeptInOrder) {
    const uint32_t next = Begin();
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + MESSAGE_BYTES, next + 2 * MESSAGE_BYTES));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(TcpReassembly, DrainStopsAtTheNextGap) {
    const uint32_t next = Begin();
    Arrive(next + 3 * MESSAGE_BYTES, Numbered(4));
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + 3 * MESSAGE_BYTES));
    EXPECT_EQ(Session().lost_flag, 1);
}

TEST_F(TcpReassembly, EarlySegmentThatIsCoveredMeanwhileIsPassedOver) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next, Stream(1, 3));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
    EXPECT_EQ(EarlyHead(), nullptr);
}

TEST_F(TcpReassembly, WalkAlongTheListTellsEachStep) {
    const uint32_t next = Begin();
    for (const int32_t number : {2, 3, 4, 5}) {
        Arrive(next + static_cast<uint32_t>(number - 1) * MESSAGE_BYTES, Numbered(number));
    }
    // The third one looks past one entry, the fourth past two.
    EXPECT_EQ(log.Count(LOG_ERROR, "free the cache of packet loss."), 3U);
    EXPECT_EQ(log.lines.back().Function(), "_TcpHandler");
}

TEST_F(TcpReassembly, RepeatedHeadOfTheListIsDiscarded) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_EQ(api->m_earlySegmentCount, 1U);
    EXPECT_EQ(Counted(ECounter::SegmentRepeated), 1U);
}

TEST_F(TcpReassembly, RepeatedLaterEntryIsDecodedOnce) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    EXPECT_EQ(EarlySeqs().size(), 3U);  // stored in front of its equal
    EXPECT_FALSE(log.Has(LOG_ERROR, "free the cache of packet loss."));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(TcpReassembly, MessageInThreeSegmentsIsParsedWithItsLastByte) {
    const uint32_t next = Begin();
    const Bytes message = Numbered(1);
    Arrive(next, Cut(message, 0, 15));
    Arrive(next + 15, Cut(message, 15, MESSAGE_BYTES - 1));
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Session().frag_flag, 1);
    Arrive(next + MESSAGE_BYTES - 1, Cut(message, MESSAGE_BYTES - 1, MESSAGE_BYTES));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 0U);
}

TEST_F(TcpReassembly, PayloadOfSeveralMessagesKeepsTheUnfinishedOne) {
    const uint32_t next = Begin();
    const Bytes stream = Stream(1, 3);
    Arrive(next, Cut(stream, 0, 2 * MESSAGE_BYTES + 9));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 9U);
    Arrive(next + 2 * MESSAGE_BYTES + 9, Cut(stream, 2 * MESSAGE_BYTES + 9, stream.size()));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(TcpReassembly, WholeHeaderAtThePayloadsEndIsCarriedOver) {
    const uint32_t next = Begin();
    const Bytes stream = Join({Numbered(1), Numbered(2, 25)});
    const uint32_t cut = MESSAGE_BYTES + sizeof(mdqp_t);
    Arrive(next, Cut(stream, 0, cut));
    EXPECT_EQ(Carried(), Cut(stream, MESSAGE_BYTES, cut));
    Arrive(next + cut, Cut(stream, cut, stream.size()));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
}

TEST_F(TcpReassembly, LaterHeadersOfAPayloadAreNotTested) {
    const uint32_t next = Begin();
    const Bytes zeros(20);
    const Bytes odd = exchange::MdqpWriter(0x55, 'x').PacketNo(2).Field(PADDING, zeros.data(), 20).Bytes();
    Arrive(next, Join({Numbered(1), odd}));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
}

class Remainder : public TcpReassembly, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(Remainder, OfACarryOverKeepsTheBytesOfTheNextHeader) {
    const uint32_t next = Begin();
    const Bytes stream = Stream(1, 2);
    Arrive(next, Cut(stream, 0, 10));
    const std::size_t cut = MESSAGE_BYTES + GetParam();
    Arrive(next + 10, Cut(stream, 10, cut));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    ASSERT_EQ(uint32_t{Session().frag_buf_offset}, GetParam());
    EXPECT_EQ(Session().frag_flag, 1);
    EXPECT_EQ(Carried(), Cut(stream, MESSAGE_BYTES, cut));
    Arrive(next + static_cast<uint32_t>(cut), Cut(stream, cut, stream.size()));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
}

TEST_P(Remainder, WithoutCarryOverKeepsTheFirstBytesOfTheLastWholeMessage) {
    const Bytes last = Numbered(2);
    const Bytes tail(GetParam(), 0xEE);
    Arrive(Begin(), Join({Numbered(1), last, tail}));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    ASSERT_EQ(uint32_t{Session().frag_buf_offset}, GetParam());
    EXPECT_EQ(Session().frag_flag, 1);
    EXPECT_EQ(Carried(), Cut(last, 0, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Bytes, Remainder, ::testing::Range<std::size_t>(1, sizeof(mdqp_t)));

// ---- any split, any order -----------------------------------------------------------------------------------------

enum class Order { Plain, Swapped, Reversed, Repeated, LastFirst };

class Matrix : public TcpReassembly, public ::testing::WithParamInterface<std::tuple<uint32_t, Order, uint32_t>> {
protected:
    static constexpr int32_t MESSAGES = 35;
    static constexpr uint32_t STREAM_BYTES = MESSAGES * MESSAGE_BYTES;

    static std::vector<std::size_t> Sequence(Order order, std::size_t count) {
        std::vector<std::size_t> sequence(count);
        std::iota(sequence.begin(), sequence.end(), std::size_t{0});
        if (order == Order::Swapped) {
            for (std::size_t i = 0; i + 1 < count; i += 2) std::swap(sequence[i], sequence[i + 1]);
        } else if (order == Order::Reversed) {
            std::reverse(sequence.begin(), sequence.end());
        } else if (order == Order::LastFirst) {
            std::rotate(sequence.begin(), sequence.end() - 1, sequence.end());
        } else if (order == Order::Repeated) {
            const std::vector<std::size_t> once = sequence;
            sequence.insert(sequence.end(), once.begin(), once.end());
            std::stable_sort(sequence.begin(), sequence.end());
        }
        return sequence;
    }
};

TEST_P(Matrix, StreamEqualsTheTruth) {
    const auto [segmentBytes, order, initialSeq] = GetParam();
    const Bytes stream = Stream(1, MESSAGES);
    const uint32_t next = Begin(SHFE_TOPIC, LOCAL_PORT, initialSeq);
    const std::size_t count = (STREAM_BYTES + segmentBytes - 1) / segmentBytes;
    for (const std::size_t segment : Sequence(order, count)) {
        const auto offset = static_cast<uint32_t>(segment * segmentBytes);
        Arrive(next + offset, Cut(stream, offset, offset + segmentBytes));
    }
    std::vector<int32_t> truth(MESSAGES);
    std::iota(truth.begin(), truth.end(), 1);
    EXPECT_EQ(Decoded(), truth);
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

constexpr uint32_t WHOLE_STREAM = 60 + 35 * 40;  // with the first segment
INSTANTIATE_TEST_SUITE_P(SplitOrderSeq, Matrix,
                         ::testing::Combine(::testing::Values(8U, 20U, 28U, 40U, 60U, 200U, 500U),
                                            ::testing::Values(Order::Plain, Order::Swapped, Order::Reversed,
                                                              Order::Repeated, Order::LastFirst),
                                            ::testing::Values(1U, 0x7FFFFF00U, UINT32_MAX - WHOLE_STREAM)));

TEST_F(TcpReassembly, SequenceNumbersWrapInOrder) {
    uint32_t next = Begin(SHFE_TOPIC, LOCAL_PORT, UINT32_MAX - 60);
    for (const int32_t number : {1, 2, 3}) {
        Arrive(next, Numbered(number));
        next += MESSAGE_BYTES;
    }
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(TcpReassembly, ReorderingAcrossTheWrapStallsAndNeverLies) {
    const uint32_t next = Begin(SHFE_TOPIC, LOCAL_PORT, UINT32_MAX - 80);
    Arrive(next + MESSAGE_BYTES, Numbered(2));  // beyond the wrap: taken for an old one
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1));
}

// ---- all error paths ----------------------------------------------------------------------------------------------

TEST_F(TcpReassembly, SegmentOfAnotherServerIsIgnored) {
    const uint32_t next = Begin();
    exchange::FrameWriter stranger({SERVER + 1, HOST, SNAP_PORT, LOCAL_PORT});
    Hand(stranger.Seq(next).Payload(Numbered(1)).DmaMessage());
    exchange::FrameWriter toAnother({SERVER, HOST + 1, SNAP_PORT, LOCAL_PORT});
    Hand(toAnother.Seq(next).Payload(Numbered(1)).DmaMessage());
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
    EXPECT_EQ(Counted(ECounter::SegmentOtherHost), 2U);
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next);
}

TEST_F(TcpReassembly, BareAcknowledgementMovesNothing) {
    const uint32_t next = Begin();
    Arrive(next, {});
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next);
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 0U);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(TcpReassembly, PayloadThatIsNoMessageIsDroppedButCounted) {
    const uint32_t next = Begin();
    Arrive(next, Bytes(50, 0xEE));
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next + 50);
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(TcpReassembly, WrongTypeIsNoMessage) {
    const Bytes zeros(40);
    Arrive(Begin(), exchange::MdqpWriter(mdqp::FLAG_MORE, '3').PacketNo(1).Field(PADDING, zeros.data(), 40).Bytes());
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
}

TEST_F(TcpReassembly, DrainedPayloadThatIsNoMessageStopsTheDrain) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Bytes(MESSAGE_BYTES, 0xEE));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("not a mdqp header, check program logic"));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + 2 * MESSAGE_BYTES));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    EXPECT_THAT(Decoded(), ElementsAre(1, 3));
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

TEST_F(TcpReassembly, CarryOverIsKeptBelowItsLimit) {
    FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT - 1);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, FRAG_BUF_LIMIT - 1);
    EXPECT_EQ(Session().init, 1);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(TcpReassembly, CarryOverAtItsLimitAbandonsTheConnection) {
    FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("ignore tcp message!"));
    EXPECT_EQ(Counted(ECounter::CarryOverGivenUp), 1U);
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 0U);
    EXPECT_EQ(FragBuf(), nullptr);
    EXPECT_EQ(api->m_carryOverOwners.Count(), 0U);
}

TEST_F(TcpReassembly, AbandonedConnectionBeginsAgainWithAnIdentification) {
    const uint32_t next = FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT);
    Arrive(next, Numbered(1));
    EXPECT_EQ(Session().init, 0);
    Arrive(Begin(SHFE_TOPIC, LOCAL_PORT, 9), Numbered(2));
    EXPECT_THAT(Decoded(), ElementsAre(2));
}

TEST_F(TcpReassembly, AbandoningInTheMiddleOfADrainFreesTheWholeList) {
    const uint32_t next = FeedEndlessMessage(Begin(), FRAG_BUF_LIMIT - 100);
    Arrive(next + 50, Bytes(60));
    Arrive(next + 110, Bytes(60));
    Arrive(next + 170, Bytes(60));
    Arrive(next, Bytes(50));  // the first early segment behind it is one too many
    EXPECT_TRUE(log.Has(LOG_WARNING, "ignore tcp message!"));
    EXPECT_EQ(EarlyHead(), nullptr);
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

TEST_F(TcpReassembly, FeedThatClosesInTheMiddleOfADrainIsSafe) {
    const uint32_t next = Begin();
    const uint32_t behindLast = next + MESSAGE_BYTES + SizeOf(LastMessage());
    Arrive(next + MESSAGE_BYTES, LastMessage());
    Arrive(behindLast, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(Counted(ECounter::MessageOfNoFeed), 1U);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

TEST_F(TcpReassembly, EarlySegmentsOfAFormerConnectionAreNoPartOfTheNext) {
    const uint32_t next = Begin();
    Arrive(next + 1000, Numbered(9));
    Arrive(next, LastMessage());
    Arrive(Begin(INE_TOPIC, LOCAL_PORT, next), Numbered(2));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

class EarlyFlood : public TcpReassembly {
protected:
    void StoreEarly(uint32_t count) {
        m_next = Begin();
        CCommonLog::GetInstance().SetLogLevel(LOG_NONE);  // each step of each walk has its line
        // From the far end, so that each becomes the head at once.
        for (uint32_t i = count; i > 0; --i) Arrive(m_next + i * MESSAGE_BYTES, Numbered(static_cast<int32_t>(i)));
        CCommonLog::GetInstance().SetLogLevel(LOG_ALL);
        log.lines.clear();
    }

    uint32_t m_next = 0;
};

TEST_F(EarlyFlood, FiveHundredSegmentsAreStored) {
    StoreEarly(LOST_BUF_LIMIT);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, LOST_BUF_LIMIT);
    EXPECT_EQ(EarlySeqs().size(), LOST_BUF_LIMIT);
    Arrive(m_next, Numbered(0));
    EXPECT_EQ(Decoded().size(), LOST_BUF_LIMIT + 1);
}

TEST_F(EarlyFlood, OneMoreClearsEverything) {
    StoreEarly(LOST_BUF_LIMIT);
    api->m_finishedMask.enabled_mask = FeedBit(INE_2PS);
    const uint32_t seq = m_next + 501 * MESSAGE_BYTES;
    Arrive(seq, Numbered(501));
    EXPECT_THAT(log.Texts(TROUBLE),
                ElementsAre("break tcp seq detected. expt: " + std::to_string(m_next) + ", Got: " + std::to_string(seq),
                            "packet loss > 20 msg, free cache, init again."));
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(EarlyHead(), nullptr);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50DstPort.port_shfe_2ps, 0);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
    EXPECT_EQ(api->m_carryOverOwners.Count(), 0U);
    EXPECT_EQ(Counted(ECounter::EarlyOverflow), 1U);
}

TEST_F(TcpReassembly, LongestFrameThatFitsAnEntryIsStored) {
    const uint32_t next = Begin();
    const std::size_t headers = Segment(next, {}).Frame().size();
    Arrive(next + 1, Bytes(EARLY_FRAME_CAPACITY - headers));
    EXPECT_EQ(uint32_t{EarlyHead()->len}, EARLY_FRAME_CAPACITY);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(TcpReassembly, EarlyFrameLongerThanAnEntryIsLost) {
    const uint32_t next = Begin();
    const std::size_t headers = Segment(next, {}).Frame().size();
    Arrive(next + 1, Bytes(EARLY_FRAME_CAPACITY - headers + 1));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

TEST_F(TcpReassembly, EarlySegmentBeyondTheBudgetOfAllConnectionsIsLost) {
    const uint32_t next = Begin();
    api->m_earlySegmentCount = EARLY_SEGMENT_BUDGET;
    Arrive(next + 1, Numbered(1));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

TEST_F(TcpReassembly, ListGoesOnWhenOneOfItsSegmentsFindsNoRoom) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    api->m_earlySegmentCount = EARLY_SEGMENT_BUDGET;
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
}

}  // namespace

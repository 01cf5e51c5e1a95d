#include <numeric>
#include <tuple>

#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TcpReassembly = StreamFixture;

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
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
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

TEST_F(TcpReassembly, SegmentOfAnotherServerIsIgnored) {
    const uint32_t next = Begin();
    exchange::FrameWriter stranger({SERVER + 1, HOST, SNAP_PORT, LOCAL_PORT});
    Hand(stranger.Seq(next).Payload(Numbered(1)).DmaMessage());
    exchange::FrameWriter toAnother({SERVER, HOST + 1, SNAP_PORT, LOCAL_PORT});
    Hand(toAnother.Seq(next).Payload(Numbered(1)).DmaMessage());
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::SegmentOtherHost), 2U);
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next);
}

TEST_F(TcpReassembly, BareAcknowledgementMovesNothing) {
    const uint32_t next = Begin();
    Arrive(next, {});
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next);
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 0U);
}

TEST_F(TcpReassembly, PayloadThatIsNoMessageIsDroppedButCounted) {
    const uint32_t next = Begin();
    Arrive(next, Bytes(50, 0xEE));
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next + 50);
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
}

TEST_F(TcpReassembly, WrongTypeIsNoMessage) {
    const Bytes zeros(40);
    Arrive(Begin(), exchange::MdqpWriter(mdqp::FLAG_MORE, '3').PacketNo(1).Field(PADDING, zeros.data(), 40).Bytes());
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
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
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
}

}  // namespace

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "public/write_shot/write_shot.h"
#include "src/SnapshotFrame.h"
#include "tests/unit/SnapshotFixture.h"

namespace {

using exchange::TCP_ACK;
using exchange::TCP_RST;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SnapshotDispatch : public SnapshotFixture {
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
            for (const reg::FeedRegisters& feed : reg::FEEDS) {
                if (write.index != feed.table.writeAddr) continue;
                if (order.empty() || order.back() != write.index) order.push_back(write.index);
            }
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

    static constexpr std::size_t CHECK_OFFSET = 14 + 20 + snapshot_frame::TCP_CHECK_OFFSET;
};

// ---- messages -----------------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, NullPointersAreToldAndIgnored) {
    const Bytes message = EventMessage();
    TestableApi::_TcpHandler(nullptr, 32, api.get());
    TestableApi::_TcpHandler(message.data(), 32, nullptr);
    EXPECT_EQ(log.Count(LOG_DEBUG, "user_data or lpPacket is nullptr"), 2U);
    EXPECT_EQ(log.lines.back().Function(), "_TcpHandler");
}

TEST_F(SnapshotDispatch, EventYieldsTwoLines) {
    api->m_u50ConfigInfo.channel_id = 3;
    Hand(EventMessage());
    EXPECT_THAT(log.Texts(), ElementsAre("invalide DMA Data Type[0]",
                                         "channel3 receive DMA_EVENT event_data0[10] event_data1[11] event_data2[12] "
                                         "event_data3[13] event_data4[14] event_data5[15]"));
    EXPECT_EQ(log.lines[1].level, LOG_WARNING);
    EXPECT_EQ(log.lines[1].Function(), "_TcpHandler");
}

TEST_F(SnapshotDispatch, UpdateYieldsOneLine) {
    Hand(MessageOfType(DMA_UDP, DMA_READABLE_BYTES));
    EXPECT_THAT(log.Texts(), ElementsAre("invalide DMA Data Type[1]"));
    EXPECT_EQ(Counted(ECounter::FrameForeign), 1U);
}

TEST_F(SnapshotDispatch, ShortMessagesAreReadToTheirEndOnly) {
    for (std::size_t size = 0; size < DMA_TCP_FRAME_OFFSET + 40; ++size) Hand(MessageOfType(DMA_TCP, size));
    EXPECT_EQ(board.accesses.size(), 0U);
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
}

TEST_F(SnapshotDispatch, MessageBeyondTheCapacityIsDropped) {
    Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC, 1900)).DmaMessage();
    message.resize(DMA_MESSAGE_CAPACITY + 1);
    Hand(message);
    EXPECT_EQ(Counted(ECounter::MessageTooLong), 1U);
    EXPECT_THAT(log.Texts(), IsEmpty());
    message.resize(DMA_MESSAGE_CAPACITY);
    Hand(message);
    EXPECT_EQ(Session().init, 1);
}

// ---- frames -------------------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, FrameThatIsNotTcpIsIgnored) {
    Hand(Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).WithProtocol(17).DmaMessage());
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::FrameForeign), 1U);
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
}

TEST_F(SnapshotDispatch, FrameOfAnotherPortIsIgnored) {
    api->m_u50ConfigInfo.snapTcpPort = {1, 2, 3, 4};
    Begin();
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::FrameForeign), 1U);
}

TEST_F(SnapshotDispatch, AnyOfTheFourSnapshotPortsWillDo) {
    api->m_u50ConfigInfo.snapTcpPort = {1, 2, 3, SNAP_PORT};
    Begin(SHFE_TOPIC);
    EXPECT_EQ(Session().init, 1);
}

TEST_F(SnapshotDispatch, WrongChecksumIsToldWithBothValues) {
    const exchange::FrameWriter right = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC));
    exchange::FrameWriter wrong = right;
    wrong.WithChecksumOff();
    Hand(wrong.DmaMessage());
    const uint16_t sum = snapshot_frame::Raw<uint16_t>(right.Frame().data() + CHECK_OFFSET);
    EXPECT_THAT(log.Texts(), ElementsAre(ChecksumLine(wrong.Frame(), sum)));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(Counted(ECounter::ChecksumWrong), 1U);
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
}

TEST_F(SnapshotDispatch, NoSingleBitOfTheTcpPartMayChange) {
    const Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    for (std::size_t bit = (DMA_TCP_FRAME_OFFSET + 14 + 20) * 8; bit < message.size() * 8; ++bit) {
        Bytes flipped = message;
        flipped[bit / 8] ^= static_cast<uint8_t>(1U << (bit % 8));
        Hand(flipped);
    }
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
}

TEST_F(SnapshotDispatch, TcpPartBeyondTheLimitIsTold) {
    const Bytes first = FirstMessage(SHFE_TOPIC);
    const int toLimit = TCP_LENGTH_LIMIT - 20 - static_cast<int>(first.size());
    Hand(Segment(FIRST_SEQ, first).WithTotalLengthOff(toLimit).DmaMessage());
    EXPECT_THAT(log.Texts(), ElementsAre("TcpCheckSum false"));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    log.lines.clear();
    Hand(Segment(FIRST_SEQ, first).WithTotalLengthOff(toLimit - 1).DmaMessage());
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::FrameMalformed), 2U);
}

TEST_F(SnapshotDispatch, FrameCutAnywhereIsDropped) {
    const Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    for (std::size_t size = DMA_TCP_FRAME_OFFSET + 14 + 10; size < message.size(); ++size) {
        Hand(Cut(message, 0, size));
        EXPECT_EQ(Session().init, 0) << size;
    }
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(SnapshotDispatch, PaddingBehindThePacketIsNoPayload) {
    Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    message.resize(message.size() + 6, 0xEE);
    Hand(message);
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, FIRST_SEQ + FirstMessage(SHFE_TOPIC).size());
}

class HeaderWords : public SnapshotDispatch, public ::testing::WithParamInterface<int> {};

TEST_P(HeaderWords, OfIpThatDoNotFitDropTheFrame) {
    const auto words = static_cast<uint8_t>(GetParam());
    Hand(Segment(FIRST_SEQ, {1, 2, 3, 4}).WithIpHeaderWords(words).DmaMessage());
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
    EXPECT_GE(Counted(ECounter::FrameMalformed) + Counted(ECounter::FrameForeign), 1U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_P(HeaderWords, OfTcpThatDoNotFitDropTheFrame) {
    const auto words = static_cast<uint8_t>(GetParam());
    Hand(Segment(FIRST_SEQ, {1, 2, 3, 4}).WithTcpHeaderWords(words).DmaMessage());
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
    EXPECT_EQ(Counted(ECounter::FrameMalformed), 1U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Wrong, HeaderWords, ::testing::Values(0, 1, 4, 7, 8, 15));

TEST_F(SnapshotDispatch, TotalLengthShorterThanTheHeadersIsDropped) {
    const Bytes first = FirstMessage(SHFE_TOPIC);
    for (int length = 0; length < 40; ++length) {
        const int off = length - 40 - static_cast<int>(first.size());
        Hand(Segment(FIRST_SEQ, first).WithTotalLengthOff(off).DmaMessage());
    }
    EXPECT_EQ(Counted(ECounter::FrameMalformed), 40U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

// ---- first segments -----------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, FirstPayloadOf44BytesDoesNotBeginASession) {
    constexpr uint16_t padding = 44 - 8 - 10 - 4;
    Arrive(FIRST_SEQ, FirstMessage(SHFE_TOPIC, padding));
    EXPECT_EQ(Session().init, 0);
    EXPECT_NE(FragBuf(), nullptr);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 1U);
    Arrive(FIRST_SEQ, FirstMessage(SHFE_TOPIC, padding + 1));
    EXPECT_EQ(Session().init, 1);
}

TEST_F(SnapshotDispatch, FirstPayloadMustBeginASnapshot) {
    const Bytes zeros(40);
    for (const uint8_t flag : {mdqp::FLAG_LAST, uint8_t{0x12}}) {
        Arrive(FIRST_SEQ, exchange::MdqpWriter(flag).Snap(SHFE_TOPIC, 1).Field(PADDING, zeros.data(), 40).Bytes());
    }
    Arrive(FIRST_SEQ,
           exchange::MdqpWriter(mdqp::FLAG_MORE, '1').Snap(SHFE_TOPIC, 1).Field(PADDING, zeros.data(), 40).Bytes());
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 3U);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(SnapshotDispatch, FirstSegmentIsSteppedBySizeOfItsFirstMessage) {
    const Bytes first = FirstMessage(SHFE_TOPIC, 100 - 22);
    const Bytes second = Numbered(2, 60 - 20);
    ASSERT_EQ(first.size(), 100U);
    ASSERT_EQ(second.size(), 60U);
    Arrive(FIRST_SEQ, Join({first, second}));
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Session().frag_flag, 1);
    EXPECT_EQ(Carried(), second);
    Arrive(FIRST_SEQ + 160, Numbered(3));
    EXPECT_THAT(Decoded(), ElementsAre(2, 3));
}

TEST_F(SnapshotDispatch, LaterMessagesOfTheFirstSegmentAsLongAsTheFirstAreParsed) {
    Arrive(FIRST_SEQ, Join({FirstMessage(SHFE_TOPIC, 60 - 22), Numbered(2, 60 - 20), Numbered(3, 60 - 20)}));
    EXPECT_THAT(Decoded(), ElementsAre(2, 3));
    EXPECT_EQ(Session().frag_flag, 0);
}

TEST_F(SnapshotDispatch, LaterHeaderOfTheFirstSegmentIsNotBelievedBeyondWhatArrived) {
    const Bytes zeros(40);
    const Bytes liar = exchange::MdqpWriter().PacketNo(2).Field(PADDING, zeros.data(), 40).WithLengthOff(5000).Bytes();
    Arrive(FIRST_SEQ, Join({FirstMessage(SHFE_TOPIC, 60 - 22), liar, Numbered(3, 60 - 20)}));
    EXPECT_THAT(Decoded(), ElementsAre(3));
    EXPECT_EQ(Counted(ECounter::FieldMalformed), 1U);
}

TEST_F(SnapshotDispatch, FirstMessageMayBeCutByItsSegment) {
    const Bytes first = FirstMessage(SHFE_TOPIC, 400);
    Arrive(FIRST_SEQ, Cut(first, 0, 200));
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 200U);
    Arrive(FIRST_SEQ + 200, Join({Cut(first, 200, first.size()), Numbered(2)}));
    EXPECT_THAT(Decoded(), ElementsAre(2));
}

// ---- completion ---------------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, CompletionIsNoticedOnOneMoreSegmentOnly) {
    Unplug();
    FinishBoth();
    EXPECT_FALSE(api->m_isTcpInitFinished);
    OneMoreSegment();
    EXPECT_TRUE(api->m_isTcpInitFinished);
}

TEST_F(SnapshotDispatch, CompletionNeedsEveryEnabledFeed) {
    Unplug();
    Finish(SHFE_TOPIC, LOCAL_PORT);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, FeedBit(SHFE_2PS));
    OneMoreSegment();
    EXPECT_FALSE(api->m_isTcpInitFinished);
    Finish(INE_TOPIC, INE_PORT);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, FeedBit(SHFE_2PS) | FeedBit(INE_2PS));
    OneMoreSegment();
    EXPECT_TRUE(api->m_isTcpInitFinished);
}

TEST_F(SnapshotDispatch, CompletionClosesTheSnapshotAndThenWritesTheTablesInOrder) {
    FinishBoth();
    board.Forget();
    OneMoreSegment();
    ASSERT_FALSE(board.accesses.empty());
    EXPECT_EQ(board.accesses[0], W(reg::SNAPSHOT_CONTROL, reg::SNAPSHOT_CLOSED));
    EXPECT_THAT(TablesInOrder(), ElementsAre(0x11000, 0x21000, 0x11004, 0x21004));
}

TEST_F(SnapshotDispatch, TablesOfEnabledFeedsCarryTheirInstruments) {
    inst_info_t info{};
    std::memcpy(info.inst_id, "cu2612", sizeof "cu2612");
    info.volume_multiple = 5;
    info.inst_no = 1;
    const Bytes zeros(8);
    const uint32_t next = Begin();
    Arrive(next, exchange::MdqpWriter(mdqp::FLAG_LAST).InstInfo(info).Field(PADDING, zeros.data(), 8).Bytes());
    Finish(INE_TOPIC, INE_PORT);
    board.Forget();
    OneMoreSegment();
    const uint32_t multipleWord = WORDS_PER_SLOT + offsetof(SInstTableType, vol_multiple) / 4;
    const reg::TablePort& port = reg::FEEDS[SHFE_2PS].table;
    const auto at = std::find(board.accesses.begin(), board.accesses.end(), W(port.writeAddr, multipleWord));
    ASSERT_NE(at, board.accesses.end());
    EXPECT_EQ(*(at - 1), W(port.writeData, 5));
}

TEST_F(SnapshotDispatch, SegmentThatBringsCompletionIsStillHandled) {
    FinishBoth();
    log.lines.clear();
    Reset(TCP_RST | TCP_ACK);
    EXPECT_THAT(TablesInOrder(), ::testing::SizeIs(4));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("rst msg, Session closed dstport:40001"));
    EXPECT_FALSE(api->m_isTcpInitFinished);
}

TEST_F(SnapshotDispatch, LogLevelIsRaisedWhileTheSnapshotIsClosedAndTheConfiguredOneAfterwards) {
    Unplug();
    FinishBoth();
    api->m_u50ConfigInfo.log_level = static_cast<ELOGLEVEL>(LOG_ERROR | LOG_INFO);
    CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    log.lines.clear();
    OneMoreSegment();
    EXPECT_THAT(log.Texts(LOG_ALL), ElementsAre("addr[0x1000] value[0x00000000]"));
    const CCommonLog& levels = CCommonLog::GetInstance();
    EXPECT_TRUE(levels.IsEnabled(LOG_ERROR) && levels.IsEnabled(LOG_INFO));
    EXPECT_FALSE(levels.IsEnabled(LOG_WARNING) || levels.IsEnabled(LOG_DEBUG) || levels.IsEnabled(LOG_DEBUG_EX));
}

TEST_F(SnapshotDispatch, DebugSleepIsSleptAndTold) {
    Unplug();
    FinishBoth();
    api->m_u50ConfigInfo.debug_flag = true;
    api->m_u50ConfigInfo.error_instno = UINT16_MAX;
    api->m_u50ConfigInfo.dma_sleep = 2500;
    OneMoreSegment();
    EXPECT_EQ(clock.slept, 2'500'000);
    EXPECT_TRUE(log.Has(LOG_WARNING, "DMA sleep 2500us"));
}

TEST_F(SnapshotDispatch, NoSleepWithoutDebugging) {
    Unplug();
    FinishBoth();
    api->m_u50ConfigInfo.dma_sleep = 2500;
    OneMoreSegment();
    EXPECT_EQ(clock.slept, 0);
}

class CrossedBook : public SnapshotDispatch {
protected:
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

    void SetUp() override {
        SnapshotDispatch::SetUp();
        api->m_u50ConfigInfo.enabled_mask.enabled_mask = FeedBit(SHFE_2PS);
    }
};

TEST_F(CrossedBook, ThrowsTheSnapshotAway) {
    Arrive(Begin(), Book(101, 100));
    board.Forget();
    OneMoreSegment();
    EXPECT_TRUE(log.Has(LOG_WARNING, "price check is error, shot cnt is 0."));
    EXPECT_THAT(board.Writes(), IsEmpty());
    EXPECT_FALSE(api->m_isTcpInitFinished);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(Counted(ECounter::PriceCheckFailed), 1U);
}

TEST_F(CrossedBook, IsFollowedByASoundOne) {
    Unplug();
    Arrive(Begin(), Book(101, 100));
    OneMoreSegment();
    Arrive(Begin(), Book(100, 101));
    OneMoreSegment();
    EXPECT_TRUE(api->m_isTcpInitFinished);
}

TEST_F(SnapshotDispatch, SegmentsWithoutAnEnabledFeedAreToldAndIgnored) {
    api->m_u50ConfigInfo.enabled_mask.enabled_mask = 0;
    Begin();
    EXPECT_THAT(log.Texts(), ElementsAre("both shfe and ine are not subscribed"));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 1U);
    EXPECT_EQ(api->m_dirtySessionCount, 0U);
}

// ---- resets -------------------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, ResetClearsAllFeedsAlsoFinishedOnes) {
    Finish(INE_TOPIC, INE_PORT);
    Begin();
    log.lines.clear();
    Reset(TCP_RST | TCP_ACK);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("rst msg, Session closed dstport:40001"));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50DstPort.port_shfe_2ps, 0);
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(FragBuf(), nullptr);
    EXPECT_EQ(Counted(ECounter::ResetByPeer), 1U);
}

TEST_F(SnapshotDispatch, ResetWithoutAcknowledgementIsNothingSpecial) {
    const uint32_t next = Begin();
    Hand(Segment(next, Numbered(1)).Flags(TCP_RST).DmaMessage());
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Session().init, 1);
}

TEST_F(SnapshotDispatch, SnapshotLoadsAgainAfterAReset) {
    Arrive(Begin(), Numbered(1));
    Reset(TCP_RST | TCP_ACK);
    Arrive(Begin(), Numbered(2));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
}

// ---- captures -----------------------------------------------------------------------------------------------------

class Captures : public SnapshotDispatch {
protected:
    void SetUp() override {
        SnapshotDispatch::SetUp();
        m_directory = std::filesystem::path(::testing::TempDir()) /
                      (std::string("captures_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_directory);
        std::filesystem::create_directories(m_directory);
        const std::string path = m_directory.string() + "/";
        ASSERT_EQ(CWriteShot::GetInstance().CreateShotBinLog(path.c_str(), 0), 0);
        ASSERT_EQ(CWriteShot::GetInstance().CreateShotPcapLog(path.c_str(), 0), 0);
        m_before = CWriteShot::GetInstance().GetBinShotCnt();
    }

    void TearDown() override {
        CWriteShot::GetInstance().CloseShotBinLog();
        CWriteShot::GetInstance().CloseShotPcapLog();
        std::filesystem::remove_all(m_directory);
    }

    /// Of the file that holds the packets.
    uint64_t PacketBytes() const {
        CWriteShot::GetInstance().CloseShotPcapLog();
        for (const auto& file : std::filesystem::directory_iterator(m_directory)) {
            if (file.path().extension() == ".pcap") return file.file_size();
        }
        return 0;
    }

    uint64_t Captured() const { return CWriteShot::GetInstance().GetBinShotCnt() - m_before; }

    std::filesystem::path m_directory;
    uint64_t m_before = 0;
};

TEST_F(Captures, HoldEveryMessageWhenSwitchedOn) {
    api->m_u50ConfigInfo.dma_data_flag = true;
    Begin();
    Hand(EventMessage());
    Hand(MessageOfType(DMA_TCP, 5));
    EXPECT_EQ(Captured(), 3U);
}

TEST_F(Captures, OfPacketsHoldSegmentsAlone) {
    api->m_u50ConfigInfo.dma_data_flag = true;
    const Bytes segment = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    Hand(EventMessage());
    Hand(segment);
    Hand(MessageOfType(DMA_UDP, DMA_READABLE_BYTES));
    Hand(MessageOfType(77, 300));
    EXPECT_EQ(Captured(), 4U);
    EXPECT_EQ(PacketBytes(), 24 + 16 + (segment.size() - 12));  // heads of the file and of its one packet
}

TEST_F(Captures, HoldNothingWhenSwitchedOff) {
    Begin();
    EXPECT_EQ(Captured(), 0U);
}

TEST_F(Captures, LeaveOutWhatIsTooLong) {
    api->m_u50ConfigInfo.dma_data_flag = true;
    Hand(MessageOfType(DMA_TCP, DMA_MESSAGE_CAPACITY + 1));
    EXPECT_EQ(Captured(), 0U);
}

}  // namespace

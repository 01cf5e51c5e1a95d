// The end of a snapshot: completion, the price check, resets.
#include "tests/unit/DispatchFixture.h"

namespace {

using exchange::TCP_ACK;
using exchange::TCP_RST;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using SnapshotCompletion = DispatchFixture;

TEST_F(SnapshotCompletion, SnapshotOfOneSegmentIsNoticedOnTheSegmentBehindTheOneThatFinishesIt) {
    Unplug();
    state->config.enabled_mask.enabled_mask = FeedBit(SHFE_2PS);
    const Bytes payload = Join({FirstMessage(SHFE_TOPIC, 78), LastMessage()});
    Arrive(FIRST_SEQ, payload);
    const uint32_t next = FIRST_SEQ + SizeOf(payload);
    Arrive(next, {});
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
    EXPECT_FALSE(state->isLoaded);
    Arrive(next, {});
    EXPECT_TRUE(state->isLoaded);
}

TEST_F(SnapshotCompletion, CompletionIsNoticedOnOneMoreSegmentOnly) {
    Unplug();
    FinishBoth();
    EXPECT_FALSE(state->isLoaded);
    OneMoreSegment();
    EXPECT_TRUE(state->isLoaded);
}

TEST_F(SnapshotCompletion, CompletionNeedsEveryEnabledFeed) {
    Unplug();
    Finish(SHFE_TOPIC, LOCAL_PORT);
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
    OneMoreSegment();
    EXPECT_FALSE(state->isLoaded);
    Finish(INE_TOPIC, INE_PORT);
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS) | FeedBit(INE_2PS));
    OneMoreSegment();
    EXPECT_TRUE(state->isLoaded);
}

TEST_F(SnapshotCompletion, CompletionClosesTheSnapshotAndThenWritesTheTablesInOrder) {
    FinishBoth();
    board.Forget();
    OneMoreSegment();
    ASSERT_FALSE(board.accesses.empty());
    EXPECT_EQ(board.accesses[0], W(0x1000, 0));
    EXPECT_THAT(TablesInOrder(), ElementsAre(0x11000, 0x21000, 0x11004, 0x21004));
}

TEST_F(SnapshotCompletion, EachTableIsWrittenWithItsOwnCountAndCapacity) {
    FinishBoth();
    state->counts = {3, 5, 7, 9};
    board.Forget();
    log.lines.clear();
    OneMoreSegment();
    struct Table {
        uint32_t address;
        uint32_t firstSlot;  ///< of a feed that is switched off, the used slots are left as they are
        uint32_t slots;
    };
    for (const auto& [address, firstSlot, slots] :
         {Table{0x11000, 0, 16384}, {0x21000, 5, 16384}, {0x11004, 0, 4096}, {0x21004, 9, 4096}}) {
        const std::vector<Access> commits = board.AccessesTo(address, address);
        ASSERT_EQ(commits.size(), (slots - firstSlot) * 64U) << address;
        EXPECT_EQ(commits.front(), W(address, firstSlot * 64));
        EXPECT_EQ(commits.back(), W(address, slots * 64 - 1));
        EXPECT_EQ(board.AccessesTo(address + 1, address + 1).size(), commits.size());
    }
    std::vector<int> indices;
    for (const std::string& line : log.Texts()) {
        int index = 0;
        if (std::sscanf(line.c_str(), "index:%d,", &index) == 1) indices.push_back(index);
    }
    EXPECT_THAT(indices, ElementsAre(0, 1, 2, 0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 5, 6, 0, 1, 2, 3, 4, 5, 6, 7, 8));
}

TEST_F(SnapshotCompletion, TablesOfEnabledFeedsCarryTheirInstruments) {
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
    const uint32_t multipleWord = 64 + 3;
    const auto at = std::find(board.accesses.begin(), board.accesses.end(), W(0x11000, multipleWord));
    ASSERT_NE(at, board.accesses.end());
    EXPECT_EQ(*(at - 1), W(0x11001, 5));
}

TEST_F(SnapshotCompletion, SegmentThatBringsCompletionIsStillHandled) {
    FinishBoth();
    log.lines.clear();
    Reset(TCP_RST | TCP_ACK);
    EXPECT_THAT(TablesInOrder(), ::testing::SizeIs(4));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("rst msg, Session closed dstport:40001"));
    EXPECT_FALSE(state->isLoaded);
}

TEST_F(SnapshotCompletion, LogLevelIsRaisedWhileTheSnapshotIsClosedAndTheConfiguredOneAfterwards) {
    Unplug();
    FinishBoth();
    state->config.log_level = static_cast<ELOGLEVEL>(LOG_ERROR | LOG_INFO);
    CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    log.lines.clear();
    OneMoreSegment();
    EXPECT_THAT(log.Texts(LOG_ALL), ElementsAre("addr[0x1000] value[0x00000000]"));
    const CCommonLog& levels = CCommonLog::GetInstance();
    EXPECT_TRUE(levels.IsEnabled(LOG_ERROR) && levels.IsEnabled(LOG_INFO));
    EXPECT_FALSE(levels.IsEnabled(LOG_WARNING) || levels.IsEnabled(LOG_DEBUG) || levels.IsEnabled(LOG_DEBUG_EX));
}

TEST_F(SnapshotCompletion, DebugSleepIsSleptAndTold) {
    Unplug();
    FinishBoth();
    state->config.debug_flag = true;
    state->config.error_instno = UINT16_MAX;
    state->config.dma_sleep = 2500;
    OneMoreSegment();
    EXPECT_EQ(clock.slept, 2'500'000);
    EXPECT_TRUE(log.Has(LOG_WARNING, "DMA sleep 2500us"));
}

TEST_F(SnapshotCompletion, CloseIsTracedBehindTheSleepAndTheTablesAreNot) {
    FinishBoth();
    state->config.debug_flag = true;
    state->config.error_instno = UINT16_MAX;
    state->config.dma_sleep = 2500;
    state->config.log_level = LOG_WARNING;
    CCommonLog::GetInstance().SetLogLevel(LOG_WARNING);
    log.lines.clear();
    board.Forget();
    OneMoreSegment();
    EXPECT_THAT(log.Texts(LOG_ALL), ElementsAre("DMA sleep 2500us", "addr[0x1000] value[0x00000000]"));
    EXPECT_THAT(board.AccessesTo(0x1000, 0x1000), ElementsAre(W(0x1000, 0)));
    EXPECT_EQ(board.accesses.size(), 1 + 2U * 64 * (2 * 16384 + 2 * 4096));
}

TEST_F(SnapshotCompletion, NoSleepWithoutDebugging) {
    Unplug();
    FinishBoth();
    state->config.dma_sleep = 2500;
    OneMoreSegment();
    EXPECT_EQ(clock.slept, 0);
}

class CrossedBook : public DispatchFixture {
protected:
    void SetUp() override { state->config.enabled_mask.enabled_mask = FeedBit(SHFE_2PS); }
};

TEST_F(CrossedBook, ThrowsTheSnapshotAway) {
    Arrive(Begin(), Book(101, 100));
    board.Forget();
    OneMoreSegment();
    EXPECT_TRUE(log.Has(LOG_WARNING, "price check is error, shot cnt is 0."));
    EXPECT_THAT(log.Texts(TROUBLE), Contains("inst_id [cu2612] inst_no[0]"));
    EXPECT_THAT(board.Writes(), IsEmpty());
    EXPECT_FALSE(state->isLoaded);
    EXPECT_EQ(state->finished.enabled_mask, 0);
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(Counted(ECounter::PriceCheckFailed), 1U);
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U) << "the segment itself is not handled any more";
}

TEST_F(CrossedBook, IsFollowedByASoundOne) {
    Unplug();
    Arrive(Begin(), Book(101, 100));
    OneMoreSegment();
    Arrive(Begin(), Book(100, 101));
    OneMoreSegment();
    EXPECT_TRUE(state->isLoaded);
    EXPECT_THAT(log.Texts(TROUBLE), Contains("price check is error, shot cnt is 0.").Times(1));
}

TEST_F(SnapshotCompletion, SegmentsWithoutAnEnabledFeedAreToldAndIgnored) {
    state->config.enabled_mask.enabled_mask = 0;
    Begin();
    EXPECT_THAT(log.Texts(), ElementsAre("both shfe and ine are not subscribed"));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 1U);
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
}

// ---- resets -------------------------------------------------------------------------------------------------------

TEST_F(SnapshotCompletion, ResetClearsAllFeedsAlsoFinishedOnes) {
    Finish(INE_TOPIC, INE_PORT);
    Begin();
    log.lines.clear();
    Reset(TCP_RST | TCP_ACK);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("rst msg, Session closed dstport:40001"));
    EXPECT_EQ(state->finished.enabled_mask, 0);
    EXPECT_EQ(state->ports.port_shfe_2ps, 0);
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(FragBuf(), nullptr);
    EXPECT_EQ(Counted(ECounter::ResetByPeer), 1U);
}

TEST_F(SnapshotCompletion, ResetIsOneWhateverElseItsFlagsSay) {
    for (const uint8_t other : std::initializer_list<uint8_t>{0x01, 0x02, 0x08, 0x20, 0x40, 0x80}) {
        Begin();
        Reset(TCP_RST | TCP_ACK | other);
        EXPECT_EQ(Session().init, 0) << int{other};
    }
    EXPECT_EQ(Counted(ECounter::ResetByPeer), 6U);
    EXPECT_EQ(log.Count(LOG_WARNING, "rst msg, Session closed dstport:40001"), 6U);
}

TEST_F(SnapshotCompletion, ResetWithoutAcknowledgementIsNothingSpecial) {
    const uint32_t next = Begin();
    Hand(Segment(next, Numbered(1)).Flags(TCP_RST).DmaMessage());
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Session().init, 1);
}

TEST_F(SnapshotCompletion, SnapshotLoadsAgainAfterAReset) {
    Arrive(Begin(), Numbered(1));
    Reset(TCP_RST | TCP_ACK);
    Arrive(Begin(), Numbered(2));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("rst msg, Session closed dstport:40001"));
}

}  // namespace

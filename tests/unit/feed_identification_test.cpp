#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FeedIdentification : public StreamFixture {
protected:
    /// Binds from a block that ends with the payload's last byte.
    bool Bind(const Bytes& payload) {
        const std::unique_ptr<uint8_t[]> block(new uint8_t[payload.size()]);
        std::copy(payload.begin(), payload.end(), block.get());
        return !feeds.OnConnection(block.get(), static_cast<uint32_t>(payload.size()), LOCAL_PORT).isRefused;
    }

    bool IsAnyPortKnown() const {
        EMDQPDataType feed{};
        return store.Find(LOCAL_PORT, feed);
    }

    EMDQPDataType FeedOfPort() const {
        EMDQPDataType feed = static_cast<EMDQPDataType>(-1);
        store.Find(LOCAL_PORT, feed);
        return feed;
    }

    /// Nothing of the one segment that came was decoded or kept.
    void ExpectRefused() {
        EXPECT_FALSE(IsAnyPortKnown());
        EXPECT_EQ(Session().init, 0);
        EXPECT_EQ(Session().frag_flag, 0);
        EXPECT_THAT(Decoded(), IsEmpty());
        for (std::size_t i = 0; i < COUNTER_NAMES.size(); ++i) {
            const auto counter = static_cast<ECounter>(i);
            EXPECT_EQ(Counted(counter), counter == ECounter::SegmentRefused ? 1U : 0U) << COUNTER_NAMES[i];
        }
    }

    void EnableAll() { state->config.enabled_mask.enabled_mask = 0x0F; }
};

// ---- binding ------------------------------------------------------------------------------------------------------

TEST_F(FeedIdentification, TopicBindsThePortToItsFeed) {
    Begin(INE_TOPIC);
    EXPECT_EQ(state->ports.port_ine_2ps, LOCAL_PORT);
    EXPECT_EQ(Session().init, 1);
}

TEST_F(FeedIdentification, BindingIsToldWithPortTopicAndSnapshot) {
    Begin();
    EXPECT_TRUE(log.Has(LOG_DEBUG, "mdqp packet. TCP dst port: 40001"));
    EXPECT_TRUE(log.Has(LOG_DEBUG, "topic ID: 1000, snap No: 1"));
    EXPECT_EQ(log.lines.back().Function(), "_TcpHandler");
}

TEST_F(FeedIdentification, FourPsFeedsAreBoundToo) {
    EnableAll();
    Begin(SHFE_TOPIC + 1, 41001);
    Begin(INE_TOPIC + 1, 41002);
    EXPECT_EQ(state->ports.port_shfe_4ps, 41001);
    EXPECT_EQ(state->ports.port_ine_4ps, 41002);
}

TEST_F(FeedIdentification, Ine2psWinsASharedTopicOverShfe2ps) {
    state->config.topicID.ine2ps_topic_id = SHFE_TOPIC;
    Begin();
    EXPECT_EQ(FeedOfPort(), INE_2PS);
}

TEST_F(FeedIdentification, Shfe2psWinsASharedTopicOverIne4ps) {
    EnableAll();
    state->config.topicID.ine4ps_topic_id = SHFE_TOPIC;
    Begin();
    EXPECT_EQ(FeedOfPort(), SHFE_2PS);
}

TEST_F(FeedIdentification, Ine4psWinsASharedTopicOverShfe4ps) {
    EnableAll();
    state->config.topicID.ine4ps_topic_id = SHFE_TOPIC + 1;
    Begin(SHFE_TOPIC + 1);
    EXPECT_EQ(FeedOfPort(), INE_4PS);
}

TEST_F(FeedIdentification, TopicIsSigned) {
    state->config.topicID.shfe2ps_topic_id = -5;
    Begin(-5);
    EXPECT_EQ(FeedOfPort(), SHFE_2PS);
}

TEST_F(FeedIdentification, UnknownTopicIsToldAndItsSegmentRefused) {
    log.lines.clear();
    Arrive(FIRST_SEQ, Join({FirstMessage(77), Numbered(1)}));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("invalide topic id[77]"));
    ExpectRefused();
}

TEST_F(FeedIdentification, DisabledFeedIsRefusedInSilence) {
    Arrive(FIRST_SEQ, Join({FirstMessage(SHFE_TOPIC + 1), Numbered(1)}));
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
    ExpectRefused();
}

TEST_F(FeedIdentification, SecondConnectionOfAFinishedFeedIsIgnored) {
    state->finished.enabled_mask = 1;
    Arrive(FIRST_SEQ, Join({FirstMessage(SHFE_TOPIC), Numbered(1)}));
    ExpectRefused();
    EXPECT_EQ(state->finished.enabled_mask, 1);
}

TEST_F(FeedIdentification, FinishedFeedKeepsNoOtherFromItsPort) {
    state->finished.enabled_mask = 1;
    Begin(INE_TOPIC);
    EXPECT_EQ(FeedOfPort(), INE_2PS);
}

TEST_F(FeedIdentification, FirstSegmentWithoutTopicIsDeliveredAndItsMessagesRefused) {
    Arrive(FIRST_SEQ, Numbered(1, 40));
    EXPECT_EQ(Session().init, 0);
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::MessageOfNoFeed), 1U);
}

TEST_F(FeedIdentification, WalkGoesOnBehindTheFirstMessage) {
    // The second message's header is taken for a field, whose end lies four bytes before that message's end; what
    // stands there announces a topic, which the third message's header then is.
    const field_t snapField{mdqp::FIELD_SNAP, sizeof(snap_t)};
    const Bytes second = exchange::MdqpWriter().RawBytes(&snapField, sizeof snapField).Bytes();
    state->config.topicID.shfe2ps_topic_id = mdqp::FLAG_MORE | (mdqp::TYPE_SNAPSHOT << 8);
    EXPECT_TRUE(Bind(Join({Numbered(1), second, Numbered(2)})));
    EXPECT_EQ(FeedOfPort(), SHFE_2PS);
}

TEST_F(FeedIdentification, FieldOfTheTopicsIdWithAnotherSizeIsNoTopic) {
    const snap_t snap{SHFE_TOPIC, 1};
    EXPECT_TRUE(Bind(exchange::MdqpWriter().FieldClaiming(mdqp::FIELD_SNAP, 5, &snap, sizeof snap).Bytes()));
    EXPECT_FALSE(IsAnyPortKnown());
}

TEST_F(FeedIdentification, WalkNeverReadsBehindThePayload) {
    const Bytes payload = FirstMessage(SHFE_TOPIC, 0);
    const std::size_t snapEnd = sizeof(mdqp_t) + sizeof(field_t) + sizeof(snap_t);
    for (std::size_t length = sizeof(mdqp_t); length < snapEnd; ++length) {
        EXPECT_TRUE(Bind(Cut(payload, 0, length)));
        EXPECT_FALSE(IsAnyPortKnown()) << length;
    }
    EXPECT_TRUE(Bind(Cut(payload, 0, snapEnd)));
    EXPECT_EQ(FeedOfPort(), SHFE_2PS);
}

TEST_F(FeedIdentification, LongestFieldEndsTheWalk) {
    const Bytes rest(40);
    EXPECT_TRUE(Bind(exchange::MdqpWriter().FieldClaiming(PADDING, UINT16_MAX, rest.data(), 40).Bytes()));
    EXPECT_FALSE(IsAnyPortKnown());
}

// ---- looking up ---------------------------------------------------------------------------------------------------

TEST_F(FeedIdentification, LookUpTakesTheFirstFeedOfAPort) {
    state->ports.port_shfe_4ps = LOCAL_PORT;
    state->ports.port_ine_2ps = LOCAL_PORT;
    EXPECT_EQ(FeedOfPort(), SHFE_4PS);
}

TEST_F(FeedIdentification, UnknownPortHasNoFeed) {
    EMDQPDataType feed{};
    EXPECT_FALSE(store.Find(LOCAL_PORT, feed));
    EXPECT_FALSE(store.Find(0, feed));
}

TEST_F(FeedIdentification, FormerPortOfAFinishedFeedIsRefused) {
    const uint32_t next = Begin();
    Arrive(next, Join({LastMessage(), Numbered(1)}));
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::MessageOfNoFeed), 1U);
    EXPECT_FALSE(IsAnyPortKnown());
}

// ---- instrument numbers -------------------------------------------------------------------------------------------

constexpr std::pair<EMDQPDataType, int32_t> CAPACITIES[] = {
    {SHFE_2PS, 16384}, {SHFE_4PS, 16384}, {INE_2PS, 4096}, {INE_4PS, 4096}};

bool IsInRange(EMDQPDataType feed, int32_t instNo) { return CInstrumentStore::Protect(feed, instNo); }

TEST_F(FeedIdentification, LastNumberOfEachFeedPassesAndTheNextIsRefused) {
    for (const auto& [feed, capacity] : CAPACITIES) {
        EXPECT_TRUE(IsInRange(feed, capacity - 1));
        EXPECT_FALSE(IsInRange(feed, capacity));
    }
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("shfe inst_no[16384] is out of range [16384]",
                                                "ine inst_no[4096] is out of range  [4096]"));
}

TEST_F(FeedIdentification, ShfeWarningIsGivenOnceForBothFeeds) {
    IsInRange(SHFE_2PS, 20001);
    IsInRange(SHFE_4PS, 16384);
    EXPECT_THAT(log.Texts(), ElementsAre("shfe inst_no[20001] is out of range [16384]"));
}

TEST_F(FeedIdentification, IneWarningIsGivenOnceForBothFeeds) {
    IsInRange(INE_4PS, 5001);
    IsInRange(INE_2PS, 4096);
    EXPECT_THAT(log.Texts(), ElementsAre("ine inst_no[5001] is out of range  [4096]"));
}

TEST_F(FeedIdentification, WarningsComeFromTheRangeTest) {
    IsInRange(INE_2PS, 4096);
    EXPECT_EQ(log.lines.back().Function(), "_ProtectInstNo");
    EXPECT_TRUE(log.Has(LOG_WARNING, "ine inst_no[4096] is out of range  [4096]"));
}

TEST_F(FeedIdentification, ValueThatIsNoFeedIsToldAndRefused) {
    EXPECT_FALSE(IsInRange(static_cast<EMDQPDataType>(4), 0));
    EXPECT_TRUE(log.Has(LOG_INFO, "refMDQPDataType is error, 4."));
}

TEST_F(FeedIdentification, NegativeNumberPassesTheRangeTestButHasNoSlot) {
    for (const EMDQPDataType feed : ALL_FEEDS) {
        EXPECT_TRUE(IsInRange(feed, -1));
        EXPECT_EQ(store.Slot(feed, -1), nullptr);
        EXPECT_EQ(store.Slot(feed, INT32_MIN), nullptr);
    }
}

TEST_F(FeedIdentification, SlotsEndWithTheTable) {
    U50InstTable& tables = state->tables;
    SInstTableType* const first[] = {tables.shfe2psInstTable, tables.shfe4psInstTable, tables.ine2psInstTable,
                                     tables.ine4psInstTable};
    for (const auto& [feed, capacity] : CAPACITIES) {
        EXPECT_EQ(store.Slot(feed, capacity), nullptr);
        EXPECT_EQ(store.Slot(feed, INT32_MAX), nullptr);
        EXPECT_EQ(store.Slot(feed, 0), first[feed]);
        EXPECT_EQ(store.Slot(feed, capacity - 1), first[feed] + capacity - 1);
    }
    EXPECT_EQ(store.Slot(static_cast<EMDQPDataType>(7), 0), nullptr);
}

TEST_F(FeedIdentification, SlotsOnceHandedOutAreClearedWithTheRest) {
    for (const auto& [feed, capacity] : CAPACITIES) {
        for (const int32_t instNo : {17, 0, capacity - 1}) std::memset(store.Slot(feed, instNo), 0xEE, 256);
    }
    store.Clear();
    const auto* bytes = reinterpret_cast<const uint8_t*>(&state->tables);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof state->tables, [](uint8_t byte) { return byte == 0; }));
}

// In a process of its own, so that no other test has touched them.
TEST(FeedIdentificationFlags, WarningsAreStillToBeGivenWhenAProcessBegins) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(CInstrumentStore::shfe_cnt_flag && CInstrumentStore::ine_cnt_flag ? 0 : 1),
                ::testing::ExitedWithCode(0), "");
}

}  // namespace

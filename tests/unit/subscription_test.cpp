#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "public/log/LogLine.h"
#include "software_board/SoftwareBoard.h"
#include "src/board/Selection.h"
#include "testing/InstalledBoard.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

/// Registers of each feed's table, in the order of the feeds: write address, write data, read address, read data.
constexpr uint32_t TABLES[] = {0x11000, 0x21000, 0x11004, 0x21004};

/// A board whose tables hold a handful of instruments.
class Subscription : public testing::Test {
protected:
    Subscription() : board(software_board::BoardOptions{}) {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        board.Write(0x0010, 1);
        for (const char* id : {"cu2612", "cu2612C70000", "cu2701", "al2612", "cu2612TAS"}) Put(SHFE_2PS, id);
        for (const char* id : {"sc2612", "sc2612P500"}) Put(INE_2PS, id);
        board.Write(0x1F14, 5);
        board.Write(0x1F15, 2);
        api->m_u50ConfigInfo.enabled_mask.enabled_mask = 5;
    }
    void Put(EMDQPDataType feed, const char* id) { PutAt(feed, used[feed]++, id); }
    void PutAt(EMDQPDataType feed, int32_t instNo, const char* id) {
        SInstTableType slot{};
        std::memcpy(slot.inst_id, id, std::min(std::strlen(id), sizeof slot.inst_id - 1));
        uint32_t words[WORDS_PER_SLOT];
        std::memcpy(words, &slot, sizeof words);
        const auto first = static_cast<uint32_t>(instNo) * WORDS_PER_SLOT;
        for (uint32_t word = 0; word < WORDS_PER_SLOT; ++word) {
            board.Write(TABLES[feed] + 1, words[word]);
            board.Write(TABLES[feed], first + word);
        }
    }
    void Subscribe(int32_t channel, const std::string& insts, bool options = false) {
        U50ChannelInfo& info = api->m_u50ConfigInfo.channelInfo[channel];
        info.insts.UnSafeCopyFrom(insts.c_str());
        info.options = options;
        info.recvall = insts == "all";
        EXPECT_EQ(api->_ContractSubscribeManager(channel), 0);
    }
    /// Ids whose control word on the board carries the channel's bit.
    std::set<std::string> Subscribed(int32_t channel) {
        std::set<std::string> ids;
        for (const EMDQPDataType feed : ALL_FEEDS) {
            for (int32_t i = 0; i < used[feed]; ++i) {
                const SInstTableType& slot = board.Slot(feed, i);
                if ((slot.config >> channel & 1U) != 0) ids.insert(slot.inst_id);
            }
        }
        return ids;
    }
    ManualClock clock;
    software_board::SoftwareBoard board;
    InstalledBoard installed{board};
    LogCapture log;
    int32_t used[FEED_COUNT] = {};
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(Subscription, TwoLettersSelectTheFuturesOfAProduct) {
    Subscribe(0, "cu");
    EXPECT_THAT(Subscribed(0), UnorderedElementsAre("cu2612", "cu2701"));
}

TEST_F(Subscription, TwoLettersWithOptionsSelectTheLongerIdsToo) {
    Subscribe(0, "cu", true);
    EXPECT_THAT(Subscribed(0), UnorderedElementsAre("cu2612", "cu2612C70000", "cu2701", "cu2612TAS"));
}

TEST_F(Subscription, SixCharactersSelectOneFutureAndWithOptionsItsOptions) {
    Subscribe(0, "cu2612");
    EXPECT_THAT(Subscribed(0), UnorderedElementsAre("cu2612"));
    Subscribe(1, "cu2612", true);
    EXPECT_THAT(Subscribed(1), UnorderedElementsAre("cu2612", "cu2612C70000", "cu2612TAS"));
}

TEST_F(Subscription, AnyOtherLengthSelectsAnExactMatchWhateverTheOptions) {
    Subscribe(0, "cu2612C70000");
    EXPECT_THAT(Subscribed(0), UnorderedElementsAre("cu2612C70000"));
    Subscribe(1, "c", true);
    EXPECT_THAT(Subscribed(1), IsEmpty());
    Subscribe(2, "cu2612C7000", true);
    EXPECT_THAT(Subscribed(2), IsEmpty());
}

TEST_F(Subscription, AllSelectsFuturesAndWithOptionsEverything) {
    Subscribe(0, "all");
    EXPECT_THAT(Subscribed(0), UnorderedElementsAre("cu2612", "cu2701", "al2612", "sc2612"));
    Subscribe(1, "all", true);
    EXPECT_EQ(Subscribed(1).size(), 7U);
}

TEST_F(Subscription, EntriesDriveTheLoopAlsoWhereAllIsWanted) {
    api->m_u50ConfigInfo.channelInfo[0].insts.CopyFrom("x,y");
    api->m_u50ConfigInfo.channelInfo[0].recvall = true;
    api->_ContractSubscribeManager(0);
    EXPECT_EQ(Subscribed(0).size(), 4U);
    EXPECT_EQ(log.Count(LOG_INFO, "shfeInstCount[5] ineInstCount[2] listen_insts[x]"), 1U);
    EXPECT_EQ(log.Count(LOG_DEBUG, "subscribe cu2612 0 2147483649"), 4U);  // before and after, for each entry
}

TEST_F(Subscription, EmptyListSubscribesNothingEvenWithAll) {
    api->m_u50ConfigInfo.channelInfo[0].recvall = true;
    api->_ContractSubscribeManager(0);
    EXPECT_THAT(Subscribed(0), IsEmpty());
}

TEST_F(Subscription, InstrumentThatFailedThePriceCheckIsNeverSubscribed) {
    api->m_setPriceErrorInstId.insert("cu2612");
    Subscribe(0, "all", true);
    EXPECT_EQ(Subscribed(0).count("cu2612"), 0U);
    EXPECT_EQ(Subscribed(0).size(), 6U);
}

TEST_F(Subscription, TasInstrumentsCarryTheirBit) {
    Subscribe(0, "all", true);
    EXPECT_EQ(board.Slot(SHFE_2PS, 4).config, SLOT_IN_USE | SLOT_TAS | 1U);
    EXPECT_EQ(board.Slot(SHFE_2PS, 0).config, SLOT_IN_USE | 1U);
}

TEST_F(Subscription, LastChannelThatLeavesSwitchesTheSlotOff) {
    Subscribe(3, "cu2612");
    Subscribe(3, "");
    EXPECT_EQ(board.Slot(SHFE_2PS, 0).config, 0U);
}

TEST_F(Subscription, OtherChannelsKeepTheirBits) {
    Subscribe(3, "cu2612");
    Subscribe(15, "cu2612");
    Subscribe(3, "");
    EXPECT_EQ(board.Slot(SHFE_2PS, 0).config, SLOT_IN_USE | 1U << 15);
}

TEST_F(Subscription, DisabledFeedIsUnsubscribedButNeverSubscribed) {
    Subscribe(0, "all", true);
    api->m_u50ConfigInfo.enabled_mask.enabled_mask = 1;
    Subscribe(0, "all", true);
    EXPECT_EQ(board.Slot(INE_2PS, 0).config, 0U);
    EXPECT_EQ(Subscribed(0).size(), 5U);
}

TEST_F(Subscription, SlotOfA4psFeedIsSubscribedAndUnsubscribedLikeTheOthers) {
    for (const char* id : {"cu2612", "zn2612"}) Put(SHFE_4PS, id);
    Put(INE_4PS, "nr2612");
    Put(INE_4PS, "sc2612TAS");
    api->m_u50ConfigInfo.enabled_mask.enabled_mask = 0xA;
    Subscribe(11, "zn,sc2612TAS");
    EXPECT_EQ(board.Slot(SHFE_4PS, 0).config, 0U);
    EXPECT_EQ(board.Slot(SHFE_4PS, 1).config, 0x80000800U);
    EXPECT_EQ(board.Slot(INE_4PS, 0).config, 0U);
    EXPECT_EQ(board.Slot(INE_4PS, 1).config, 0xC0000800U);
    Subscribe(11, "nr");
    EXPECT_EQ(board.Slot(SHFE_4PS, 1).config, 0U);
    EXPECT_EQ(board.Slot(INE_4PS, 0).config, 0x80000800U);
    EXPECT_THAT(Subscribed(11), UnorderedElementsAre("nr2612"));
}

TEST_F(Subscription, CountsBeyondTheTablesAreCapped) {
    CCommonLog::GetInstance().SetLogLevel(LOG_INFO);  // millions of accesses
    for (const int32_t last : {16382, 16383}) PutAt(SHFE_2PS, last, "cu2612");
    for (const int32_t last : {4094, 4095}) PutAt(INE_2PS, last, "sc2612");
    board.Write(0x1F14, UINT32_MAX);
    board.Write(0x1F15, 4097);
    Subscribe(9, "cu,sc");
    EXPECT_TRUE(log.Has(LOG_INFO, "if shfeInstCount > 16384, set shfeInstCount = 16384."));
    EXPECT_TRUE(log.Has(LOG_INFO, "if ineInstCount > 4096, set ineInstCount = 4096."));
    EXPECT_EQ(log.Count(LOG_INFO, "shfeInstCount[16384] ineInstCount[4096] listen_insts[cu]"), 1U);
    for (const int32_t last : {16382, 16383}) EXPECT_EQ(board.Slot(SHFE_2PS, last).config, 0x80000200U) << last;
    for (const int32_t last : {4094, 4095}) EXPECT_EQ(board.Slot(INE_2PS, last).config, 0x80000200U) << last;
}

TEST_F(Subscription, CountsThatFillTheTablesAreNotTold) {
    CCommonLog::GetInstance().SetLogLevel(LOG_INFO);  // millions of accesses
    PutAt(SHFE_2PS, 16383, "cu2612");
    PutAt(INE_2PS, 4095, "sc2612");
    board.Write(0x1F14, 16384);
    board.Write(0x1F15, 4096);
    Subscribe(9, "cu,sc");
    EXPECT_THAT(log.Texts(LOG_INFO), ElementsAre("shfeInstCount[16384] ineInstCount[4096] listen_insts[cu]",
                                                 "shfeInstCount[16384] ineInstCount[4096] listen_insts[sc]"));
    EXPECT_EQ(board.Slot(SHFE_2PS, 16383).config, 0x80000200U);
    EXPECT_EQ(board.Slot(INE_2PS, 4095).config, 0x80000200U);
}

/// Ids of few letters, many of them twice, empty or longer than a future's, in four tables; and lists of entries of the
/// same letters.
class SubscriptionOrder : public Subscription, public testing::WithParamInterface<uint32_t> {
protected:
    SubscriptionOrder() {
        std::mt19937 random(GetParam());
        const auto text = [&random](std::size_t longest) {
            std::string letters;
            for (std::size_t length = random() % (longest + 1); length > 0; --length) letters += "ab1"[random() % 3];
            return letters;
        };
        for (int32_t& count : used) count = 0;
        for (const EMDQPDataType feed : ALL_FEEDS) {
            const int32_t count = feed == SHFE_2PS || feed == SHFE_4PS ? 60 : 25;
            for (int32_t i = 0; i < count; ++i)
                Put(feed, (text(random() % 2 == 0 ? 3 : 8) + (random() % 9 == 0 ? "TAS" : "")).c_str());
        }
        board.Write(0x1F14, 60);
        board.Write(0x1F15, 25);
        U50ConfigInfo& config = api->m_u50ConfigInfo;
        config.enabled_mask.enabled_mask = static_cast<uint8_t>(1 + random() % 15);
        for (int i = 0; i < 5; ++i) api->m_setPriceErrorInstId.insert(text(3));
        std::string insts;
        for (auto entries = random() % 12; entries > 0; --entries) insts += text(random() % 3 == 0 ? 8 : 2) + ",";
        config.channelInfo[7].insts.UnSafeCopyFrom(insts.c_str());
        config.channelInfo[7].options = random() % 2 == 0;
        config.channelInfo[7].recvall = random() % 5 == 0;
    }
    /// Every slot of every table is asked for each entry.
    void SubscribePlainly() {
        const auto count = [](EMDQPDataType feed) { return feed == SHFE_2PS || feed == SHFE_4PS ? 60 : 25; };
        for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
            const uint32_t table = TABLES[feed];
            api->_ContractUnsubscribe(FeedTable(api->m_u50InstTable, feed), table + 2, table + 3, table, table + 1,
                                      count(feed), 7);
        }
        std::vector<CInstrumentType> entries;
        api->m_u50ConfigInfo.channelInfo[7].insts.SplitByChar(entries, ',');
        for (CInstrumentType& entry : entries) {
            VEXA_LOG(LOG_INFO, "shfeInstCount[60] ineInstCount[25] listen_insts[%s]", entry.data());
            for (const auto& [feed2ps, feed4ps] : {std::pair{SHFE_2PS, SHFE_4PS}, {INE_2PS, INE_4PS}}) {
                for (int32_t instNo = 0; instNo < count(feed2ps); ++instNo) {
                    SubscribeSlot(feed2ps, instNo, entry);
                    SubscribeSlot(feed4ps, instNo, entry);
                }
            }
        }
    }
    void SubscribeSlot(EMDQPDataType feed, int32_t instNo, CInstrumentType& entry) {
        const uint32_t table = TABLES[feed];
        api->_ContractSubscribe(FeedTable(api->m_u50InstTable, feed),
                                (api->m_u50ConfigInfo.enabled_mask.enabled_mask >> feed & 1) != 0, table + 2, table + 3,
                                table, table + 1, instNo, 7, entry);
    }
    /// Levels and texts; every register access is among them.
    std::vector<std::pair<ELOGLEVEL, std::string>> TakeLines() {
        std::vector<std::pair<ELOGLEVEL, std::string>> lines;
        for (const LogCapture::Line& line : log.lines) lines.emplace_back(line.level, line.Text());
        log.lines.clear();
        return lines;
    }
};

TEST_P(SubscriptionOrder, EveryAccessAndLineIsThatOfAWalkOverAllSlots) {
    SubscribePlainly();  // from here on both find the same words on the board
    TakeLines();
    SubscribePlainly();
    const auto expected = TakeLines();
    api->m_u50InstTable = {};
    ASSERT_EQ(api->_ContractSubscribeManager(7), 0);
    auto lines = TakeLines();
    ASSERT_GE(lines.size(), 2U);
    lines.erase(lines.begin(), lines.begin() + 2);  // both instrument counts
    EXPECT_EQ(lines, expected);
    EXPECT_GT(lines.size(), 20'000U);
}

INSTANTIATE_TEST_SUITE_P(Seed, SubscriptionOrder, testing::Range(1U, 41U));

/// Whether an entry selects an id: without and with options, and where everything is taken.
struct Choice {
    const char* id;
    const char* entry;
    bool plain, withOptions, all, allWithOptions;
};

TEST(Selection, FollowsTheLengthsOfEntryAndId) {
    for (const auto& [id, entry, plain, withOptions, all, allWithOptions] :
         {Choice{"cu2612", "cu", true, true, true, true},
          {"cu2612", "cu2612", true, true, true, true},
          {"cu2612", "c", false, false, true, true},
          {"cu2612", "cu2", false, false, true, true},
          {"cu2612", "cu261", false, false, true, true},
          {"cu2612", "al", false, false, true, true},
          {"cu2612", "cu2613", false, false, true, true},
          {"cu2612", "", false, false, true, true},
          {"cu2612C", "cu", false, true, false, true},
          {"cu2612C", "cu2612", false, true, false, true},
          {"cu2612C", "cu2612C", true, true, false, true},
          {"cu2612C7", "cu2612C", false, false, false, true},
          {"cu", "cu", true, true, true, true},
          {"c", "c", true, true, true, true},
          {"c", "cu", false, false, true, true},
          {"cu261", "cu261", true, true, true, true},
          {"cu261", "cu2612", false, false, true, true},
          {"", "", true, true, true, true}}) {
        U50ChannelInfo channel;
        for (const auto& [recvall, options, expected] : {std::tuple{false, false, plain},
                                                         {false, true, withOptions},
                                                         {true, false, all},
                                                         {true, true, allWithOptions}}) {
            channel.recvall = recvall;
            channel.options = options;
            EXPECT_EQ(IsSelected(channel, id, entry), expected) << id << " by " << entry << recvall << options;
            CSelection selection(channel);
            selection.Add({id, 3, SHFE_4PS});
            selection.Sort();
            EXPECT_EQ(selection.Of(entry).size(), expected ? 1U : 0U) << id << " by " << entry << recvall << options;
        }
    }
}

TEST(Selection, EntryThatSelectsNothingVisitsNoSlot) {
    U50ChannelInfo channel;
    channel.recvall = false;
    channel.options = true;
    CSelection selection(channel);
    for (int32_t instNo = 0; instNo < 16'384; ++instNo) selection.Add({"cu2612C70000", instNo, SHFE_4PS});
    selection.Add({"", 16'384, SHFE_2PS});
    selection.Sort();
    for (const char* entry : {"c", "al", "cu2701", "cu2612C7000", "cu2612C700000"}) {
        EXPECT_EQ(selection.Of(entry).size(), 0U) << entry;
    }
    ASSERT_EQ(selection.Of("").size(), 1U);
    EXPECT_EQ(selection.Of("")[0].instNo, 16'384);
    EXPECT_EQ(selection.Of("cu").size(), 16'384U);
}

TEST(Selection, OptionsThatAreNotWantedAreNotVisited) {
    for (const bool recvall : {false, true}) {
        U50ChannelInfo channel;
        channel.recvall = recvall;
        channel.options = false;
        CSelection selection(channel);
        selection.Add({"cu2701", 3, SHFE_2PS});
        for (int32_t instNo = 4; instNo < 16'384; ++instNo) selection.Add({"cu2612C70000", instNo, SHFE_2PS});
        selection.Add({"cu2611", 16'384, SHFE_2PS});
        selection.Sort();
        ASSERT_EQ(selection.Of("cu").size(), 2U);
        EXPECT_EQ(selection.Of("cu")[0].id, "cu2701");
        EXPECT_EQ(selection.Of("cu")[1].id, "cu2611");
    }
}

}  // namespace

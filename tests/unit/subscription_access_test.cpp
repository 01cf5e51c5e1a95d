// Which words of the board's tables a subscription reads and writes, in which order, and what the host's slots hold
// then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "tests/support/FilledSlot.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

/// Write address, write data, read address and read data of a table.
struct Registers {
    uint32_t writeAddr, writeData, readAddr, readData;
};

/// In the order of the feeds.
constexpr Registers TABLES[] = {{0x11000, 0x11001, 0x11002, 0x11003},
                                {0x21000, 0x21001, 0x21002, 0x21003},
                                {0x11004, 0x11005, 0x11006, 0x11007},
                                {0x21004, 0x21005, 0x21006, 0x21007}};

/// A board that remembers every access and holds four tables, whose words stay as they were put.
class SubscriptionAccess : public testing::Test {
protected:
    SubscriptionAccess() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
        board.onRead = [this](uint32_t index, uint64_t& value) {
            for (const Registers& table : TABLES) {
                if (index == table.readData) value = words[{table.readAddr, board.accesses.back().value}];
                if (index == table.readData) return true;
            }
            return false;
        };
    }
    static uint32_t WordOf(const SInstTableType& slot, uint32_t word) {
        uint32_t value = 0;
        std::memcpy(&value, reinterpret_cast<const char*>(&slot) + word * 4, 4);
        return value;
    }
    void PutOnBoard(int feed, uint32_t instNo, const SInstTableType& slot) {
        for (uint32_t word = 0; word < 64; ++word) {
            words[{TABLES[feed].readAddr, instNo * 64 + word}] = WordOf(slot, word);
        }
    }
    int32_t Unsubscribe(int feed, int32_t count, int32_t channel) {
        const Registers& table = TABLES[feed];
        return api->_ContractUnsubscribe(Tables().at(static_cast<std::size_t>(feed)), table.readAddr, table.readData,
                                         table.writeAddr, table.writeData, count, channel);
    }
    int32_t Subscribe(int feed, int32_t instNo, int32_t channel, const char* list, bool enabled = true) {
        const Registers& table = TABLES[feed];
        CInstrumentType entry;
        entry.UnSafeCopyFrom(list);
        return api->_ContractSubscribe(Tables().at(static_cast<std::size_t>(feed)), enabled, table.readAddr,
                                       table.readData, table.writeAddr, table.writeData, instNo, channel, entry);
    }
    std::vector<SInstTableType*> Tables() {
        U50InstTable& tables = api->m_u50InstTable;
        return {tables.shfe2psInstTable, tables.shfe4psInstTable, tables.ine2psInstTable, tables.ine4psInstTable};
    }
    /// The whole slot is read, and its control word committed with `control` as the last that was written.
    static void AddUnsubscription(std::vector<Access>& expected, int feed, uint32_t instNo, const SInstTableType& slot,
                                  std::vector<uint32_t> control) {
        const Registers& table = TABLES[feed];
        for (uint32_t word = 0; word < 64; ++word) {
            expected.push_back(W(table.readAddr, instNo * 64 + word));
            expected.push_back(R(table.readData, WordOf(slot, word)));
        }
        for (const uint32_t value : control) expected.push_back(W(table.writeData, value));
        expected.push_back(W(table.writeAddr, instNo * 64));
    }
    static void AddSubscription(std::vector<Access>& expected, int feed, uint32_t instNo, uint32_t before,
                                uint32_t after) {
        const Registers& table = TABLES[feed];
        for (const Access& access :
             {W(table.readAddr, instNo * 64), R(table.readData, before), W(table.writeData, after),
              W(table.writeAddr, instNo * 64), W(table.readAddr, instNo * 64), R(table.readData, before)}) {
            expected.push_back(access);
        }
    }
    static SInstTableType SlotWith(const char* id, uint32_t control) {
        SInstTableType slot = FilledSlot(id, 500);
        slot.config = control;
        return slot;
    }

    std::map<std::pair<uint32_t, uint64_t>, uint32_t> words;  ///< by the table's read address register and the word
    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

// ---- one slot -------------------------------------------------------------------------------------------------------

TEST_F(SubscriptionAccess, OneSlotIsReadChangedCommittedAndReadBack) {
    PutOnBoard(2, 2, SlotWith("sc2612", 0x00120008));
    Tables()[2][2] = SlotWith("sc2612", 77);
    EXPECT_EQ(Subscribe(2, 2, 5, "sc"), 0);
    std::vector<Access> expected;
    AddSubscription(expected, 2, 2, 0x00120008, 0x80120028);
    EXPECT_EQ(board.accesses, expected);
    EXPECT_THAT(log.Texts(), ElementsAre("subscribe sc2612 128 2148663336", "subscribe sc2612 128 1179656"));
}

TEST_F(SubscriptionAccess, HostKeepsTheControlWordThatIsReadBackAndNothingElseChanges) {
    SInstTableType expected = SlotWith("sc2612", 77);
    Tables()[2][2] = expected;
    PutOnBoard(2, 2, SlotWith("other", 0x00120008));  // the board keeps its word, whatever is written
    Subscribe(2, 2, 5, "sc");
    expected.config = 0x00120008;
    EXPECT_EQ(TextOf(Tables()[2][2]), TextOf(expected));
}

TEST_F(SubscriptionAccess, TasBitIsSetOfTasInstrumentsAndClearedOfOthers) {
    api->m_u50ConfigInfo.channelInfo[5].options = true;
    for (const auto& [id, before, after] : {std::tuple{"cu2612", 0x40000001U, 0x80000021U},
                                            {"cu2612", 0xFFFFFFFFU, 0xBFFFFFFFU},
                                            {"cu2612TAS", 0x00000001U, 0xC0000021U},
                                            {"cu2612TAS", 0x40000000U, 0xC0000020U}}) {
        board.Forget();
        Tables()[1][3] = SlotWith(id, 0);
        PutOnBoard(1, 3, SlotWith(id, before));
        Subscribe(1, 3, 5, "cu");
        std::vector<Access> expected;
        AddSubscription(expected, 1, 3, before, after);
        EXPECT_EQ(board.accesses, expected) << id;
    }
}

TEST_F(SubscriptionAccess, HostHoldsTheSlotAsItWasReadAfterAnUnsubscription) {
    const SInstTableType onBoard = SlotWith("sc2612", 0x80000028);
    PutOnBoard(3, 0, SlotWith("nr2612", 0x80000001));
    PutOnBoard(3, 1, onBoard);
    Tables()[3][1] = FilledSlot("former", 9000);
    Tables()[3][2] = FilledSlot("former", 9000);
    EXPECT_EQ(Unsubscribe(3, 2, 5), 0);
    EXPECT_EQ(TextOf(Tables()[3][1]), TextOf(onBoard));
    EXPECT_EQ(TextOf(Tables()[3][2]), TextOf(FilledSlot("former", 9000)));
    std::vector<Access> expected;
    AddUnsubscription(expected, 3, 0, SlotWith("nr2612", 0x80000001), {0x80000001});
    AddUnsubscription(expected, 3, 1, onBoard, {0x80000008});
    EXPECT_EQ(board.accesses, expected);
    EXPECT_THAT(log.Texts(), IsEmpty());
    TestableApi::_Cleandata(*api);  // knows that the slots were filled
    EXPECT_EQ(TextOf(Tables()[3][1]), TextOf(SInstTableType{}));
}

TEST_F(SubscriptionAccess, WordsThatCannotBeReadStayAsTheHostHasThem) {
    SInstTableType slot = SlotWith("sc2612", 0x80000028);
    Tables()[2][0] = slot;
    board.accessResult = -1;
    Unsubscribe(2, 1, 5);
    EXPECT_EQ(TextOf(Tables()[2][0]), TextOf(slot));
    EXPECT_EQ(board.AccessesTo(0x11005, 0x11005), std::vector<Access>{W(0x11005, 0x80000008)});
    board.Forget();
    Subscribe(2, 0, 6, "sc");
    EXPECT_EQ(board.AccessesTo(0x11005, 0x11005), std::vector<Access>{W(0x11005, 0x80000068)});
    slot.config = 0x80000068;
    EXPECT_EQ(TextOf(Tables()[2][0]), TextOf(slot));
}

TEST_F(SubscriptionAccess, SlotOfWhichTheInUseBitAloneIsLeftIsSwitchedOff) {
    for (const auto& [before, control] : {std::pair<uint32_t, std::vector<uint32_t>>{0x80000020, {0x80000000, 0}},
                                          {0x80000000, {0x80000000, 0}},
                                          {0xC0000020, {0xC0000000}},
                                          {0x80010020, {0x80010000}},
                                          {0x80000021, {0x80000001}},
                                          {0x00000020, {0}}}) {
        board.Forget();
        PutOnBoard(0, 0, SlotWith("cu2612", before));
        Unsubscribe(0, 1, 5);
        std::vector<Access> expected;
        AddUnsubscription(expected, 0, 0, SlotWith("cu2612", before), control);
        EXPECT_EQ(board.accesses, expected) << before;
    }
}

TEST_F(SubscriptionAccess, UnsubscribingNoSlotOrFewerTouchesNothing) {
    for (const int32_t count : {0, -1, INT32_MIN}) EXPECT_EQ(Unsubscribe(1, count, 5), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(SubscriptionAccess, UnsubscribingEndsWithTheTable) {
    Tables()[3][0] = FilledSlot("next", 9000);  // lies behind the table that is walked
    EXPECT_EQ(Unsubscribe(2, 5000, 5), 0);
    EXPECT_EQ(board.AccessesTo(0x11004, 0x11004).size(), 4096U);
    EXPECT_EQ(TextOf(Tables()[3][0]), TextOf(FilledSlot("next", 9000)));
}

TEST_F(SubscriptionAccess, SlotThatIsDisabledNotSelectedOrOfAWrongPriceIsLeftAlone) {
    Tables()[0][2] = SlotWith("cu2612", 0);
    api->m_setPriceErrorInstId = {"al2612", "cu26"};
    EXPECT_EQ(Subscribe(0, 2, 5, "cu", false), 0);
    EXPECT_EQ(Subscribe(0, 2, 5, "al"), 0);
    EXPECT_EQ(Subscribe(0, 2, 5, "cu26"), 0);
    api->m_setPriceErrorInstId.insert("cu2612");
    EXPECT_EQ(Subscribe(0, 2, 5, "cu"), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_THAT(log.Texts(), IsEmpty());
    api->m_setPriceErrorInstId.erase("cu2612");
    Subscribe(0, 2, 5, "cu");
    EXPECT_EQ(board.accesses.size(), 6U);
}

// ---- all four tables ------------------------------------------------------------------------------------------------

TEST_F(SubscriptionAccess, TablesAreUnsubscribedInOrderAndThenSubscribedEntryByEntryAndSlotBySlot) {
    board.answers = {{0x1F14, 2}, {0x1F15, 1}};
    const SInstTableType cu = SlotWith("cu2612", 0x80000003);
    const SInstTableType al = SlotWith("al2612", 0x80000002);
    const SInstTableType sc = SlotWith("sc2612", 0);
    for (const int feed : {0, 1}) PutOnBoard(feed, 0, cu), PutOnBoard(feed, 1, al);
    for (const int feed : {2, 3}) PutOnBoard(feed, 0, sc);
    U50ConfigInfo& config = api->m_u50ConfigInfo;
    config.enabled_mask.enabled_mask = 0xF;
    config.channelInfo[1].insts.CopyFrom("sc,al,cu");
    EXPECT_EQ(api->_ContractSubscribeManager(1), 0);

    std::vector<Access> expected{R(0x1F14, 2), R(0x1F15, 1)};
    for (const int feed : {0, 1}) {
        AddUnsubscription(expected, feed, 0, cu, {0x80000001});
        AddUnsubscription(expected, feed, 1, al, {0x80000000, 0});
    }
    for (const int feed : {2, 3}) AddUnsubscription(expected, feed, 0, sc, {0});
    for (const int feed : {2, 3}) AddSubscription(expected, feed, 0, 0, 0x80000002);
    for (const int feed : {0, 1}) AddSubscription(expected, feed, 1, 0x80000002, 0x80000002);
    for (const int feed : {0, 1}) AddSubscription(expected, feed, 0, 0x80000003, 0x80000003);
    EXPECT_EQ(board.accesses, expected);
}

TEST_F(SubscriptionAccess, ProductOfBothExchangesIsSubscribedAtShfeFirst) {
    board.answers = {{0x1F14, 2}, {0x1F15, 2}};
    for (const int feed : {0, 1, 2, 3}) {
        for (const uint32_t instNo : {0U, 1U}) PutOnBoard(feed, instNo, SlotWith("cu2612", 0));
    }
    U50ConfigInfo& config = api->m_u50ConfigInfo;
    config.enabled_mask.enabled_mask = 0xF;
    config.channelInfo[1].insts.CopyFrom("cu");
    EXPECT_EQ(api->_ContractSubscribeManager(1), 0);
    std::vector<Access> commits;
    for (const Access& write : board.Writes()) {
        for (const Registers& table : TABLES) {
            if (write.index == table.writeAddr) commits.push_back(write);
        }
    }
    ASSERT_EQ(commits.size(), 16U);
    commits.erase(commits.begin(), commits.begin() + 8);  // of the unsubscription
    EXPECT_THAT(commits, ElementsAre(W(0x11000, 0), W(0x21000, 0), W(0x11000, 64), W(0x21000, 64), W(0x11004, 0),
                                     W(0x21004, 0), W(0x11004, 64), W(0x21004, 64)));
}

TEST_F(SubscriptionAccess, ChannelWithoutAListIsUnsubscribedAllTheSame) {
    board.answers = {{0x1F14, 1}, {0x1F15, 1}};
    for (const int feed : {0, 1, 2, 3}) PutOnBoard(feed, 0, SlotWith("cu2612", 0x80008001));
    EXPECT_EQ(api->_ContractSubscribeManager(15), 0);
    std::vector<Access> expected{R(0x1F14, 1), R(0x1F15, 1)};
    for (const int feed : {0, 1, 2, 3}) {
        AddUnsubscription(expected, feed, 0, SlotWith("cu2612", 0x80008001), {0x80000001});
    }
    EXPECT_EQ(board.accesses, expected);
}

TEST_F(SubscriptionAccess, CountsThatCannotBeReadAreNone) {
    board.accessResult = -1;
    api->m_u50ConfigInfo.enabled_mask.enabled_mask = 0xF;
    api->m_u50ConfigInfo.channelInfo[1].insts.CopyFrom("cu");
    Tables()[2][0] = SlotWith("cu2612", 0);
    EXPECT_EQ(api->_ContractSubscribeManager(1), 0);
    EXPECT_THAT(board.accesses, ElementsAre(R(0x1F14), R(0x1F15)));
    EXPECT_THAT(log.Texts(LOG_INFO), ElementsAre("shfeInstCount[0] ineInstCount[0] listen_insts[cu]"));
}

// ---- what is refused ------------------------------------------------------------------------------------------------

/// The refused call reaches neither memory nor board.
struct Refused {
    const char* name;
    int32_t instNo;
    int32_t channel;
};

class SubscriptionEdge : public SubscriptionAccess, public testing::WithParamInterface<Refused> {};

TEST_P(SubscriptionEdge, NumberOrChannelOutsideTouchesNothing) {
    const auto [name, instNo, channel] = GetParam();
    CInstrumentType entry("cu");
    api->m_u50ConfigInfo.channelInfo[0].recvall = true;
    EXPECT_EQ(api->_ContractSubscribe(api->m_u50InstTable.ine4psInstTable, true, 0x21006, 0x21007, 0x21004, 0x21005,
                                      instNo, channel, entry),
              0);
    EXPECT_THAT(board.accesses, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, SubscriptionEdge,
                         testing::Values(Refused{"BelowTheTable", -1, 0}, Refused{"JustPastTheTable", 4096, 0},
                                         Refused{"FarPastTheTable", INT32_MAX, 0}, Refused{"ChannelBelow", 0, -1},
                                         Refused{"ChannelAbove", 0, 16}),
                         [](const auto& refused) { return refused.param.name; });

TEST_F(SubscriptionAccess, ForeignTableTouchesNothing) {
    SInstTableType foreign{};
    CInstrumentType entry("cu");
    api->m_u50ConfigInfo.channelInfo[0].recvall = true;
    EXPECT_EQ(api->_ContractSubscribe(&foreign, true, 0x11002, 0x11003, 0x11000, 0x11001, 0, 0, entry), 0);
    EXPECT_EQ(api->_ContractUnsubscribe(&foreign, 0x11002, 0x11003, 0x11000, 0x11001, 1, 0), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(SubscriptionAccess, NoSuchChannelIsUnsubscribedFromNothing) {
    for (const int32_t channel : {-1, 16}) {
        EXPECT_EQ(api->_ContractSubscribeManager(channel), 0);
        EXPECT_EQ(api->_ContractUnsubscribe(api->m_u50InstTable.shfe2psInstTable, 0x11002, 0x11003, 0x11000, 0x11001, 1,
                                            channel),
                  0);
    }
    EXPECT_THAT(board.accesses, IsEmpty());
}

}  // namespace

// Operations of the session object that hand on to the units behind it: each reaches its unit with what it was given.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "exchange/MdqpWriter.h"
#include "testing/LogCapture.h"
#include "tests/support/FilledSlot.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

namespace {

using ::testing::ElementsAre;

class SnapshotOperations : public ::testing::Test {
protected:
    static constexpr uint16_t PORT = 40007;

    SnapshotOperations() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api->m_u50DstPort.port_ine_4ps = PORT;
        board.Forget();
        log.lines.clear();
    }

    int32_t Parse(const exchange::MdqpWriter& message, uint16_t port) {
        std::vector<uint8_t> bytes = message.Bytes();
        return TestableApi::_ParseMdqp(reinterpret_cast<mdqp_t*>(bytes.data()), port, *api);
    }

    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(SnapshotOperations, NullPointersAreToldAndIgnored) {
    const uint8_t message[32] = {};
    TestableApi::_TcpHandler(nullptr, 32, api.get());
    TestableApi::_TcpHandler(message, 32, nullptr);
    EXPECT_THAT(log.Texts(), ElementsAre("user_data or lpPacket is nullptr", "user_data or lpPacket is nullptr"));
    EXPECT_EQ(log.lines.back().level, LOG_DEBUG);
    EXPECT_EQ(log.lines.back().Function(), "_TcpHandler");
}

TEST_F(SnapshotOperations, MessagesReachTheSnapshotPhase) {
    const uint8_t update[32] = {1};
    TestableApi::_TcpHandler(update, sizeof update, api.get());
    EXPECT_THAT(log.Texts(), ElementsAre("invalide DMA Data Type[1]"));
    EXPECT_EQ(api->m_counters[ECounter::FrameForeign], 1U);
}

TEST_F(SnapshotOperations, SessionIsOpenedAndReset) {
    tcp_session_t& session = api->m_sessions[PORT];
    EXPECT_EQ(api->_InitTcpSession(session, PORT), 0);
    EXPECT_TRUE(session.frag_buf != nullptr);
    EXPECT_THAT(log.Texts()[0], ::testing::StartsWith(" dstPort:40007 frag_buf:0x"));
    session.init = 1;
    session.dst_port = PORT;
    api->ResetSession(session);
    const tcp_session_t empty{};
    EXPECT_EQ(std::memcmp(&session, &empty, sizeof empty), 0);
}

TEST_F(SnapshotOperations, ChecksumIsOfSoManyBytes) {
    uint8_t bytes[] = {1, 2, 3, 4, 9};
    EXPECT_EQ(TestableApi::TcpCheckSum(bytes, 4), 0xF9FB);  // the complement of 0x0604, on this machine
}

TEST_F(SnapshotOperations, LastMessageEndsTheUseOfItsSession) {
    api->m_sessions[PORT].init = 1;
    api->m_sessions[PORT - 1].init = 1;
    EXPECT_EQ(Parse(exchange::MdqpWriter(), PORT), 0);
    EXPECT_EQ(api->m_sessions[PORT].init, 1);
    EXPECT_EQ(Parse(exchange::MdqpWriter(mdqp::FLAG_LAST), PORT), 0);
    EXPECT_EQ(api->m_sessions[PORT].init, 0);
    EXPECT_EQ(api->m_sessions[PORT - 1].init, 1);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 8);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x1F15, 0)));
}

TEST_F(SnapshotOperations, MessageOfNoFeedIsRefused) {
    api->m_sessions[PORT + 1].src_host = 11;
    EXPECT_EQ(Parse(exchange::MdqpWriter(mdqp::FLAG_LAST), PORT + 1), -1);
    EXPECT_THAT(log.Texts(), ElementsAre("src_host[11] src_port[0] dst_host[0] dst_port[0] unknown."));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
}

TEST_F(SnapshotOperations, RecordsAreStoredInTheirFeedsSlot) {
    inst_info_t info{};
    info.inst_no = 7;
    std::memcpy(info.inst_id, "sc2612", 7);
    deal_info_t deal{};
    deal.inst_no = 7;
    deal.volume = 12;
    price_detail_t level{7, '0', 1, 77};
    order_statistics_info_t statistics{7, 5, 1, 6, 1};
    packet_no_t packet{99};
    EXPECT_EQ(TestableApi::_FieldID0101(info, INE_4PS, *api), 0);
    EXPECT_EQ(TestableApi::_FieldID0102(deal, INE_4PS, *api), 0);
    EXPECT_EQ(TestableApi::_FieldID0103(level, INE_4PS, *api, PORT, true), 0);
    EXPECT_EQ(TestableApi::_FieldID0104(statistics, INE_4PS, *api), 0);
    EXPECT_EQ(TestableApi::_FieldID1004(packet, INE_4PS, *api), 0);
    SInstTableType expected{};
    std::memcpy(expected.inst_id, "sc2612", 7);
    expected.volume = 12;
    expected.bid1_price = 100;
    expected.bid1_vol = 77;
    expected.bid_volume = 5;
    expected.bid_amount = 100;
    expected.ask_volume = 6;
    expected.ask_amount = 100;
    EXPECT_EQ(TextOf(api->m_u50InstTable.ine4psInstTable[7]), TextOf(expected));
    EXPECT_EQ(api->m_u50InstCount.ine_inst_cnt_4ps, 8U);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x21111, 99)));
}

TEST_F(SnapshotOperations, FirstLevelOfARunClearsTheBookAndALaterOneDoesNot) {
    SInstTableType& slot = api->m_u50InstTable.shfe4psInstTable[7];
    slot.ask5_price = 9;
    price_detail_t level{7, '1', 1, 77};
    EXPECT_EQ(TestableApi::_FieldID0103(level, SHFE_4PS, *api, PORT, false), 0);
    EXPECT_EQ(slot.ask5_price, 9);
    EXPECT_EQ(TestableApi::_FieldID0103(level, SHFE_4PS, *api, PORT, true), 0);
    EXPECT_EQ(slot.ask5_price, 0);
    EXPECT_EQ(slot.ask1_price, 100);
}

TEST_F(SnapshotOperations, RecordsOfNoSlotAreRefusedWhoeverHandsThemOver) {
    for (const int32_t number : {-1, INT32_MIN, 4096, INT32_MAX}) {
        inst_info_t info{};
        info.inst_no = number;
        deal_info_t deal{};
        deal.inst_no = number;
        std::memcpy(deal.action_day, "20260430", 9);
        price_detail_t level{number, '0', 1, 1};
        order_statistics_info_t statistics{number, 1, 1, 1, 1};
        EXPECT_EQ(TestableApi::_FieldID0101(info, INE_4PS, *api), 0);
        EXPECT_EQ(TestableApi::_FieldID0102(deal, INE_4PS, *api), 0);
        EXPECT_EQ(TestableApi::_FieldID0103(level, INE_4PS, *api, PORT, true), 0);
        EXPECT_EQ(TestableApi::_FieldID0104(statistics, INE_4PS, *api), 0);
    }
    EXPECT_EQ(api->m_u50InstCount.ine_inst_cnt_4ps, 0U);
    EXPECT_EQ(api->m_tradingDay, 0);
}

TEST_F(SnapshotOperations, NumbersAreHeldAgainstTheirFeedsTable) {
    int32_t number = 4096;
    EXPECT_FALSE(TestableApi::_ProtectInstNo(INE_2PS, number));
    EXPECT_TRUE(TestableApi::_ProtectInstNo(SHFE_2PS, number));
    number = 4095;
    EXPECT_TRUE(TestableApi::_ProtectInstNo(INE_2PS, number));
}

}  // namespace

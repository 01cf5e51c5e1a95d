// What the snapshot phase tells of what it is handed, and a start of what the snapshot holds: whole lines, in order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "public/log/CommonLog.h"
#include "tests/session/LiteralWorld.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace literal {
namespace {

using Lines = std::vector<std::string>;

constexpr int TROUBLES = 3;

// ---- the snapshot phase ---------------------------------------------------------------------------------------------

/// The first segment of a connection to this port.
Segment First(uint16_t port, uint16_t topic) {
    const Message first = Message(0x11).Field(0x1001, Record(6).U16(0, topic).U32(2, 5)).Field(0x0031, Record(40));
    return {33101, port, 5000, 0x10, first.Take()};
}

Segment Behind(const Segment& before, Bytes payload, uint32_t gap = 0) {
    Segment segment = before;
    segment.seq += static_cast<uint32_t>(before.payload.size()) + gap;
    segment.payload = std::move(payload);
    return segment;
}

class LiteralSnapshot : public testing::Test {
protected:
    void SetUp() override {
        TestableApi::ForgetWarnings();
        CCommonLog::GetInstance().SetLogPath((world.directory.Path().string() + "/").c_str());
        U50ConfigInfo& config = world.api->m_u50ConfigInfo;
        config.enabled_mask.enabled_mask = 15;
        config.snapTcpPort.shfe2ps_snap_port = 33101;
        config.topicID = {1010, 1111, 5010, 5111};
    }
    void Hand(Bytes message) {
        const auto length = static_cast<unsigned int>(message.size());
        message.resize(2048);
        TestableApi::_TcpHandler(message.data(), length, world.api.get());
    }
    void Hand(const Segment& segment) { Hand(segment.Take()); }
    Lines Told() const { return world.LogLines(); }

    World world{TROUBLES};
};

TEST_F(LiteralSnapshot, TellsWhatIsNoSegment) {
    Hand(Event({11, 12, 13, 14, 15, 16}));
    Hand(Update(5));
    TestableApi::_TcpHandler(nullptr, 0, world.api.get());
    Bytes message(32);
    TestableApi::_TcpHandler(message.data(), 32, nullptr);
    EXPECT_THAT(Told(), ElementsAre("[WARNING] [_TcpHandler]invalide DMA Data Type[0]",
                                    "[WARNING] [_TcpHandler]channel0 receive DMA_EVENT event_data0[11] event_data1[12] "
                                    "event_data2[13] event_data3[14] event_data4[15] event_data5[16]",
                                    "[WARNING] [_TcpHandler]invalide DMA Data Type[1]",
                                    "[DEBUG] [_TcpHandler]user_data or lpPacket is nullptr",
                                    "[DEBUG] [_TcpHandler]user_data or lpPacket is nullptr"));
}

TEST_F(LiteralSnapshot, TellsBothChecksumsOfASegment) {
    Bytes message = First(41001, 1010).Take();
    const unsigned int right = message[62] + 256U * message[63];
    message[63] ^= 0x40;
    const unsigned int arrived = message[62] + 256U * message[63];
    Hand(message);
    char text[128];
    std::snprintf(text, sizeof text,
                  "[ERROR] [_TcpHandler]TcpCheckSum false, tcp_hdr->check is 0x%x, tcpchecksum is 0x%x", arrived,
                  right);
    message[28] = 2056 >> 8;  // 2,036 bytes of TCP
    message[29] = 2056 & 0xFF;
    Hand(message);
    EXPECT_THAT(Told(), ElementsAre(text, "[ERROR] [_TcpHandler]TcpCheckSum false"));
}

TEST_F(LiteralSnapshot, TellsConnectionsThatAreRefusedOrReset) {
    Hand(First(41001, 999));
    Segment reset = First(41009, 1010);
    reset.flags = 0x14;
    Hand(reset);
    world.api->m_u50ConfigInfo.enabled_mask.enabled_mask = 0;
    Hand(First(41001, 1010));
    EXPECT_THAT(Told(), ElementsAre("[DEBUG] [_InitTcpSession] dstPort:41001 frag_buf:<address>",
                                    "[DEBUG] [_TcpHandler]mdqp packet. TCP dst port: 41001",
                                    "[DEBUG] [_TcpHandler]topic ID: 999, snap No: 5",
                                    "[WARNING] [_TcpHandler]invalide topic id[999]",
                                    "[WARNING] [_TcpHandler]rst msg, Session closed dstport:41009",
                                    "[ERROR] [_TcpHandler]both shfe and ine are not subscribed"));
}

TEST_F(LiteralSnapshot, TellsMessagesOfNoFeed) {
    Hand(Segment{33101, 41007, 5000, 0x10, Message(0x11).Field(0x0031, Record(40)).Take()});
    // 10.1.2.3 and 10.1.2.4 as they came over the wire
    EXPECT_THAT(Told(),
                ElementsAre("[DEBUG] [_InitTcpSession] dstPort:41007 frag_buf:<address>",
                            "[DEBUG] [_ParseMdqp]src_host[50462986] src_port[33101] dst_host[67240202] dst_port[41007] "
                            "unknown."));
}

TEST_F(LiteralSnapshot, TellsNumbersOutOfRangeOnceForEachExchange) {
    const std::vector<std::pair<uint16_t, uint16_t>> feeds{{41001, 1010}, {41002, 1111}, {41003, 5010}, {41004, 5111}};
    for (const auto& [port, topic] : feeds) {
        const Segment first = First(port, topic);
        Hand(first);
        Hand(Behind(first, Message(0x11)
                               .Field(0x0101, Record(112).U32(108, 16384))
                               .Field(0x0102, Record(154).U32(0, 16385))
                               .Field(0x0777, Record(4))
                               .Field(0x0031, Record(8))
                               .Take()));
    }
    int32_t number = 3;
    EXPECT_FALSE(TestableApi::_ProtectInstNo(static_cast<EMDQPDataType>(7), number));
    Lines lines = Told();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return line.rfind("[DEBUG]", 0) == 0; }),
                lines.end());
    EXPECT_THAT(lines,
                ElementsAre("[WARNING] [_ProtectInstNo]shfe inst_no[16384] is out of range [16384]",
                            "[ERROR] [_ParseMdqp]unknown field id: 777", "[ERROR] [_ParseMdqp]unknown field id: 777",
                            "[WARNING] [_ProtectInstNo]ine inst_no[16384] is out of range  [4096]",
                            "[ERROR] [_ParseMdqp]unknown field id: 777", "[ERROR] [_ParseMdqp]unknown field id: 777",
                            "[INFO] [_ProtectInstNo]refMDQPDataType is error, 7."));
}

struct Full {
    uint16_t port;
    uint16_t topic;
    uint32_t lastInstNo;
    const char* finished;
    const char* warning;
};

TEST_F(LiteralSnapshot, TellsTablesThatFillUp) {
    const std::vector<Full> feeds{{41001, 1010, 12799, "shfe2ps init finished, total instruments:12800", ""},
                                  {41001, 1010, 12800, "shfe2ps init finished, total instruments:12801",
                                   "shfe_inst_cnt_2ps is 12801, more than 80% max cnt."},
                                  {41002, 1111, 12900, "shfe4ps init finished, total instruments:12901",
                                   "shfe_inst_cnt_4ps is 12901, more than 80% max cnt."},
                                  {41003, 5010, 3199, "ine2ps init finished, total instruments:3200", ""},
                                  {41003, 5010, 3200, "ine2ps init finished, total instruments:3201",
                                   "ine_inst_cnt_2ps is 3201, more than 80% max cnt. "},
                                  {41004, 5111, 4095, "ine4ps init finished, total instruments:4096",
                                   "ine_inst_cnt_4ps is 4096, more than 80% max cnt. "}};
    for (const Full& feed : feeds) {
        TestableApi::ForgetWarnings();
        world.api->m_finishedMask.enabled_mask = 0;
        const std::size_t before = Told().size();
        const Segment first = First(feed.port, feed.topic);
        Hand(first);
        Hand(Behind(
            first, Message(0x01).Field(0x0101, Record(112).U32(108, feed.lastInstNo)).Field(0x0031, Record(8)).Take()));
        const Lines lines = Told();
        Lines expected{"[INFO] [_ParseMdqp]" + std::string(feed.finished)};
        if (feed.warning[0] != '\0') expected.push_back("[WARNING] [_ParseMdqp]" + std::string(feed.warning));
        ASSERT_GE(lines.size(), before + expected.size());
        EXPECT_EQ(Lines(lines.end() - static_cast<std::ptrdiff_t>(expected.size()), lines.end()), expected);
    }
}

TEST_F(LiteralSnapshot, TellsStreamsThatCannotBePutTogether) {
    const Segment first = First(41001, 1010);
    Hand(first);
    // Three early ones, of which the last goes behind the two before it; then 498 more in front of them.
    Hand(Behind(first, Bytes(8), 1000));
    Hand(Behind(first, Bytes(8), 1010));
    Hand(Behind(first, Bytes(8), 1020));
    for (uint32_t i = 1; i <= 498; ++i) Hand(Behind(first, Bytes(1), 1000 - i));
    const uint32_t next = 5000 + static_cast<uint32_t>(first.payload.size());
    EXPECT_THAT(world.Troubles(), ElementsAre("[ERROR] [_TcpHandler]free the cache of packet loss.",
                                              "[WARNING] [_TcpHandler]break tcp seq detected. expt: " +
                                                  std::to_string(next) + ", Got: " + std::to_string(next + 502),
                                              "[WARNING] [_TcpHandler]packet loss > 20 msg, free cache, init again."));
}

TEST_F(LiteralSnapshot, TellsACarryOverThatGrowsTooLong) {
    Segment last = First(41001, 1010);
    Hand(last);
    Bytes payload(1400);
    payload[0] = 0x11;
    payload[1] = '2';
    payload[2] = payload[3] = 0xFF;  // 65,543 bytes
    for (int i = 0; i < 47; ++i) {
        last = Behind(last, payload);
        Hand(last);
        payload.assign(1400, 0);
    }
    EXPECT_THAT(world.Troubles(), ElementsAre("[WARNING] [_TcpHandler]ignore tcp message!"));
}

TEST_F(LiteralSnapshot, TellsAnEarlySegmentThatBeginsNoMessage) {
    const Segment first = First(41001, 1010);
    const Bytes message = Message(0x11).Field(0x0031, Record(40)).Take();
    Hand(first);
    Hand(Behind(first, Bytes(60), static_cast<uint32_t>(message.size())));
    Hand(Behind(first, message));
    EXPECT_THAT(world.Troubles(), ElementsAre("[ERROR] [_TcpHandler]not a mdqp header, check program logic"));
}

TEST_F(LiteralSnapshot, TellsCountsBeyondTheTablesAndCutsThem) {
    const CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
    registers.Init(3, 474);
    registers.WriteRegister(0x1F14, 16385);
    registers.WriteRegister(0x1F15, 4097);
    world.Forget();
    world.api->_ContractSubscribeManager(9);
    EXPECT_THAT(Told(),
                ElementsAre("[INFO] [_ContractSubscribeManager]if shfeInstCount > 16384, set shfeInstCount = 16384.",
                            "[INFO] [_ContractSubscribeManager]if ineInstCount > 4096, set ineInstCount = 4096."));
    EXPECT_EQ(world.board.accesses.size(), 2U + (2U * 16384 + 2U * 4096) * (64 * 2 + 2));
}

// ---- prices ---------------------------------------------------------------------------------------------------------

/// A snapshot of all feeds whose first one has an instrument at slot 6 with this bid and ask, limits 10 and 20.
std::vector<Bytes> WithPrices(double bid, double ask) {
    std::vector<Bytes> messages;
    const std::vector<std::pair<uint16_t, uint16_t>> feeds{{41002, 1111}, {41003, 5010}, {41004, 5111}, {41001, 1010}};
    for (const auto& [port, topic] : feeds) {
        const Segment first = First(port, topic);
        Message last(0x01);
        if (topic == 1010) {
            last.Field(0x0101, Record(112).Text(0, "rb2612").U32(108, 6))
                .Field(0x0102, Record(154).U32(0, 6).F64(72, 20.0).F64(80, 10.0))
                .Field(0x0103, Record(17).U32(0, 6).Text(4, "0").F64(5, bid).U32(13, 1))
                .Field(0x0103, Record(17).U32(0, 6).Text(4, "1").F64(5, ask).U32(13, 1))
                .Field(0x0031, Record(8));
        }
        messages.push_back(first.Take());
        messages.push_back(Behind(first, last.Take()).Take());
    }
    messages.push_back(Segment{33101, 41001, 9000, 0x10, {}}.Take());
    return messages;
}

Lines Prices(const std::string& reason, const std::string& ask, const std::string& bid) {
    Lines lines{"[WARNING] [CheckPrice]" + reason, "[ERROR] [ShfeInstPriceCheck]inst_id [rb2612] inst_no[6]",
                "[ERROR] [ShfeInstPriceCheck]upper_price is [    2000]",
                "[ERROR] [ShfeInstPriceCheck]lower_price is [    1000]"};
    for (const char* name : {"ask5", "ask4", "ask3", "ask2", "ask1", "bid1", "bid2", "bid3", "bid4", "bid5"}) {
        const std::string price = std::string(name) == "ask1" ? ask : std::string(name) == "bid1" ? bid : "       0";
        lines.push_back(std::string("[ERROR] [ShfeInstPriceCheck]") + name + "_price is [" + price + "]");
    }
    return lines;
}

TEST_F(LiteralSnapshot, TellsPricesThatAreNoBook) {
    for (const Bytes& message : WithPrices(15.0, 15.0)) Hand(message);
    Lines expected = Prices("The price is abnormal, price index is :5 ", "    1500", "    1500");
    expected.push_back("[WARNING] [_TcpHandler]price check is error, shot cnt is 0.");
    EXPECT_THAT(world.Troubles(), ElementsAreArray(expected));
    for (const Bytes& message : WithPrices(9.0, 15.0)) Hand(message);
    Lines second =
        Prices("(price > up) or (price < lower), price is 900, up is 2000, lower is 1000, shfe2psInstTable index is :5",
               "    1500", "     900");
    expected.insert(expected.end(), second.begin(), second.end());
    expected.push_back("[WARNING] [_TcpHandler]price check is error, shot cnt is 0.");
    EXPECT_THAT(world.Troubles(), ElementsAreArray(expected));
}

TEST(LiteralDebugMode, IsToldInItsPlace) {
    World world(TROUBLES, {"debug_flag=1", "error_instno=3", "error_case=7", "error_limit_parts=9", "dma_sleep=1500"});
    ASSERT_EQ(world.Start(), 0);
    // The file is read at the level of the process; slot 3 is in use in one table alone.
    EXPECT_THAT(
        world.Troubles(),
        ElementsAre("[WARNING] [_ReadConfig]error_instno[3]", "[WARNING] [_ReadConfig]error_case[7]",
                    "[WARNING] [_ReadConfig]error_limit_parts[9]", "[WARNING] [_ReadConfig]dma_sleep[1500]",
                    "[WARNING] [_BindCpu]could not set CPU[-1] affinity", "[WARNING] [_TcpHandler]DMA sleep 1500us",
                    "[WARNING] [_WriteContractTable]debug mode error_case:7"));
    EXPECT_EQ(world.clock.slept, 3'001'500'000);
}

TEST(LiteralDebugMode, TellsTheWholeInstrumentBeforeItChangesIt) {
    World world(15, {"debug_flag=1", "error_instno=1", "error_case=0"});
    ASSERT_EQ(world.Start(), 0);
    const Lines lines = world.LogLines();
    const auto told = std::find(lines.begin(), lines.end(), "[WARNING] [_WriteContractTable]debug mode error_case:0");
    ASSERT_GE(told - lines.begin(), 1);
    EXPECT_EQ(*(told - 1),
              "[DEBUG] [_WriteContractTable]error_instno:1,inst_id:cu2612,price_tick:1000,codec_price:7800000,"
              "vol_multiple:5,change_no:42,update_mill_sec:500,updatetime:0,bid5_price:7807000,bid5_vol:11,"
              "bid4_price:7808000,bid4_vol:10,bid3_price:7809000,bid3_vol:9,bid2_price:7810000,bid2_vol:8,"
              "bid1_price:7811000,bid1_vol:7,ask5_price:7817000,ask5_vol:16,ask4_price:7816000,ask4_vol:15,"
              "ask3_price:7815000,ask3_vol:14,ask2_price:7814000,ask2_vol:13,ask1_price:7813000,ask1_vol:12,"
              "open_interest:210000,turnover:4820000050,volume:123456,last_price:7812000,upper_limit_price:8400000,"
              "lower_limit_price:7200000,bid_volume=1001,bid_amount:781125,ask_volume=1002,ask_amount:781350");
}

TEST(LiteralIndexFile, WithoutInstrumentsIsToldAndEndsNoStart) {
    World world(TROUBLES);
    world.snapshot = {};
    for (const auto& [port, topic] :
         std::vector<std::pair<uint16_t, uint16_t>>{{41001, 1010}, {41002, 1111}, {41003, 5010}, {41004, 5111}}) {
        const Segment first = First(port, topic);
        world.snapshot.push_back(first.Take());
        world.snapshot.push_back(Behind(first, Message(0x01).Take()).Take());
    }
    world.snapshot.push_back(Segment{33101, 41001, 9000, 0x10, {}}.Take());
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.Troubles(),
                ElementsAre("[WARNING] [_BindCpu]could not set CPU[-1] affinity",
                            "[WARNING] [_InstStaticInfoWriteFile]shfeInstCount:0, ineInstCount:0, not write contract "
                            "index file <directory>/.shfe_20260429_pm"));
}

TEST(LiteralIndexFile, ThatCannotBeOpenedIsToldAndEndsNoStart) {
    World world(TROUBLES);
    TestableApi::s_indexDirectory = world.directory.Path() / "none";
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.Troubles(), ElementsAre("[WARNING] [_BindCpu]could not set CPU[-1] affinity",
                                              "[WARNING] [_InstStaticInfoWriteFile]open contract index file failed "
                                              "<directory>/none/.shfe_20260429_pm"));
}

}  // namespace
}  // namespace literal

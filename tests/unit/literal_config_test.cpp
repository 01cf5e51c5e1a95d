// Every key by its name, with a value that is not its default: into its field, and into its line of the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/TestableApi.h"
#include "tests/support/WrittenAtOnce.h"

using testing::ElementsAre;

namespace {

constexpr const char* EVERY_KEY = R"([config]
log_level=23
cpucore=5
device=xilinx9:0
log_path=/nonexistent/of/this/test/
shfe2ps=disabled
ine2ps=enabled
shfe2ps_ip_a=239.1.1.11:21011
shfe2ps_ip_b=239.1.1.12:21012
shfe4ps_ip_a=239.1.1.21:21021
shfe4ps_ip_b=239.1.1.22:21022
ine2ps_ip_a=239.1.1.31:21031
ine2ps_ip_b=239.1.1.32:21032
ine4ps_ip_a=239.1.1.41:21041
ine4ps_ip_b=239.1.1.42:21042
shfe2ps_topic_id=1001
shfe4ps_topic_id=1102
ine2ps_topic_id=-5003
ine4ps_topic_id=5104
shfe2ps_snap_port=33101
shfe4ps_snap_port=33102
ine2ps_snap_port=33103
ine4ps_snap_port=33104
shfe2ps_max_inst_no=82001
shfe4ps_max_inst_no=82102
ine2ps_max_inst_no=86003
ine4ps_max_inst_no=-4
last_tick_channel=65542
board_id=-12
DSTMAC=01:02:03:04:05:06
DSTIP=10.20.0.1
DSTPORT=33023
SRCMAC=0a:0b:0c:0d:0e:0f
SRCIP=10.20.0.2
SRCPORT=40001
TARGETROUTE=58
crc_mux_check=1
repeat_quote_upload=1
price_protect_event_mask=4294967294
debug_flag=1
error_instno=301
error_case=2
error_limit_parts=65541
dma_sleep=-7
model_sel=1
event_model_sel=1
shield_price_check=1
dma_data_flag=1
wait_snap_timeout=71
init_tcpcnt=13
[channel1]
insts=cu2612,al
options=recv
[channel14]
insts=all
options=norecv
)";

class LiteralConfiguration : public testing::Test {
protected:
    int32_t Load(const std::string& text) {
        const TemporaryFile file(text);
        api->m_configFileName.UnSafeCopyFrom(file.Path().c_str());
        return api->_ReadConfig();
    }
    ~LiteralConfiguration() override { CCommonLog::GetInstance().SetLogPath(""); }

    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
    U50ConfigInfo& config = api->m_u50ConfigInfo;
};

TEST_F(LiteralConfiguration, EveryKeyReachesItsOwnField) {
    config.enabled_mask.enabled_mask = 0xFB;
    ASSERT_EQ(Load(EVERY_KEY), 0);
    EXPECT_EQ(config.log_level, 23);
    EXPECT_EQ(config.cpucore, 5);
    EXPECT_EQ(config.bus_id, 9);
    EXPECT_EQ(config.channel_id, 0);
    EXPECT_EQ(config.log_path, "/nonexistent/of/this/test/");
    EXPECT_EQ(config.enabled_mask.enabled_mask, 4);
    EXPECT_STREQ(config.multiIpAndPort.shfe2ps_ip_a.data(), "239.1.1.11:21011");
    EXPECT_STREQ(config.multiIpAndPort.shfe2ps_ip_b.data(), "239.1.1.12:21012");
    EXPECT_STREQ(config.multiIpAndPort.shfe4ps_ip_a.data(), "239.1.1.21:21021");
    EXPECT_STREQ(config.multiIpAndPort.shfe4ps_ip_b.data(), "239.1.1.22:21022");
    EXPECT_STREQ(config.multiIpAndPort.ine2ps_ip_a.data(), "239.1.1.31:21031");
    EXPECT_STREQ(config.multiIpAndPort.ine2ps_ip_b.data(), "239.1.1.32:21032");
    EXPECT_STREQ(config.multiIpAndPort.ine4ps_ip_a.data(), "239.1.1.41:21041");
    EXPECT_STREQ(config.multiIpAndPort.ine4ps_ip_b.data(), "239.1.1.42:21042");
    EXPECT_EQ(config.topicID.shfe2ps_topic_id, 1001);
    EXPECT_EQ(config.topicID.shfe4ps_topic_id, 1102);
    EXPECT_EQ(config.topicID.ine2ps_topic_id, -5003);
    EXPECT_EQ(config.topicID.ine4ps_topic_id, 5104);
    EXPECT_EQ(config.snapTcpPort.shfe2ps_snap_port, 33101);
    EXPECT_EQ(config.snapTcpPort.shfe4ps_snap_port, 33102);
    EXPECT_EQ(config.snapTcpPort.ine2ps_snap_port, 33103);
    EXPECT_EQ(config.snapTcpPort.ine4ps_snap_port, 33104);
    EXPECT_EQ(config.maxInstNo.shfe2ps_max_inst_no, 82001);
    EXPECT_EQ(config.maxInstNo.shfe4ps_max_inst_no, 82102);
    EXPECT_EQ(config.maxInstNo.ine2ps_max_inst_no, 86003);
    EXPECT_EQ(config.maxInstNo.ine4ps_max_inst_no, -4);
}

TEST_F(LiteralConfiguration, EveryKeyOfTheBoardReachesItsOwnField) {
    ASSERT_EQ(Load(EVERY_KEY), 0);
    EXPECT_EQ(config.last_tick_channel, 6U);
    EXPECT_EQ(config.detect_interval, 4294967295U);
    EXPECT_EQ(config.board_id, -12);
    EXPECT_STREQ(config.DSTMAC.data(), "01:02:03:04:05:06");
    EXPECT_STREQ(config.DSTIP.data(), "10.20.0.1");
    EXPECT_EQ(config.DSTPORT, 33023);
    EXPECT_STREQ(config.SRCMAC.data(), "0a:0b:0c:0d:0e:0f");
    EXPECT_STREQ(config.SRCIP.data(), "10.20.0.2");
    EXPECT_EQ(config.SRCPORT, 40001);
    EXPECT_EQ(config.TARGETROUTE, 58);
    EXPECT_EQ(config.price_protect_event_mask, 4294967294U);
    EXPECT_EQ(config.error_instno, 301);
    EXPECT_EQ(config.error_case, 2);
    EXPECT_EQ(config.error_limit_parts, 5);
    EXPECT_EQ(config.dma_sleep, 4294967289U);
    EXPECT_EQ(config.wait_snap_timeout, 71);
    EXPECT_EQ(config.init_tcpcnt, 13);
}

TEST_F(LiteralConfiguration, EverySectionOfAChannelReachesItsOwnEntry) {
    ASSERT_EQ(Load(EVERY_KEY), 0);
    for (int channel = 0; channel < 16; ++channel) {
        const U50ChannelInfo& info = config.channelInfo[channel];
        EXPECT_STREQ(info.insts.data(), channel == 1 ? "cu2612,al" : channel == 14 ? "all" : "") << channel;
        EXPECT_EQ(info.options, channel == 1) << channel;
        EXPECT_EQ(info.recvall, channel == 14) << channel;
    }
}

// One flag of the file at a time, so that no two can be exchanged.
TEST_F(LiteralConfiguration, EveryFlagReachesItsOwnField) {
    const std::vector<std::pair<std::string, bool U50ConfigInfo::*>> flags{
        {"crc_mux_check", &U50ConfigInfo::crc_mux_check},
        {"repeat_quote_upload", &U50ConfigInfo::repeat_quote_upload},
        {"debug_flag", &U50ConfigInfo::debug_flag},
        {"model_sel", &U50ConfigInfo::model_sel},
        {"event_model_sel", &U50ConfigInfo::event_model_sel},
        {"shield_price_check", &U50ConfigInfo::shield_price_check},
        {"dma_data_flag", &U50ConfigInfo::dma_data_flag}};
    for (const auto& [key, field] : flags) {
        log.lines.clear();
        ASSERT_EQ(Load("[config]\n" + key + "=1\n"), 0);
        for (const auto& [other, otherField] : flags) {
            EXPECT_EQ(config.*otherField, other == key) << other << " with " << key << "=1";
            if (other == "debug_flag") continue;  // told by no line
            EXPECT_TRUE(log.Has(LOG_DEBUG, other + (other == key ? "[1]" : "[0]"))) << other << " with " << key << "=1";
        }
    }
}

TEST_F(LiteralConfiguration, EveryKeyHasItsLine) {
    ASSERT_EQ(Load(EVERY_KEY), 0);
    EXPECT_THAT(
        log.Texts(),
        ElementsAre("log_level[23]", "cpucore[5]", "bus_id[9] channel_id[0]", "error_instno[301]", "error_case[2]",
                    "error_limit_parts[5]", "dma_sleep[-7]", "enabled_mask[4]", "shfe2ps_ip_a[239.1.1.11:21011]",
                    "shfe2ps_ip_b[239.1.1.12:21012]", "shfe4ps_ip_a[239.1.1.21:21021]",
                    "shfe4ps_ip_b[239.1.1.22:21022]", "ine2ps_ip_a[239.1.1.31:21031]", "ine2ps_ip_b[239.1.1.32:21032]",
                    "ine4ps_ip_a[239.1.1.41:21041]", "ine4ps_ip_b[239.1.1.42:21042]", "shfe2ps_topic_id[1001]",
                    "shfe4ps_topic_id[1102]", "ine2ps_topic_id[-5003]", "ine4ps_topic_id[5104]",
                    "shfe2ps_snap_port[33101]", "shfe4ps_snap_port[33102]", "ine2ps_snap_port[33103]",
                    "ine4ps_snap_port[33104]", "shfe2ps_max_inst_no[82001]", "shfe4ps_max_inst_no[82102]",
                    "ine2ps_max_inst_no[86003]", "ine4ps_max_inst_no[-4]", "last_tick_channel[6]",
                    "detect_interval[4294967295]", "board_id[-12]", "DSTMAC[01:02:03:04:05:06]", "DSTIP[10.20.0.1]",
                    "DSTPORT[33023]", "SRCMAC[0a:0b:0c:0d:0e:0f]", "SRCIP[10.20.0.2]", "SRCPORT[40001]",
                    "TARGETROUTE[58]", "crc_mux_check[1]", "price_protect_event_mask[4294967294]",
                    "repeat_quote_upload[1]", "model_sel[1]", "event_model_sel[1]", "shield_price_check[1]",
                    "dma_data_flag[1]", "wait_snap_timeout = [71]", "init_tcpcnt = [13]"));
}

TEST_F(LiteralConfiguration, LinesHaveTheirLevels) {
    ASSERT_EQ(Load(EVERY_KEY), 0);
    EXPECT_THAT(log.Texts(LOG_WARNING),
                ElementsAre("error_instno[301]", "error_case[2]", "error_limit_parts[5]", "dma_sleep[-7]"));
    EXPECT_THAT(log.Texts(LOG_INFO), ElementsAre("wait_snap_timeout = [71]", "init_tcpcnt = [13]"));
    EXPECT_EQ(log.Texts(LOG_DEBUG).size(), 41U);
    EXPECT_EQ(log.lines.size(), 47U);
}

TEST_F(LiteralConfiguration, EveryDefault) {
    config.cpucore = 9;
    config.board_id = 9;
    config.DSTPORT = config.SRCPORT = config.error_instno = config.error_limit_parts = 9;
    config.TARGETROUTE = 9;
    config.dma_sleep = config.last_tick_channel = config.price_protect_event_mask = 9;
    config.log_path = "x";
    config.DSTMAC.CopyFrom("x");
    config.DSTIP.CopyFrom("x");
    config.SRCMAC.CopyFrom("x");
    config.SRCIP.CopyFrom("x");
    for (bool U50ConfigInfo::*flag :
         {&U50ConfigInfo::crc_mux_check, &U50ConfigInfo::repeat_quote_upload, &U50ConfigInfo::debug_flag,
          &U50ConfigInfo::model_sel, &U50ConfigInfo::event_model_sel, &U50ConfigInfo::shield_price_check,
          &U50ConfigInfo::dma_data_flag}) {
        config.*flag = true;
    }
    ASSERT_EQ(Load("[other]\nx=1\n"), 0);
    EXPECT_EQ(config.cpucore, -1);
    EXPECT_EQ(config.board_id, 0);
    EXPECT_EQ(config.DSTPORT, 0);
    EXPECT_EQ(config.SRCPORT, 0);
    EXPECT_EQ(config.TARGETROUTE, 0);
    EXPECT_EQ(config.error_instno, 0);
    EXPECT_EQ(config.error_case, 65535);
    EXPECT_EQ(config.error_limit_parts, 4);
    EXPECT_EQ(config.dma_sleep, 0U);
    EXPECT_EQ(config.last_tick_channel, 0U);
    EXPECT_EQ(config.price_protect_event_mask, 0x0C0C0C0CU);
    EXPECT_EQ(config.log_path, "");
    for (const CMACType* text : {&config.DSTMAC, &config.SRCMAC}) EXPECT_STREQ(text->data(), "");
    for (const CIPType* text : {&config.DSTIP, &config.SRCIP}) EXPECT_STREQ(text->data(), "");
    EXPECT_FALSE(config.crc_mux_check || config.repeat_quote_upload || config.debug_flag || config.model_sel ||
                 config.event_model_sel || config.shield_price_check || config.dma_data_flag);
}

TEST_F(LiteralConfiguration, KeysAreReadFromTheirOwnSection) {
    std::string text(EVERY_KEY);
    text.replace(text.find("[config]"), 8, "[channel2]");
    ASSERT_EQ(Load(text), 0);
    EXPECT_EQ(config.bus_id, 0);
    EXPECT_EQ(config.init_tcpcnt, 3);
    EXPECT_EQ(config.board_id, 0);
}

struct DeviceText {
    const char* text;
    int32_t bus;
    int32_t channel;
};

/// From 4 and 0: what is not there stays.
constexpr DeviceText DEVICES[] = {
    {"xilinx7:5", 7, 5}, {"xilinx7", 7, 0},  {"xilinx7:", 7, 0},    {"xilinx7;5", 7, 0},   {"xilinx7 :5", 7, 0},
    {"xilinx7:x", 7, 0}, {"xilinx:5", 4, 0}, {"xilinxa:5", 4, 0},   {"Xilinx7:5", 4, 0},   {"axilinx7:5", 4, 0},
    {"7:5", 4, 0},       {"xilinx", 4, 0},   {"xilinx 7: 5", 7, 5}, {"xilinx-3:1", -3, 1}, {"xilinx07:05x", 7, 5}};

TEST_F(LiteralConfiguration, DeviceTextsAreReadUpToWhatDoesNotFit) {
    for (const DeviceText& device : DEVICES) {
        config.bus_id = 4;
        config.channel_id = 0;
        ASSERT_EQ(Load(std::string("[config]\ndevice=") + device.text + "\n"), 0);
        EXPECT_EQ(config.bus_id, device.bus) << device.text;
        EXPECT_EQ(config.channel_id, device.channel) << device.text;
    }
}

TEST_F(LiteralConfiguration, FileWithoutADeviceIsOfTheFirstBoardWhateverTheStartBefore) {
    config.bus_id = 7;
    config.channel_id = 3;
    ASSERT_EQ(Load("[config]\ncpucore=1\n"), 0);
    EXPECT_EQ(config.bus_id, 0);
    EXPECT_EQ(config.channel_id, 0);
}

TEST_F(LiteralConfiguration, FileThatCannotBeReadIsToldOnStandardOutputAtOnce) {
    api->m_configFileName.UnSafeCopyFrom("/nonexistent/of/this/test.ini");
    int32_t result = 0;
    EXPECT_EQ(WrittenAtOnce([&] { result = api->_ReadConfig(); }),
              "ReadConfig is /nonexistent/of/this/test.ini failed \n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(WrittenAtOnce([&] { result = api->Init(); }),
              "ReadConfig is /nonexistent/of/this/test.ini failed \nInit, _ReadConfig failed \n");
    EXPECT_EQ(result, -2);
}

TEST_F(LiteralConfiguration, DeviceWithoutAColonLeavesTheChannelOfTheStartBefore) {
    for (const char* text : {"xilinx7", "xilinx7:", "xilinx7;5", "xilinx", "any"}) {
        config.channel_id = 3;
        ASSERT_EQ(Load(std::string("[config]\ndevice=") + text + "\nshfe2ps_topic_id=7\n"), 0);
        EXPECT_EQ(config.channel_id, 3) << text;
        EXPECT_EQ(config.topicID.shfe2ps_topic_id, 0) << text;  // of another channel than 0
    }
}

TEST_F(LiteralConfiguration, LogGoesWhereTheFileSays) {
    const TemporaryDirectory directory;
    CCommonLog::GetInstance().SetSink(nullptr);
    ASSERT_EQ(Load("[config]\nlog_path=" + directory.Path().string() + "/front_\n"), 0);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
        names.push_back(entry.path().filename().string().substr(0, 19));
    }
    EXPECT_THAT(names, ElementsAre("front_vexa_shfe_md_"));
}
// ---- the record as it is made ---------------------------------------------------------------------------------------

/// A record made where something else was before.
template <typename Record>
class Made {
public:
    Made() : m_bytes(new unsigned char[sizeof(Record)]) {
        std::memset(m_bytes.get(), 0xA5, sizeof(Record));
        m_record = new (m_bytes.get()) Record;
    }
    ~Made() { m_record->~Record(); }
    Made(const Made&) = delete;
    Made& operator=(const Made&) = delete;
    const Record& operator*() const { return *m_record; }
    const Record* operator->() const { return m_record; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    Record* m_record;
};

TEST(LiteralRecords, ConfigurationIsMadeWithItsNumbers) {
    const Made<U50ConfigInfo> config;
    EXPECT_EQ(config->bus_id, 0);
    EXPECT_EQ(config->channel_id, 0);
    EXPECT_EQ(config->cpucore, -1);
    EXPECT_EQ(config->price_protect_event_mask, 4294967295U);
    EXPECT_EQ(config->wait_snap_timeout, 600);
    EXPECT_EQ(config->init_tcpcnt, 3);
    EXPECT_EQ(config->error_instno, 0);
    EXPECT_EQ(config->error_case, 0);
    EXPECT_EQ(config->error_limit_parts, 0);
    EXPECT_EQ(config->dma_sleep, 0U);
    EXPECT_EQ(config->log_path, "");
    EXPECT_FALSE(config->repeat_quote_upload || config->model_sel || config->event_model_sel ||
                 config->shield_price_check || config->dma_data_flag);
    for (const uint16_t port : {config->snapTcpPort.shfe2ps_snap_port, config->snapTcpPort.shfe4ps_snap_port,
                                config->snapTcpPort.ine2ps_snap_port, config->snapTcpPort.ine4ps_snap_port}) {
        EXPECT_EQ(port, 0);
    }
    for (const int32_t number : {config->maxInstNo.shfe2ps_max_inst_no, config->maxInstNo.shfe4ps_max_inst_no,
                                 config->maxInstNo.ine2ps_max_inst_no, config->maxInstNo.ine4ps_max_inst_no}) {
        EXPECT_EQ(number, 0);
    }
}

TEST(LiteralRecords, ConfigurationIsMadeWithEmptyTexts) {
    const Made<U50ConfigInfo> config;
    const U50MultiIpAndPort& groups = config->multiIpAndPort;
    for (const CAddressType* text :
         {&groups.shfe2ps_ip_a, &groups.shfe2ps_ip_b, &groups.shfe4ps_ip_a, &groups.shfe4ps_ip_b, &groups.ine2ps_ip_a,
          &groups.ine2ps_ip_b, &groups.ine4ps_ip_a, &groups.ine4ps_ip_b, &config->DSTMAC, &config->DSTIP,
          &config->SRCMAC, &config->SRCIP}) {
        EXPECT_STREQ(text->data(), "");
    }
    ASSERT_EQ(std::size(config->channelInfo), 16U);
    for (const U50ChannelInfo& channel : config->channelInfo) {
        EXPECT_STREQ(channel.insts.data(), "");
        EXPECT_FALSE(channel.options || channel.recvall);
    }
}

TEST(LiteralRecords, CompanionsAreMadeEmpty) {
    const Made<U50InstCount> counts;
    EXPECT_EQ(
        counts->shfe_inst_cnt_2ps | counts->shfe_inst_cnt_4ps | counts->ine_inst_cnt_2ps | counts->ine_inst_cnt_4ps,
        0U);
    const Made<U50DstPort> ports;
    EXPECT_EQ(ports->port_shfe_2ps | ports->port_shfe_4ps | ports->port_ine_2ps | ports->port_ine_4ps, 0);
    const Made<U50MdPktCnt> packets;
    EXPECT_EQ(packets->shfe_2ps_pkts | packets->en_2ps_pkts | packets->shfe_4ps_pkts | packets->en_4ps_pkts |
                  packets->shfe_event_pkts,
              0U);
    const Made<U50UserData> user;
    EXPECT_EQ(static_cast<int>(user->userDataType), 0);
    EXPECT_EQ(user->lpMdApi, nullptr);
    EXPECT_EQ(user->lpMdData, nullptr);
    EXPECT_FALSE(user->isQuote);
}

}  // namespace

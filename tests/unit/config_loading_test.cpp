#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "testing/LogCapture.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/TestableApi.h"

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

class ConfigLoading : public testing::Test {
protected:
    int32_t Load(const std::string& text) {
        const TemporaryFile file(text);
        api->m_configFileName.UnSafeCopyFrom(file.Path().c_str());
        return api->_ReadConfig();
    }
    U50ConfigInfo& Config() { return api->m_u50ConfigInfo; }

    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(ConfigLoading, EmptyFileGivesEveryDefault) {
    ASSERT_EQ(Load(""), 0);
    EXPECT_EQ(Config().log_level, 15);
    EXPECT_EQ(Config().cpucore, -1);
    EXPECT_EQ(Config().bus_id, 0);
    EXPECT_EQ(Config().channel_id, 0);
    EXPECT_EQ(Config().enabled_mask.enabled_mask, 1);
    EXPECT_EQ(Config().price_protect_event_mask, 202116108U);
    EXPECT_EQ(Config().error_case, 65535);
    EXPECT_EQ(Config().error_limit_parts, 4);
    EXPECT_EQ(Config().detect_interval, 4294967295U);
    EXPECT_EQ(Config().wait_snap_timeout, 600);
    EXPECT_EQ(Config().init_tcpcnt, 3);
    EXPECT_FALSE(Config().crc_mux_check || Config().debug_flag || Config().dma_data_flag);
}

TEST_F(ConfigLoading, EmptyFileLogsEveryDefaultInOrder) {
    ASSERT_EQ(Load(""), 0);
    EXPECT_THAT(
        log.Texts(),
        ElementsAre("log_level[15]", "cpucore[-1]", "bus_id[0] channel_id[0]", "enabled_mask[1]",
                    "shfe2ps_ip_a[239.3.42.71:21000]", "shfe2ps_ip_b[239.4.42.72:21000]",
                    "shfe4ps_ip_a[239.3.2.3:21101]", "shfe4ps_ip_b[239.4.2.4:21101]", "ine2ps_ip_a[239.3.52.71:25000]",
                    "ine2ps_ip_b[239.4.52.72:25000]", "ine4ps_ip_a[239.3.151.91:25101]",
                    "ine4ps_ip_b[239.4.151.92:25101]", "shfe2ps_topic_id[1000]", "shfe4ps_topic_id[1101]",
                    "ine2ps_topic_id[5000]", "ine4ps_topic_id[5101]", "shfe2ps_snap_port[33022]",
                    "shfe4ps_snap_port[22000]", "ine2ps_snap_port[33022]", "ine4ps_snap_port[22000]",
                    "shfe2ps_max_inst_no[81000]", "shfe4ps_max_inst_no[81101]", "ine2ps_max_inst_no[85000]",
                    "ine4ps_max_inst_no[85101]", "last_tick_channel[0]", "detect_interval[4294967295]", "board_id[0]",
                    "DSTMAC[]", "DSTIP[]", "DSTPORT[0]", "SRCMAC[]", "SRCIP[]", "SRCPORT[0]", "TARGETROUTE[0]",
                    "crc_mux_check[0]", "price_protect_event_mask[202116108]", "repeat_quote_upload[0]", "model_sel[0]",
                    "event_model_sel[0]", "shield_price_check[0]", "dma_data_flag[0]", "wait_snap_timeout = [600]",
                    "init_tcpcnt = [3]"));
    for (const LogCapture::Line& line : log.lines) EXPECT_EQ(line.Function(), "_ReadConfig");
}

TEST_F(ConfigLoading, NonManagingChannelReadsNothingBehindTheDevice) {
    Config().topicID.shfe2ps_topic_id = 6;  // of a start before
    Config().channelInfo[2].options = true;
    ASSERT_EQ(Load("[config]\ndevice=xilinx1:2\nshfe2ps_topic_id=7\nwait_snap_timeout=5\n[channel2]\ninsts=cu\n"), 0);
    EXPECT_EQ(Config().bus_id, 1);
    EXPECT_EQ(Config().channel_id, 2);
    EXPECT_EQ(Config().topicID.shfe2ps_topic_id, 6);
    EXPECT_TRUE(Config().channelInfo[2].options);
    EXPECT_STREQ(Config().channelInfo[2].insts.data(), "");
    EXPECT_EQ(Config().wait_snap_timeout, 600);
    EXPECT_THAT(log.Texts(), ElementsAre("log_level[15]", "cpucore[-1]", "bus_id[1] channel_id[2]"));
}

TEST_F(ConfigLoading, FeedSwitchesTakeTheExactWordEnabled) {
    Load("[config]\nshfe2ps=disabled\nine2ps=enabled\n");
    EXPECT_EQ(Config().enabled_mask.enabled_mask, 4);
    Load("[config]\nshfe2ps=enabled\nine2ps=enabled\n");
    EXPECT_EQ(Config().enabled_mask.enabled_mask, 5);
    Load("[config]\nshfe2ps=Enabled\nine2ps=1\n");
    EXPECT_EQ(Config().enabled_mask.enabled_mask, 0);
}

TEST_F(ConfigLoading, The4psFeedsCannotBeEnabled) {
    Load("[config]\nshfe4ps=enabled\nine4ps=enabled\n");
    EXPECT_EQ(Config().enabled_mask.enabled_mask, 1);
}

TEST_F(ConfigLoading, LastTickChannelKeepsItsLow16Bits) {
    Load("[config]\nlast_tick_channel=65537\n");
    EXPECT_EQ(Config().last_tick_channel, 1U);
}

TEST_F(ConfigLoading, ErrorLimitPartsAreStoredIn16Bits) {
    Load("[config]\nerror_limit_parts=65540\n");
    EXPECT_EQ(Config().error_limit_parts, 4);
}

TEST_F(ConfigLoading, OnlyTheValueOneTurnsAFlagOn) {
    Load("[config]\ndebug_flag=2\ncrc_mux_check=65537\n");
    EXPECT_FALSE(Config().debug_flag);
    EXPECT_TRUE(Config().crc_mux_check);  // cut to 16 bits it is 1
    Load("[config]\ndebug_flag=1\n");
    EXPECT_TRUE(Config().debug_flag);
}

TEST_F(ConfigLoading, DebugModeTellsItsFaultInjection) {
    Load("[config]\ndebug_flag=1\nerror_instno=3\nerror_case=1\nerror_limit_parts=2\ndma_sleep=7\n");
    EXPECT_THAT(log.Texts(LOG_WARNING),
                ElementsAre("error_instno[3]", "error_case[1]", "error_limit_parts[2]", "dma_sleep[7]"));
}

TEST_F(ConfigLoading, ChannelSectionsGiveListAndFlags) {
    Load("[channel3]\ninsts=all\noptions=recv\n[channel4]\ninsts=ALL\noptions=Recv\n[channel15]\ninsts=cu,al2612\n");
    EXPECT_TRUE(Config().channelInfo[3].recvall);
    EXPECT_TRUE(Config().channelInfo[3].options);
    EXPECT_FALSE(Config().channelInfo[4].recvall);
    EXPECT_FALSE(Config().channelInfo[4].options);
    EXPECT_STREQ(Config().channelInfo[15].insts.data(), "cu,al2612");
}

TEST_F(ConfigLoading, Channel16IsIgnored) {
    const U50ConfigInfo before = Config();
    ASSERT_EQ(Load("[channel15]\ninsts=cu\n[channel16]\ninsts=all\noptions=recv\n"), 0);
    for (int channel = 0; channel < 16; ++channel) {
        const U50ChannelInfo& info = Config().channelInfo[channel];
        EXPECT_STREQ(info.insts.data(), channel == 15 ? "cu" : "") << channel;
        EXPECT_FALSE(info.options || info.recvall) << channel;
    }
    EXPECT_EQ(Config().wait_snap_timeout, before.wait_snap_timeout);  // lies behind the sixteenth
}

TEST_F(ConfigLoading, TextsAreCutToTheirFields) {
    Load("[config]\nSRCIP=" + std::string(300, '1') + "\n[channel0]\ninsts=" + std::string(5000, 'a') + "\n");
    EXPECT_EQ(Config().SRCIP.Length(), 255U);
    EXPECT_EQ(Config().channelInfo[0].insts.Length(), 4095U);
}

TEST_F(ConfigLoading, DeviceWithoutNumbersLeavesThemAsTheyWere) {
    Config().bus_id = 9;
    Config().channel_id = 0;
    Load("[config]\ndevice=somecard\n");
    EXPECT_EQ(Config().bus_id, 9);
    Load("[config]\ndevice=xilinx7\n");
    EXPECT_EQ(Config().bus_id, 7);
    EXPECT_EQ(Config().channel_id, 0);
    Load("[config]\ndevice=xilinx99999999999999999999:1\n");
    EXPECT_EQ(Config().channel_id, 1);
}

TEST_F(ConfigLoading, MissingFileIsToldOnStandardOutputAndLeavesTheRecord) {
    ASSERT_EQ(Load("[config]\nlog_level=7\ncpucore=5\nSRCPORT=9\ninit_tcpcnt=11\n"), 0);
    log.lines.clear();
    api->m_configFileName.CopyFrom("/nonexistent/session.ini");
    testing::internal::CaptureStdout();
    EXPECT_EQ(api->_ReadConfig(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ReadConfig is /nonexistent/session.ini failed \n");
    EXPECT_TRUE(log.lines.empty());
    EXPECT_EQ(Config().log_level, 7);
    EXPECT_EQ(Config().cpucore, 5);
    EXPECT_EQ(Config().SRCPORT, 9);
    EXPECT_EQ(Config().init_tcpcnt, 11);
}

TEST_F(ConfigLoading, DirectoryCannotBeOpened) {
    const TemporaryDirectory directory;
    api->m_configFileName.UnSafeCopyFrom(directory.Path().c_str());
    testing::internal::CaptureStdout();
    EXPECT_EQ(api->_ReadConfig(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ReadConfig is " + directory.Path().string() + " failed \n");
}

TEST_F(ConfigLoading, FormatCharactersInAValueStayText) {
    Load("[config]\nSRCIP=%n%s%d\n");
    EXPECT_THAT(log.Texts(), Contains("SRCIP[%n%s%d]"));
}

}  // namespace

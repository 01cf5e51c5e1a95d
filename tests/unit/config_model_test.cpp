#include <gtest/gtest.h>

#include "common/FpgaStructCommon.h"

TEST(ConfigModel, FreshRecordHasItsConstructionValues) {
    const U50ConfigInfo config;
    EXPECT_EQ(config.cpucore, -1);
    EXPECT_EQ(config.wait_snap_timeout, 600);
    EXPECT_EQ(config.init_tcpcnt, 3);
    EXPECT_EQ(config.price_protect_event_mask, 4294967295U);
    EXPECT_EQ(config.multiIpAndPort.shfe2ps_ip_a.Length(), 0U);
    EXPECT_EQ(config.multiIpAndPort.ine4ps_ip_b.Length(), 0U);
    EXPECT_EQ(config.snapTcpPort.shfe2ps_snap_port, 0);
    EXPECT_EQ(config.DSTMAC.Length(), 0U);
}

TEST(ConfigModel, HasSixteenUserChannels) {
    const U50ConfigInfo config;
    EXPECT_EQ(std::size(config.channelInfo), 16U);
    for (const U50ChannelInfo& channel : config.channelInfo) {
        EXPECT_EQ(channel.insts.Length(), 0U);
        EXPECT_FALSE(channel.options);
        EXPECT_FALSE(channel.recvall);
    }
}

TEST(ConfigModel, MaskBitsStandInTheOrderOfTheFeeds) {
    UEnabledMask mask{};
    mask.shfe2ps = 1;
    EXPECT_EQ(mask.enabled_mask, 1);
    mask.enabled_mask = 0;
    mask.shfe4ps = 1;
    EXPECT_EQ(mask.enabled_mask, 2);
    mask.enabled_mask = 0;
    mask.ine2ps = 1;
    EXPECT_EQ(mask.enabled_mask, 4);
    mask.enabled_mask = 0;
    mask.ine4ps = 1;
    EXPECT_EQ(mask.enabled_mask, 8);
}

/// All that differs between the four feeds, in one table, so that one loop walks them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "common/FpgaStructCommon.h"
#include "common/RegisterMap.h"

struct FeedTraits {
    EMDQPDataType feed;
    const char* name;     ///< its keys begin with it
    const char* lines;    ///< of its log lines
    int32_t capacity;     ///< slots of its instrument table
    uint64_t nearlyFull;  ///< instruments beyond which the table is told to fill up

    // Where the records keep what is the feed's.
    CAddressType U50MultiIpAndPort::*lineA;
    CAddressType U50MultiIpAndPort::*lineB;
    int32_t U50TopicID::*topicId;
    uint16_t U50SnapTcpPort::*snapPort;
    int32_t U50MaxInstNo::*maxInstNo;
    uint64_t U50InstCount::*instCount;
    uint16_t U50DstPort::*dstPort;

    struct Defaults {
        const char* lineA;
        const char* lineB;
        int32_t topicId;
        uint16_t snapPort;
        int32_t maxInstNo;
    } defaults;

    struct Registers {
        reg::TableRegisters table;
        uint32_t instCount;
        uint32_t snapshotPacketNo;
        uint32_t maxInstNo;
        reg::GroupRegisters lineA;
        reg::GroupRegisters lineB;
    } registers;
};

/// In the order of EMDQPDataType.
inline constexpr std::array<FeedTraits, FEED_COUNT> FEEDS{{
    {.feed = SHFE_2PS,
     .name = "shfe2ps",
     .lines = "2ps",
     .capacity = SHFE_INST_CAPACITY,
     .nearlyFull = 12800,
     .lineA = &U50MultiIpAndPort::shfe2ps_ip_a,
     .lineB = &U50MultiIpAndPort::shfe2ps_ip_b,
     .topicId = &U50TopicID::shfe2ps_topic_id,
     .snapPort = &U50SnapTcpPort::shfe2ps_snap_port,
     .maxInstNo = &U50MaxInstNo::shfe2ps_max_inst_no,
     .instCount = &U50InstCount::shfe_inst_cnt_2ps,
     .dstPort = &U50DstPort::port_shfe_2ps,
     .defaults = {"239.3.42.71:21000", "239.4.42.72:21000", 1000, 33022, 81000},
     .registers = {.table = {0x11000, 0x11001, 0x11002, 0x11003},
                   .instCount = reg::SHFE_INST_COUNT,
                   .snapshotPacketNo = 0x11110,
                   .maxInstNo = reg::SHFE_2PS_MAX_INST_NO,
                   .lineA = {0x11100, 0x11102},
                   .lineB = {0x11104, 0x11106}}},
    {.feed = SHFE_4PS,
     .name = "shfe4ps",
     .lines = "4ps",
     .capacity = SHFE_INST_CAPACITY,
     .nearlyFull = 12800,
     .lineA = &U50MultiIpAndPort::shfe4ps_ip_a,
     .lineB = &U50MultiIpAndPort::shfe4ps_ip_b,
     .topicId = &U50TopicID::shfe4ps_topic_id,
     .snapPort = &U50SnapTcpPort::shfe4ps_snap_port,
     .maxInstNo = &U50MaxInstNo::shfe4ps_max_inst_no,
     .instCount = &U50InstCount::shfe_inst_cnt_4ps,
     .dstPort = &U50DstPort::port_shfe_4ps,
     .defaults = {"239.3.2.3:21101", "239.4.2.4:21101", 1101, 22000, 81101},
     .registers = {.table = {0x21000, 0x21001, 0x21002, 0x21003},
                   .instCount = reg::SHFE_INST_COUNT,
                   .snapshotPacketNo = 0x21110,
                   .maxInstNo = reg::SHFE_4PS_MAX_INST_NO,
                   .lineA = {0x21100, 0x21102},
                   .lineB = {0x21104, 0x21106}}},
    {.feed = INE_2PS,
     .name = "ine2ps",
     .lines = "2ps",
     .capacity = INE_INST_CAPACITY,
     .nearlyFull = 3200,
     .lineA = &U50MultiIpAndPort::ine2ps_ip_a,
     .lineB = &U50MultiIpAndPort::ine2ps_ip_b,
     .topicId = &U50TopicID::ine2ps_topic_id,
     .snapPort = &U50SnapTcpPort::ine2ps_snap_port,
     .maxInstNo = &U50MaxInstNo::ine2ps_max_inst_no,
     .instCount = &U50InstCount::ine_inst_cnt_2ps,
     .dstPort = &U50DstPort::port_ine_2ps,
     .defaults = {"239.3.52.71:25000", "239.4.52.72:25000", 5000, 33022, 85000},
     .registers = {.table = {0x11004, 0x11005, 0x11006, 0x11007},
                   .instCount = reg::INE_INST_COUNT,
                   .snapshotPacketNo = 0x11111,
                   .maxInstNo = reg::INE_2PS_MAX_INST_NO,
                   .lineA = {0x11101, 0x11103},
                   .lineB = {0x11105, 0x11107}}},
    {.feed = INE_4PS,
     .name = "ine4ps",
     .lines = "4ps",
     .capacity = INE_INST_CAPACITY,
     .nearlyFull = 3200,
     .lineA = &U50MultiIpAndPort::ine4ps_ip_a,
     .lineB = &U50MultiIpAndPort::ine4ps_ip_b,
     .topicId = &U50TopicID::ine4ps_topic_id,
     .snapPort = &U50SnapTcpPort::ine4ps_snap_port,
     .maxInstNo = &U50MaxInstNo::ine4ps_max_inst_no,
     .instCount = &U50InstCount::ine_inst_cnt_4ps,
     .dstPort = &U50DstPort::port_ine_4ps,
     .defaults = {"239.3.151.91:25101", "239.4.151.92:25101", 5101, 22000, 85101},
     .registers = {.table = {0x21004, 0x21005, 0x21006, 0x21007},
                   .instCount = reg::INE_INST_COUNT,
                   .snapshotPacketNo = 0x21111,
                   .maxInstNo = reg::INE_4PS_MAX_INST_NO,
                   .lineA = {0x21101, 0x21103},
                   .lineB = {0x21105, 0x21107}}},
}};

inline constexpr std::array<EMDQPDataType, FEED_COUNT> ALL_FEEDS{SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS};

/// Of arrays that hold one value a feed.
constexpr std::size_t IndexOf(EMDQPDataType feed) { return static_cast<std::size_t>(feed); }

constexpr const FeedTraits& TraitsOf(EMDQPDataType feed) { return FEEDS[IndexOf(feed)]; }

constexpr bool IsShfe(EMDQPDataType feed) { return feed == SHFE_2PS || feed == SHFE_4PS; }

constexpr uint8_t FeedBit(EMDQPDataType feed) { return static_cast<uint8_t>(1U << feed); }

inline bool HasFeed(const UEnabledMask& mask, EMDQPDataType feed) { return (mask.enabled_mask & FeedBit(feed)) != 0; }

inline SInstTableType* FeedTable(U50InstTable& tables, EMDQPDataType feed) {
    switch (feed) {
        case SHFE_2PS: return tables.shfe2psInstTable;
        case SHFE_4PS: return tables.shfe4psInstTable;
        case INE_2PS: return tables.ine2psInstTable;
        case INE_4PS: return tables.ine4psInstTable;
    }
    return nullptr;
}

/// The feed whose table it is; nothing for any other address.
inline std::optional<EMDQPDataType> FeedOfTable(U50InstTable& tables, const SInstTableType* table) {
    for (const EMDQPDataType feed : ALL_FEEDS) {
        if (FeedTable(tables, feed) == table) return feed;
    }
    return std::nullopt;
}

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

// The records name the members of all feeds after one pattern.
#define FEED_MEMBERS(exchange, lines)                                                             \
    &U50MultiIpAndPort::exchange##lines##_ip_a, &U50MultiIpAndPort::exchange##lines##_ip_b,       \
        &U50TopicID::exchange##lines##_topic_id, &U50SnapTcpPort::exchange##lines##_snap_port,    \
        &U50MaxInstNo::exchange##lines##_max_inst_no, &U50InstCount::exchange##_inst_cnt_##lines, \
        &U50DstPort::port_##exchange##_##lines

/// In the order of EMDQPDataType.
inline constexpr std::array<FeedTraits, FEED_COUNT> FEEDS{{
    {SHFE_2PS,
     "shfe2ps",
     "2ps",
     SHFE_INST_CAPACITY,
     12800,
     FEED_MEMBERS(shfe, 2ps),
     {"239.3.42.71:21000", "239.4.42.72:21000", 1000, 33022, 81000},
     {{0x11000, 0x11001, 0x11002, 0x11003},
      reg::SHFE_INST_COUNT,
      0x11110,
      reg::SHFE_2PS_MAX_INST_NO,
      {0x11100, 0x11102},
      {0x11104, 0x11106}}},
    {SHFE_4PS,
     "shfe4ps",
     "4ps",
     SHFE_INST_CAPACITY,
     12800,
     FEED_MEMBERS(shfe, 4ps),
     {"239.3.2.3:21101", "239.4.2.4:21101", 1101, 22000, 81101},
     {{0x21000, 0x21001, 0x21002, 0x21003},
      reg::SHFE_INST_COUNT,
      0x21110,
      reg::SHFE_4PS_MAX_INST_NO,
      {0x21100, 0x21102},
      {0x21104, 0x21106}}},
    {INE_2PS,
     "ine2ps",
     "2ps",
     INE_INST_CAPACITY,
     3200,
     FEED_MEMBERS(ine, 2ps),
     {"239.3.52.71:25000", "239.4.52.72:25000", 5000, 33022, 85000},
     {{0x11004, 0x11005, 0x11006, 0x11007},
      reg::INE_INST_COUNT,
      0x11111,
      reg::INE_2PS_MAX_INST_NO,
      {0x11101, 0x11103},
      {0x11105, 0x11107}}},
    {INE_4PS,
     "ine4ps",
     "4ps",
     INE_INST_CAPACITY,
     3200,
     FEED_MEMBERS(ine, 4ps),
     {"239.3.151.91:25101", "239.4.151.92:25101", 5101, 22000, 85101},
     {{0x21004, 0x21005, 0x21006, 0x21007},
      reg::INE_INST_COUNT,
      0x21111,
      reg::INE_4PS_MAX_INST_NO,
      {0x21101, 0x21103},
      {0x21105, 0x21107}}},
}};
#undef FEED_MEMBERS

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

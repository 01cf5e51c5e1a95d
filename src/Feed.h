/// The records name each feed's member; this table lets one loop walk the four feeds.
#pragma once

#include <array>
#include <optional>

#include "common/FpgaStructCommon.h"
#include "src/RegisterMap.h"

struct FeedMembers {
    const char* name;
    uint16_t U50DstPort::*dstPort;
    uint64_t U50InstCount::*instCount;
    int32_t U50TopicID::*topicId;
    uint16_t U50SnapTcpPort::*snapPort;
    int32_t U50MaxInstNo::*maxInstNo;
    CAddressType U50MultiIpAndPort::*lineA;
    CAddressType U50MultiIpAndPort::*lineB;
};

/// In the order of EMDQPDataType.
inline constexpr std::array<FeedMembers, FEED_COUNT> FEED_MEMBERS{{
    {"shfe2ps", &U50DstPort::port_shfe_2ps, &U50InstCount::shfe_inst_cnt_2ps, &U50TopicID::shfe2ps_topic_id,
     &U50SnapTcpPort::shfe2ps_snap_port, &U50MaxInstNo::shfe2ps_max_inst_no, &U50MultiIpAndPort::shfe2ps_ip_a,
     &U50MultiIpAndPort::shfe2ps_ip_b},
    {"shfe4ps", &U50DstPort::port_shfe_4ps, &U50InstCount::shfe_inst_cnt_4ps, &U50TopicID::shfe4ps_topic_id,
     &U50SnapTcpPort::shfe4ps_snap_port, &U50MaxInstNo::shfe4ps_max_inst_no, &U50MultiIpAndPort::shfe4ps_ip_a,
     &U50MultiIpAndPort::shfe4ps_ip_b},
    {"ine2ps", &U50DstPort::port_ine_2ps, &U50InstCount::ine_inst_cnt_2ps, &U50TopicID::ine2ps_topic_id,
     &U50SnapTcpPort::ine2ps_snap_port, &U50MaxInstNo::ine2ps_max_inst_no, &U50MultiIpAndPort::ine2ps_ip_a,
     &U50MultiIpAndPort::ine2ps_ip_b},
    {"ine4ps", &U50DstPort::port_ine_4ps, &U50InstCount::ine_inst_cnt_4ps, &U50TopicID::ine4ps_topic_id,
     &U50SnapTcpPort::ine4ps_snap_port, &U50MaxInstNo::ine4ps_max_inst_no, &U50MultiIpAndPort::ine4ps_ip_a,
     &U50MultiIpAndPort::ine4ps_ip_b},
}};

inline constexpr std::array<EMDQPDataType, FEED_COUNT> ALL_FEEDS{SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS};

constexpr uint8_t FeedBit(EMDQPDataType feed) { return static_cast<uint8_t>(1U << feed); }

inline bool HasFeed(const UEnabledMask& mask, EMDQPDataType feed) { return (mask.enabled_mask & FeedBit(feed)) != 0; }

constexpr int32_t FeedCapacity(EMDQPDataType feed) { return reg::FEEDS[static_cast<std::size_t>(feed)].capacity; }

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
inline std::optional<EMDQPDataType> FeedOf(U50InstTable& tables, const SInstTableType* table) {
    for (const EMDQPDataType feed : ALL_FEEDS) {
        if (FeedTable(tables, feed) == table) return feed;
    }
    return std::nullopt;
}

/// The board's registers a second time, as numbers: what the rules hold the library against shares nothing with it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/FpgaStructCommon.h"

namespace simulation::board {

constexpr uint32_t BUILD_VERSION = 0x4;
constexpr uint32_t BUILD_DATE = 0x5;
constexpr uint32_t BRING_UP = 0x10;
constexpr uint32_t MODEL = 0x100;
constexpr uint32_t EVENT_MODEL = 0x101;
constexpr uint32_t FIRMWARE = 0x101;  ///< read
constexpr uint32_t SOFTWARE = 0x102;
constexpr uint32_t VERDICT = 0x103;
constexpr uint32_t SNAPSHOT = 0x1000;
constexpr uint32_t CHECKSUM = 0x1001;
constexpr uint32_t IDENTITY[] = {0x1002, 0x1003, 0x1004};
constexpr uint32_t LAST_TICK = 0x1009;
constexpr uint32_t REPEAT_QUOTE = 0x1010;
constexpr uint32_t EVENTS = 0x1207;
/// Packet counters in the order in which they are sampled: SHFE 2ps, INE 2ps, SHFE 4ps, INE 4ps.
constexpr uint32_t PACKETS[] = {0x1220, 0x1230, 0x1240, 0x1250};
constexpr uint32_t PRICE_MASK = 0x1F11;
constexpr uint32_t SHFE_COUNT = 0x1F14;
constexpr uint32_t INE_COUNT = 0x1F15;
constexpr uint32_t MEMORY_STATUS = 0x2032;
constexpr uint32_t LAST_UPDATE = 0x2040;  ///< one for each feed
/// Read, in this order, when a loss has been told.
constexpr uint32_t DIAGNOSTICS[] = {0x2030, 0x2031, 0x2032, 0x12015, 0x1201B, 0x22015, 0x2201B};
constexpr uint32_t ROUTE = 0x3000;
constexpr uint32_t SESSIONS = 4;
constexpr uint32_t SESSION_STEP = 0x10;
constexpr uint32_t DST_MAC_HIGH = 0x3001;
constexpr uint32_t DST_MAC_LOW = 0x3002;
constexpr uint32_t DST_IP = 0x3003;
constexpr uint32_t DST_PORT = 0x3004;
constexpr uint32_t SRC_MAC_HIGH = 0x3005;
constexpr uint32_t SRC_MAC_LOW = 0x3006;
constexpr uint32_t SRC_IP = 0x3007;
constexpr uint32_t SRC_PORT = 0x3008;
constexpr uint32_t INTERVAL_2PS = 0x11112;
constexpr uint32_t INTERVAL_4PS = 0x21112;
constexpr uint32_t ENGINE_2PS = 0x11120;
constexpr uint32_t ENGINE_4PS = 0x21120;

// Values.
constexpr uint32_t START = 1;  ///< of a bring-up, or an engine
constexpr uint32_t SNAPSHOT_OPEN = 15;
constexpr uint32_t SNAPSHOT_CLOSED = 0;
constexpr uint32_t CLOSE_DATA = 1;  ///< of a table's port
constexpr uint32_t CLOSE_ADDRESS = 0xFFFFFFFF;

/// Of one feed, in the order SHFE 2ps, SHFE 4ps, INE 2ps, INE 4ps.
struct FeedMap {
    uint32_t table;  ///< write address; behind it write data, read address and read data
    int32_t slots;
    uint32_t count;
    uint32_t packetNo;
    uint32_t maxInstNo;
    uint32_t groupIp[2];  ///< lines A and B
    uint32_t groupPort[2];
};

constexpr std::array<FeedMap, FEED_COUNT> FEEDS{{
    {0x11000, SHFE_INST_CAPACITY, SHFE_COUNT, 0x11110, 0x1005, {0x11100, 0x11104}, {0x11102, 0x11106}},
    {0x21000, SHFE_INST_CAPACITY, SHFE_COUNT, 0x21110, 0x1006, {0x21100, 0x21104}, {0x21102, 0x21106}},
    {0x11004, INE_INST_CAPACITY, INE_COUNT, 0x11111, 0x1007, {0x11101, 0x11105}, {0x11103, 0x11107}},
    {0x21004, INE_INST_CAPACITY, INE_COUNT, 0x21111, 0x1008, {0x21101, 0x21105}, {0x21103, 0x21107}},
}};

constexpr uint32_t TABLE_WORDS = 64;  ///< of one slot

}  // namespace simulation::board

/// Every register that the library reads or writes and that is no single feed's (common/Feed.h), as an index of 32-bit
/// registers. No bare index stands elsewhere.
#pragma once

#include <cstdint>

namespace reg {

constexpr uint16_t CORE_SELECTOR = 474;

// Identity, version, bring-up.
constexpr uint32_t BUILD_VERSION = 0x0004;
constexpr uint32_t BUILD_DATE = 0x0005;
constexpr uint32_t BRING_UP_START = 0x0010;
constexpr uint32_t MODEL_SEL = 0x0100;
constexpr uint32_t EVENT_MODEL_SEL = 0x0101;   ///< written
constexpr uint32_t HARDWARE_VERSION = 0x0101;  ///< read: the two directions are independent
constexpr uint32_t SOFTWARE_VERSION = 0x0102;  ///< four bytes, big-endian
constexpr uint32_t VERSION_VERDICT = 0x0103;

// Session control and parameters.
constexpr uint32_t SNAPSHOT_CONTROL = 0x1000;
constexpr uint32_t CONFIG_CHECKSUM = 0x1001;
constexpr uint32_t DNA_0 = 0x1002;
constexpr uint32_t DNA_1 = 0x1003;
constexpr uint32_t DNA_2 = 0x1004;
constexpr uint32_t SHFE_2PS_MAX_INST_NO = 0x1005;
constexpr uint32_t SHFE_4PS_MAX_INST_NO = 0x1006;
constexpr uint32_t INE_2PS_MAX_INST_NO = 0x1007;
constexpr uint32_t INE_4PS_MAX_INST_NO = 0x1008;
constexpr uint32_t LAST_TICK_CHANNEL = 0x1009;
constexpr uint32_t REPEAT_QUOTE_UPLOAD = 0x1010;

// Packet counters, 64 bits.
constexpr uint32_t EVENT_PKTS = 0x1207;
constexpr uint32_t SHFE_2PS_PKTS = 0x1220;
constexpr uint32_t INE_2PS_PKTS = 0x1230;
constexpr uint32_t SHFE_4PS_PKTS = 0x1240;
constexpr uint32_t INE_4PS_PKTS = 0x1250;

constexpr uint32_t PRICE_PROTECT_EVENT_MASK = 0x1F11;
constexpr uint32_t SHFE_INST_COUNT = 0x1F14;
constexpr uint32_t INE_INST_COUNT = 0x1F15;

// Diagnostics.
constexpr uint32_t DIAGNOSTIC_2030 = 0x2030;
constexpr uint32_t DIAGNOSTIC_2031 = 0x2031;
constexpr uint32_t HBM2_STATUS = 0x2032;
constexpr uint32_t DIAGNOSTIC_12015 = 0x12015;
constexpr uint32_t DIAGNOSTIC_1201B = 0x1201B;
constexpr uint32_t DIAGNOSTIC_22015 = 0x22015;
constexpr uint32_t DIAGNOSTIC_2201B = 0x2201B;

/// Seconds since the epoch of each feed's last update, 64 bits each.
constexpr uint32_t LAST_UPDATE_TIME = 0x2040;

// The four snapshot sessions; each register repeats every SESSION_STRIDE.
constexpr uint32_t SESSION_COUNT = 4;
constexpr uint32_t SESSION_STRIDE = 16;
constexpr uint32_t TARGET_ROUTE = 0x3000;
constexpr uint32_t DST_MAC_HIGH = 0x3001;
constexpr uint32_t DST_MAC_LOW = 0x3002;
constexpr uint32_t DST_IP = 0x3003;
constexpr uint32_t DST_PORT = 0x3004;
constexpr uint32_t SRC_MAC_HIGH = 0x3005;
constexpr uint32_t SRC_MAC_LOW = 0x3006;
constexpr uint32_t SRC_IP = 0x3007;
constexpr uint32_t SRC_PORT = 0x3008;

// The two engines.
constexpr uint32_t DETECT_INTERVAL_2PS = 0x11112;
constexpr uint32_t DETECT_INTERVAL_4PS = 0x21112;
constexpr uint32_t LOGICAL_START_2PS = 0x11120;
constexpr uint32_t LOGICAL_START_4PS = 0x21120;

// Values.
constexpr uint32_t HBM2_READY = 3;
constexpr uint32_t SNAPSHOT_OPEN = 15;
constexpr uint32_t SNAPSHOT_CLOSED = 0;
constexpr uint32_t PORT_CLOSE_DATA = 1;
constexpr uint32_t PORT_CLOSE_ADDRESS = 0xFFFFFFFFU;

/// One instrument table as seen through its four registers.
struct TableRegisters {
    uint32_t writeAddr;
    uint32_t writeData;
    uint32_t readAddr;
    uint32_t readData;
};

/// One line of a feed: its multicast group and port.
struct GroupRegisters {
    uint32_t ip;
    uint32_t port;
};

}  // namespace reg

/// What the configuration file says besides the few keys that a plan is made of, and what the board must be told of it.
/// Text and meaning are drawn together, so that nothing reads the one to know the other.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/FpgaStructCommon.h"

namespace simulation {

/// The multicast group of one line of a feed.
struct Group {
    bool isTold = true;  ///< a text without a port is not
    uint32_t ip = 0;
    uint32_t port = 0;
};

struct Settings {
    std::vector<std::pair<std::string, std::string>> lines;  ///< key and value, for [config]
    uint16_t bus = 0;

    uint32_t priceMask = 0;
    uint32_t route = 0;
    uint32_t dstMacHigh = 0;
    uint32_t dstMacLow = 0;
    uint32_t dstIp = 0;
    uint32_t dstPort = 0;
    uint32_t srcMacHigh = 0;
    std::array<uint32_t, FEED_COUNT> srcMacLow{};
    uint32_t srcIp = 0;
    uint32_t srcPort = 0;
    std::array<std::array<Group, 2>, FEED_COUNT> groups;  ///< of an enabled feed
    std::array<int32_t, FEED_COUNT> topics{};
    std::array<uint16_t, FEED_COUNT> snapPorts{};
    uint16_t shfeServerPort = 0;  ///< any of the four serves either exchange
    uint16_t ineServerPort = 0;
    std::array<int32_t, FEED_COUNT> maxInstNo{};
    uint32_t lastTick = 0;
    uint32_t repeatQuote = 0;
    uint32_t model = 0;
    uint32_t eventModel = 0;

    bool isFaultInjected = false;  ///< debug_flag
    int32_t faultInstNo = 0;
    uint32_t faultCase = 0;
    uint32_t faultParts = 0;  ///< exponent
};

/// `hasShfe`: one of two feeds with one topic must not be enabled, or it is never loaded.
Settings DrawSettings(uint64_t seed, bool hasShfe);

}  // namespace simulation

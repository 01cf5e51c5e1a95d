#include "tools/RegisterNames.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "software_board/BoardMemory.h"

namespace {

constexpr const char* FEED_NAMES[] = {"SHFE_2PS", "SHFE_4PS", "INE_2PS", "INE_4PS"};

void AddPlain(std::vector<NamedRegister>& names) {
#define PLAIN(name) names.push_back({reg::name, #name})
    PLAIN(BUILD_VERSION);
    PLAIN(BUILD_DATE);
    PLAIN(BRING_UP_START);
    PLAIN(MODEL_SEL);
    PLAIN(HARDWARE_VERSION);
    PLAIN(SOFTWARE_VERSION);
    PLAIN(VERSION_VERDICT);
    PLAIN(SNAPSHOT_CONTROL);
    PLAIN(CONFIG_CHECKSUM);
    PLAIN(DNA_0);
    PLAIN(DNA_1);
    PLAIN(DNA_2);
    PLAIN(SHFE_2PS_MAX_INST_NO);
    PLAIN(SHFE_4PS_MAX_INST_NO);
    PLAIN(INE_2PS_MAX_INST_NO);
    PLAIN(INE_4PS_MAX_INST_NO);
    PLAIN(LAST_TICK_CHANNEL);
    PLAIN(REPEAT_QUOTE_UPLOAD);
    PLAIN(PRICE_PROTECT_EVENT_MASK);
    PLAIN(SHFE_INST_COUNT);
    PLAIN(INE_INST_COUNT);
    PLAIN(DIAGNOSTIC_2030);
    PLAIN(DIAGNOSTIC_2031);
    PLAIN(HBM2_STATUS);
    PLAIN(DIAGNOSTIC_12015);
    PLAIN(DIAGNOSTIC_1201B);
    PLAIN(DIAGNOSTIC_22015);
    PLAIN(DIAGNOSTIC_2201B);
    PLAIN(TARGET_ROUTE);
    PLAIN(DETECT_INTERVAL_2PS);
    PLAIN(DETECT_INTERVAL_4PS);
    PLAIN(LOGICAL_START_2PS);
    PLAIN(LOGICAL_START_4PS);
#undef PLAIN
}

void AddCounters(std::vector<NamedRegister>& names) {
#define WIDE(name) names.push_back({reg::name, #name, true})
    WIDE(EVENT_PKTS);
    WIDE(SHFE_2PS_PKTS);
    WIDE(INE_2PS_PKTS);
    WIDE(SHFE_4PS_PKTS);
    WIDE(INE_4PS_PKTS);
#undef WIDE
    for (uint32_t feed = 0; feed < FEED_COUNT; ++feed) {
        names.push_back({reg::LAST_UPDATE_TIME + feed, std::string("LAST_UPDATE_TIME_") + FEED_NAMES[feed], true});
    }
}

void AddSessions(std::vector<NamedRegister>& names) {
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const uint32_t offset = reg::SESSION_STRIDE * session;
        const std::string number = "_" + std::to_string(session);
#define SESSION(name) names.push_back({reg::name + offset, #name + number})
        SESSION(DST_MAC_HIGH);
        SESSION(DST_MAC_LOW);
        SESSION(DST_IP);
        SESSION(DST_PORT);
        SESSION(SRC_MAC_HIGH);
        SESSION(SRC_MAC_LOW);
        SESSION(SRC_IP);
        SESSION(SRC_PORT);
#undef SESSION
    }
}

void AddFeeds(std::vector<NamedRegister>& names) {
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        const FeedTraits::Registers& registers = FEEDS[feed].registers;
        const std::string prefix = std::string(FEED_NAMES[feed]) + "_";
        names.push_back({registers.snapshotPacketNo, prefix + "SNAPSHOT_PACKET_NO"});
        names.push_back({registers.lineA.ip, prefix + "LINE_A_IP"});
        names.push_back({registers.lineA.port, prefix + "LINE_A_PORT"});
        names.push_back({registers.lineB.ip, prefix + "LINE_B_IP"});
        names.push_back({registers.lineB.port, prefix + "LINE_B_PORT"});
        names.push_back({registers.table.readAddr, prefix + "TABLE_READ_ADDRESS"});
        names.push_back({registers.table.readData, prefix + "TABLE_READ_DATA"});
    }
}

}  // namespace

const std::vector<NamedRegister>& NamedRegisters() {
    static const std::vector<NamedRegister> NAMES = [] {
        std::vector<NamedRegister> names;
        AddPlain(names);
        AddCounters(names);
        AddSessions(names);
        AddFeeds(names);
        std::sort(names.begin(), names.end(),
                  [](const NamedRegister& a, const NamedRegister& b) { return a.index < b.index; });
        return names;
    }();
    return NAMES;
}

std::optional<NamedRegister> FindRegister(const std::string& address) {
    for (const NamedRegister& named : NamedRegisters()) {
        if (named.name == address) return named;
    }
    std::string_view digits = address;
    const int base = digits.substr(0, 2) == "0x" ? 16 : 10;
    if (base == 16) digits.remove_prefix(2);
    uint32_t index = 0;
    const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), index, base);
    if (fault != std::errc() || end != digits.data() + digits.size() || index >= software_board::REGISTER_COUNT) {
        return std::nullopt;
    }
    for (const NamedRegister& named : NamedRegisters()) {
        if (named.index == index) return named;
    }
    return NamedRegister{index, "-"};
}

#include "simulation/rules/RegisterRules.h"

#include "simulation/rules/Invariants.h"
#include "src/RegisterMap.h"

namespace simulation {
namespace {
constexpr uint32_t REGISTER_COUNT = 0x30000;
}

RegisterRules::RegisterRules() : m_allowed(REGISTER_COUNT) {
    for (const uint32_t index :
         {reg::BRING_UP_START, reg::MODEL_SEL, reg::EVENT_MODEL_SEL, reg::SOFTWARE_VERSION, reg::SNAPSHOT_CONTROL,
          reg::CONFIG_CHECKSUM, reg::LAST_TICK_CHANNEL, reg::REPEAT_QUOTE_UPLOAD, reg::PRICE_PROTECT_EVENT_MASK,
          reg::SHFE_INST_COUNT, reg::INE_INST_COUNT, reg::TARGET_ROUTE, reg::DETECT_INTERVAL_2PS,
          reg::DETECT_INTERVAL_4PS, reg::LOGICAL_START_2PS, reg::LOGICAL_START_4PS}) {
        Allow(EAccess::Write, index);
    }
    for (const uint32_t index :
         {reg::BUILD_DATE, reg::BUILD_VERSION, reg::DNA_0, reg::DNA_1, reg::DNA_2, reg::HARDWARE_VERSION,
          reg::VERSION_VERDICT, reg::CONFIG_CHECKSUM, reg::SHFE_INST_COUNT, reg::INE_INST_COUNT, reg::HBM2_STATUS,
          reg::DIAGNOSTIC_2030, reg::DIAGNOSTIC_2031, reg::DIAGNOSTIC_12015, reg::DIAGNOSTIC_1201B,
          reg::DIAGNOSTIC_22015, reg::DIAGNOSTIC_2201B}) {
        Allow(EAccess::Read32, index);
    }
    for (const uint32_t index :
         {reg::SHFE_2PS_PKTS, reg::INE_2PS_PKTS, reg::SHFE_4PS_PKTS, reg::INE_4PS_PKTS, reg::EVENT_PKTS,
          reg::LAST_UPDATE_TIME, reg::LAST_UPDATE_TIME + 1, reg::LAST_UPDATE_TIME + 2, reg::LAST_UPDATE_TIME + 3}) {
        Allow(EAccess::Read64, index);
    }
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        for (uint32_t index = reg::DST_MAC_HIGH; index <= reg::SRC_PORT; ++index) {
            Allow(EAccess::Write, index + reg::SESSION_STRIDE * session);
        }
    }
    AllowFeeds();
}

void RegisterRules::AllowFeeds() {
    for (const reg::FeedRegisters& feed : reg::FEEDS) {
        for (const uint32_t index :
             {feed.table.writeAddr, feed.table.writeData, feed.table.readAddr, feed.snapshotPacketNo, feed.maxInstNo,
              feed.lineA.ip, feed.lineA.port, feed.lineB.ip, feed.lineB.port}) {
            Allow(EAccess::Write, index);
        }
        Allow(EAccess::Read32, feed.table.readData);
    }
}

void RegisterRules::Allow(EAccess access, uint32_t index) { m_allowed[index] |= static_cast<uint8_t>(access); }

void RegisterRules::Check(EAccess access, uint32_t index) const {
    const bool isAllowed = index < m_allowed.size() && (m_allowed[index] & static_cast<uint8_t>(access)) != 0;
    Require(isAllowed, 6, [=] {
        constexpr const char* NAMES[] = {"", "write of", "32-bit read of", "", "64-bit read of"};
        return std::string(NAMES[static_cast<std::size_t>(access)]) + " register " + Hex(index);
    });
}

}  // namespace simulation

#include "simulation/rules/RegisterRules.h"

#include "simulation/rules/BoardMap.h"
#include "simulation/rules/Rules.h"

namespace simulation {
namespace {
constexpr uint32_t REGISTER_COUNT = 0x30000;
}

RegisterRules::RegisterRules() : m_allowed(REGISTER_COUNT) {
    for (const uint32_t index :
         {board::BRING_UP, board::MODEL, board::EVENT_MODEL, board::SOFTWARE, board::SNAPSHOT, board::CHECKSUM,
          board::LAST_TICK, board::REPEAT_QUOTE, board::PRICE_MASK, board::SHFE_COUNT, board::INE_COUNT, board::ROUTE,
          board::INTERVAL_2PS, board::INTERVAL_4PS, board::ENGINE_2PS, board::ENGINE_4PS}) {
        Allow(EAccess::Write, index);
    }
    for (const uint32_t index : {board::BUILD_DATE, board::BUILD_VERSION, board::FIRMWARE, board::VERDICT,
                                 board::CHECKSUM, board::SHFE_COUNT, board::INE_COUNT}) {
        Allow(EAccess::Read32, index);
    }
    for (const uint32_t index : board::IDENTITY) Allow(EAccess::Read32, index);
    for (const uint32_t index : board::DIAGNOSTICS) Allow(EAccess::Read32, index);
    for (const uint32_t index : board::PACKETS) Allow(EAccess::Read64, index);
    Allow(EAccess::Read64, board::EVENTS);
    for (uint32_t feed = 0; feed < FEED_COUNT; ++feed) Allow(EAccess::Read64, board::LAST_UPDATE + feed);
    for (uint32_t session = 0; session < board::SESSIONS; ++session) {
        for (uint32_t index = board::DST_MAC_HIGH; index <= board::SRC_PORT; ++index) {
            Allow(EAccess::Write, index + board::SESSION_STEP * session);
        }
    }
    AllowFeeds();
}

void RegisterRules::AllowFeeds() {
    for (const board::FeedMap& feed : board::FEEDS) {
        for (const uint32_t index : {feed.table, feed.table + 1, feed.table + 2, feed.packetNo, feed.maxInstNo,
                                     feed.groupIp[0], feed.groupIp[1], feed.groupPort[0], feed.groupPort[1]}) {
            Allow(EAccess::Write, index);
        }
        Allow(EAccess::Read32, feed.table + 3);
    }
}

void RegisterRules::Allow(EAccess access, uint32_t index) { m_allowed[index] |= static_cast<uint8_t>(access); }

void RegisterRules::Check(EAccess access, uint32_t index) const {
    const bool isAllowed = index < m_allowed.size() && (m_allowed[index] & static_cast<uint8_t>(access)) != 0;
    Require(isAllowed, ERule::RegisterMap, [=] {
        constexpr const char* NAMES[] = {"", "write of", "32-bit read of", "", "64-bit read of"};
        return std::string(NAMES[static_cast<std::size_t>(access)]) + " register " + Hex(index);
    });
}

}  // namespace simulation

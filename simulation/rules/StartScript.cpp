#include "simulation/rules/StartScript.h"

#include "simulation/rules/BoardMap.h"

namespace simulation {
namespace {

constexpr uint32_t ALL_ONES = 0xFFFFFFFF;
constexpr uint32_t VERSION = 0x01010133;  // 1.1.1.33, its first number in the highest byte

}  // namespace

StartScript::StartScript(const SessionPlan& plan) {
    Identity();
    m_bringUpStop = m_stops.size();
    Write(ESessionPhase::Memory, board::BRING_UP, board::START);
    Write(ESessionPhase::Memory, board::PRICE_MASK, plan.settings.priceMask);
    Read(ESessionPhase::Memory, {board::MEMORY_STATUS});
    Programming(plan.settings);
    Groups(plan);
    m_stops.back().phase = ESessionPhase::Loading;
    Write(ESessionPhase::Tables, board::SNAPSHOT, board::SNAPSHOT_CLOSED);
    Write(ESessionPhase::Versions, board::SOFTWARE, VERSION);
    Read(ESessionPhase::Versions, {board::FIRMWARE, board::VERDICT});
    Write(ESessionPhase::Versions, board::CHECKSUM, {});
    Read(ESessionPhase::Versions, {board::SHFE_COUNT, board::INE_COUNT});  // for the index file
    Read(ESessionPhase::Subscribing, {board::SHFE_COUNT, board::INE_COUNT});
    for (int32_t channel = 1; channel < CHANNEL_SIZE; ++channel) {
        Read(ESessionPhase::Subscribing, {board::SHFE_COUNT, board::INE_COUNT});
    }
    Engines(plan.settings);
}

void StartScript::Read(ESessionPhase phase, std::initializer_list<uint32_t> indices) {
    for (const uint32_t index : indices) m_stops.push_back({EAccess::Read32, index, phase, {}});
}

void StartScript::Read64(ESessionPhase phase, std::initializer_list<uint32_t> indices) {
    for (const uint32_t index : indices) m_stops.push_back({EAccess::Read64, index, phase, {}});
}

void StartScript::Write(ESessionPhase phase, uint32_t index, std::optional<uint32_t> value) {
    m_stops.push_back({EAccess::Write, index, phase, value});
}

void StartScript::Identity() {
    Read(ESessionPhase::Identity, {board::BUILD_DATE, board::BUILD_VERSION});
    Read(ESessionPhase::Identity, {board::IDENTITY[0], board::IDENTITY[1], board::IDENTITY[2]});
    for (int sample = 0; sample < 2; ++sample) {
        for (const uint32_t counter : board::PACKETS) Read64(ESessionPhase::Identity, {counter});
        Read64(ESessionPhase::Identity, {board::EVENTS});
    }
    Read(ESessionPhase::Identity, {board::CHECKSUM});
}

// Most registers of the four snapshot sessions are written kind by kind, the last two session by session.
void StartScript::Programming(const Settings& settings) {
    Write(ESessionPhase::Programming, board::SNAPSHOT, board::SNAPSHOT_OPEN);
    Write(ESessionPhase::Programming, board::SHFE_COUNT, 0);
    Write(ESessionPhase::Programming, board::INE_COUNT, 0);
    Write(ESessionPhase::Programming, board::INTERVAL_2PS, ALL_ONES);
    Write(ESessionPhase::Programming, board::INTERVAL_4PS, ALL_ONES);
    Write(ESessionPhase::Programming, board::ROUTE, settings.route);
    const auto ofEach = [this](uint32_t first, auto valueOf) {
        for (uint32_t session = 0; session < board::SESSIONS; ++session) {
            Write(ESessionPhase::Programming, first + board::SESSION_STEP * session, valueOf(session));
        }
    };
    for (uint32_t session = 0; session < board::SESSIONS; ++session) {
        Write(ESessionPhase::Programming, board::DST_MAC_HIGH + board::SESSION_STEP * session, settings.dstMacHigh);
        Write(ESessionPhase::Programming, board::DST_MAC_LOW + board::SESSION_STEP * session, settings.dstMacLow);
    }
    ofEach(board::DST_IP, [&](uint32_t) { return settings.dstIp; });
    ofEach(board::DST_PORT, [&](uint32_t) { return settings.dstPort; });
    ofEach(board::SRC_MAC_HIGH, [&](uint32_t) { return settings.srcMacHigh; });
    ofEach(board::SRC_MAC_LOW, [&](uint32_t session) { return settings.srcMacLow[session]; });
    for (uint32_t session = 0; session < board::SESSIONS; ++session) {
        Write(ESessionPhase::Programming, board::SRC_IP + board::SESSION_STEP * session, settings.srcIp);
        Write(ESessionPhase::Programming, board::SRC_PORT + board::SESSION_STEP * session, settings.srcPort);
    }
}

void StartScript::Groups(const SessionPlan& plan) {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS, SHFE_4PS, INE_4PS}) {
        const bool isEnabled = (feed == SHFE_2PS && plan.hasShfe) || (feed == INE_2PS && plan.hasIne);
        for (std::size_t line = 0; line < 2; ++line) {
            const Group group = isEnabled ? plan.settings.groups[feed][line] : Group();
            if (!group.isTold) continue;
            Write(ESessionPhase::Programming, board::FEEDS[feed].groupIp[line], group.ip);
            Write(ESessionPhase::Programming, board::FEEDS[feed].groupPort[line], group.port);
        }
    }
}

// Four tables are closed in an order of their own before the engines start.
void StartScript::Engines(const Settings& settings) {
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        Write(ESessionPhase::Engines, board::FEEDS[feed].maxInstNo, static_cast<uint32_t>(settings.maxInstNo[feed]));
    }
    Write(ESessionPhase::Engines, board::LAST_TICK, settings.lastTick);
    Write(ESessionPhase::Engines, board::REPEAT_QUOTE, settings.repeatQuote);
    Write(ESessionPhase::Engines, board::MODEL, settings.model);
    Write(ESessionPhase::Engines, board::EVENT_MODEL, settings.eventModel);
    for (const EMDQPDataType feed : {SHFE_4PS, SHFE_2PS, INE_2PS, INE_4PS}) {
        Write(ESessionPhase::Engines, board::FEEDS[feed].table + 1, board::CLOSE_DATA);
        Write(ESessionPhase::Engines, board::FEEDS[feed].table, board::CLOSE_ADDRESS);
    }
    Write(ESessionPhase::Engines, board::ENGINE_2PS, board::START);
    Write(ESessionPhase::Live, board::ENGINE_4PS, board::START);
}

}  // namespace simulation

#include "simulation/rules/StartScript.h"

#include "simulation/rules/BoardMap.h"

namespace simulation {
namespace {

constexpr uint32_t ALL_ONES = 0xFFFFFFFF;
constexpr uint32_t VERSION = 0x01010133;  // 1.1.1.33, its first number in the highest byte

}  // namespace

StartScript::StartScript(const Plan& plan) {
    Identity();
    m_bringUpStop = m_stops.size();
    Write(EPhase::Memory, board::BRING_UP, 1);
    Write(EPhase::Memory, board::PRICE_MASK, plan.settings.priceMask);
    Read(EPhase::Memory, {board::MEMORY_STATUS});
    Programming(plan.settings);
    Groups(plan);
    m_stops.back().phase = EPhase::Loading;
    Write(EPhase::Tables, board::SNAPSHOT, 0);
    Write(EPhase::Versions, board::SOFTWARE, VERSION);
    Read(EPhase::Versions, {board::FIRMWARE, board::VERDICT});
    Write(EPhase::Versions, board::CHECKSUM, {});
    Read(EPhase::Versions, {board::SHFE_COUNT, board::INE_COUNT});  // for the index file
    Read(EPhase::Subscribing, {board::SHFE_COUNT, board::INE_COUNT});
    for (int32_t channel = 1; channel < CHANNEL_SIZE; ++channel) {
        Read(EPhase::Subscribing, {board::SHFE_COUNT, board::INE_COUNT});
    }
    Engines(plan.settings);
}

void StartScript::Read(EPhase phase, std::initializer_list<uint32_t> indices) {
    for (const uint32_t index : indices) m_stops.push_back({EAccess::Read32, index, phase, {}});
}

void StartScript::Read64(EPhase phase, std::initializer_list<uint32_t> indices) {
    for (const uint32_t index : indices) m_stops.push_back({EAccess::Read64, index, phase, {}});
}

void StartScript::Write(EPhase phase, uint32_t index, std::optional<uint32_t> value) {
    m_stops.push_back({EAccess::Write, index, phase, value});
}

void StartScript::Identity() {
    Read(EPhase::Identity, {board::BUILD_DATE, board::BUILD_VERSION});
    Read(EPhase::Identity, {board::IDENTITY[0], board::IDENTITY[1], board::IDENTITY[2]});
    for (int sample = 0; sample < 2; ++sample) {
        for (const uint32_t counter : board::PACKETS) Read64(EPhase::Identity, {counter});
        Read64(EPhase::Identity, {board::EVENTS});
    }
    Read(EPhase::Identity, {board::CHECKSUM});
}

// Most registers of the four snapshot sessions are written kind by kind, the last two session by session.
void StartScript::Programming(const Settings& settings) {
    Write(EPhase::Programming, board::SNAPSHOT, 15);
    Write(EPhase::Programming, board::SHFE_COUNT, 0);
    Write(EPhase::Programming, board::INE_COUNT, 0);
    Write(EPhase::Programming, board::INTERVAL_2PS, ALL_ONES);
    Write(EPhase::Programming, board::INTERVAL_4PS, ALL_ONES);
    Write(EPhase::Programming, board::ROUTE, settings.route);
    const auto ofEach = [this](uint32_t first, auto valueOf) {
        for (uint32_t session = 0; session < board::SESSIONS; ++session) {
            Write(EPhase::Programming, first + board::SESSION_STEP * session, valueOf(session));
        }
    };
    for (uint32_t session = 0; session < board::SESSIONS; ++session) {
        Write(EPhase::Programming, board::DST_MAC_HIGH + board::SESSION_STEP * session, settings.dstMacHigh);
        Write(EPhase::Programming, board::DST_MAC_LOW + board::SESSION_STEP * session, settings.dstMacLow);
    }
    ofEach(board::DST_IP, [&](uint32_t) { return settings.dstIp; });
    ofEach(board::DST_PORT, [&](uint32_t) { return settings.dstPort; });
    ofEach(board::SRC_MAC_HIGH, [&](uint32_t) { return settings.srcMacHigh; });
    ofEach(board::SRC_MAC_LOW, [&](uint32_t session) { return settings.srcMacLow[session]; });
    for (uint32_t session = 0; session < board::SESSIONS; ++session) {
        Write(EPhase::Programming, board::SRC_IP + board::SESSION_STEP * session, settings.srcIp);
        Write(EPhase::Programming, board::SRC_PORT + board::SESSION_STEP * session, settings.srcPort);
    }
}

void StartScript::Groups(const Plan& plan) {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS, SHFE_4PS, INE_4PS}) {
        const bool isEnabled = (feed == SHFE_2PS && plan.hasShfe) || (feed == INE_2PS && plan.hasIne);
        for (std::size_t line = 0; line < 2; ++line) {
            const Group group = isEnabled ? plan.settings.groups[feed][line] : Group();
            if (!group.isTold) continue;
            Write(EPhase::Programming, board::FEEDS[feed].groupIp[line], group.ip);
            Write(EPhase::Programming, board::FEEDS[feed].groupPort[line], group.port);
        }
    }
}

// Four tables are closed in an order of their own before the engines start.
void StartScript::Engines(const Settings& settings) {
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        Write(EPhase::Engines, board::FEEDS[feed].maxInstNo, static_cast<uint32_t>(settings.maxInstNo[feed]));
    }
    Write(EPhase::Engines, board::LAST_TICK, settings.lastTick);
    Write(EPhase::Engines, board::REPEAT_QUOTE, settings.repeatQuote);
    Write(EPhase::Engines, board::MODEL, settings.model);
    Write(EPhase::Engines, board::EVENT_MODEL, settings.eventModel);
    for (const EMDQPDataType feed : {SHFE_4PS, SHFE_2PS, INE_2PS, INE_4PS}) {
        Write(EPhase::Engines, board::FEEDS[feed].table + 1, 1);
        Write(EPhase::Engines, board::FEEDS[feed].table, board::CLOSE_ADDRESS);
    }
    Write(EPhase::Engines, board::ENGINE_2PS, 1);
    Write(EPhase::Live, board::ENGINE_4PS, 1);
}

}  // namespace simulation

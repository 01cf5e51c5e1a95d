#include "simulation/base/Settings.h"

#include <algorithm>
#include <type_traits>

#include "exchange/Random.h"

namespace simulation {
namespace {

using exchange::Random;

constexpr const char* FEED_NAMES[] = {"shfe2ps", "shfe4ps", "ine2ps", "ine4ps"};
constexpr uint32_t NO_ADDRESS = 0xFFFFFFFF;
constexpr uint16_t SYSTEM_PORTS = 1024;

/// Draws one key after the other. About one key in six is left out and takes its default.
class Drawer {
public:
    Drawer(uint64_t seed, Settings& settings) : m_random(seed, "settings"), m_settings(settings) {}

    void DrawFeeds(bool hasShfe);
    void DrawConnection();
    void DrawEngines();
    void DrawInjection();
    void DrawRest();

private:
    bool IsLeftOut() { return m_random.OneIn(6); }
    void Put(const std::string& key, const std::string& value) { m_settings.lines.emplace_back(key, value); }
    void Put(const std::string& key, int64_t value) { Put(key, std::to_string(value)); }

    uint32_t Flag(const char* key);
    uint32_t Port(const char* key);
    uint32_t Address(const char* key);
    std::array<uint32_t, 6> Mac(const char* key);
    Group LineOf(const std::string& key, uint32_t ipByDefault, uint32_t portByDefault, bool mayFail);
    uint16_t ServerPort() { return m_settings.snapPorts[m_random.Below(FEED_COUNT)]; }

    Random m_random;
    Settings& m_settings;
};

std::string Dotted(uint32_t ip) {
    return std::to_string(ip >> 24) + "." + std::to_string(ip >> 16 & 0xFF) + "." + std::to_string(ip >> 8 & 0xFF) +
           "." + std::to_string(ip & 0xFF);
}

/// True for the one value 1, of which sixteen bits are read.
uint32_t Drawer::Flag(const char* key) {
    constexpr int64_t VALUES[] = {0, 1, 1, 2, 65537, 65536, -1};
    constexpr uint32_t MEANING[] = {0, 1, 1, 0, 1, 0, 0};
    const uint32_t drawn = m_random.Below(std::size(VALUES));
    if (IsLeftOut()) return 0;
    Put(key, VALUES[drawn]);
    return MEANING[drawn];
}

uint32_t Drawer::Port(const char* key) {
    constexpr int64_t EDGES[] = {0, 1, 65535, 65536, 70000, -1};
    const uint32_t edge = m_random.Below(2 * std::size(EDGES));
    const int64_t drawn = edge < std::size(EDGES) ? EDGES[edge] : m_random.Between(1, 65535);
    if (IsLeftOut()) return 0;
    Put(key, drawn);
    return static_cast<uint16_t>(drawn);
}

uint32_t Drawer::Address(const char* key) {
    const auto drawn = static_cast<uint32_t>(m_random.Next());
    const uint32_t edge = m_random.Below(12);
    if (IsLeftOut()) return NO_ADDRESS;
    if (edge < 2) {
        Put(key, edge == 0 ? "10.20.0.256" : "nowhere");
        return NO_ADDRESS;
    }
    const uint32_t ip = edge == 2 ? 0 : edge == 3 ? NO_ADDRESS : drawn;
    Put(key, Dotted(ip));
    return ip;
}

/// Two digits, upper or lower case; edge 7: no more than needed.
std::string OctetText(uint32_t octet, uint32_t edge) {
    const char* digits = edge == 7 || edge == 8 ? "0123456789ABCDEF" : "0123456789abcdef";
    const std::string high = edge == 7 && octet < 16 ? "" : std::string(1, digits[octet >> 4]);
    return high + digits[octet & 15];
}

/// All octets zero where the text is no address.
std::array<uint32_t, 6> Drawer::Mac(const char* key) {
    std::array<uint32_t, 6> octets{};
    for (uint32_t& octet : octets) octet = m_random.Below(256);
    const uint32_t edge = m_random.Below(12);
    if (edge < 5) octets[5] = 0xFF - edge;  // a session's number is added to it
    if (edge == 5) octets.fill(0xFF);
    if (edge == 6) octets.fill(0);
    if (IsLeftOut()) return {};
    if (edge > 9) {
        Put(key, edge == 10 ? "02:00:5e:10:20" : "02-00-5e-10-20-30");
        return {};
    }
    std::string text;
    for (const uint32_t octet : octets) text += (text.empty() ? "" : ":") + OctetText(octet, edge);
    Put(key, text);
    return octets;
}

uint32_t Low(const std::array<uint32_t, 6>& octets, uint32_t added) {
    return octets[2] << 24 | octets[3] << 16 | octets[4] << 8 | (octets[5] + added);
}

/// A board connects to no feed whose line A has no group.
Group Drawer::LineOf(const std::string& key, uint32_t ipByDefault, uint32_t portByDefault, bool mayFail) {
    const uint32_t ip = 0xEF000000 + 1 + m_random.Below(0xFFFFFE);
    const auto port = static_cast<uint32_t>(m_random.Between(0, 70000));
    const uint32_t edge = m_random.Below(10);
    if (IsLeftOut()) return {true, ipByDefault, portByDefault};
    if (edge < 3 && mayFail) {
        constexpr const char* WITHOUT_PORT[] = {"239.3.42.71", "", "239.3.42.71:"};
        Put(key, WITHOUT_PORT[edge]);
        return {false, 0, 0};
    }
    if (edge == 3) {
        Put(key, "group:" + std::to_string(port));
        return {true, NO_ADDRESS, port};
    }
    Put(key, Dotted(ip) + ":" + std::to_string(port) + (edge == 4 ? ":7" : ""));
    return {true, ip, port};
}

void Drawer::DrawFeeds(bool hasShfe) {
    constexpr uint32_t IPS[FEED_COUNT][2] = {{0xEF032A47, 0xEF042A48},   // 239.3.42.71, 239.4.42.72
                                             {0xEF030203, 0xEF040204},   // 239.3.2.3, 239.4.2.4
                                             {0xEF033447, 0xEF043448},   // 239.3.52.71, 239.4.52.72
                                             {0xEF03975B, 0xEF04975C}};  // 239.3.151.91, 239.4.151.92
    constexpr uint32_t GROUP_PORTS[] = {21000, 21101, 25000, 25101};
    constexpr int32_t TOPICS[] = {1000, 1101, 5000, 5101};
    constexpr uint16_t SNAP_PORTS[] = {33022, 22000, 33022, 22000};
    constexpr int32_t MAX_INST_NO[] = {81000, 81101, 85000, 85101};
    Settings& all = m_settings;
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        const std::string name = FEED_NAMES[feed];
        all.groups[feed][0] = LineOf(name + "_ip_a", IPS[feed][0], GROUP_PORTS[feed], false);
        all.groups[feed][1] = LineOf(name + "_ip_b", IPS[feed][1], GROUP_PORTS[feed], true);
        // Sixteen bits with a sign; -1 is the topic of the fault that has none.
        const int32_t lowest = m_random.OneIn(3) ? -32768 : 6000;
        all.topics[feed] = lowest + 6000 * static_cast<int32_t>(feed) + m_random.Between(0, 5900);
        all.snapPorts[feed] = static_cast<uint16_t>(m_random.Between(SYSTEM_PORTS, 65535));
        const int32_t first = feed < INE_2PS ? 81000 : 85000;
        all.maxInstNo[feed] = first + (feed % 2 == 0 ? m_random.Between(0, 99) : m_random.Between(100, 999));
    }
    // Of two feeds with one topic INE comes before SHFE, and 2ps before 4ps.
    if (m_random.OneIn(4)) all.topics[SHFE_4PS] = all.topics[m_random.OneIn(2) ? SHFE_2PS : INE_2PS];
    if (m_random.OneIn(4)) all.topics[INE_4PS] = all.topics[m_random.OneIn(2) ? SHFE_2PS : INE_2PS];
    if (!hasShfe && m_random.OneIn(2)) all.topics[SHFE_2PS] = all.topics[INE_2PS];
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        const std::string name = FEED_NAMES[feed];
        const auto one = [&](const char* ending, auto& value, int64_t byDefault) {
            if (IsLeftOut()) {
                value = static_cast<std::remove_reference_t<decltype(value)>>(byDefault);
            } else {
                Put(name + ending, value);
            }
        };
        const bool isTopicShared = std::count(all.topics.begin(), all.topics.end(), all.topics[feed]) > 1;
        if (isTopicShared) {
            Put(name + "_topic_id", all.topics[feed]);
        } else {
            one("_topic_id", all.topics[feed], TOPICS[feed]);
        }
        one("_snap_port", all.snapPorts[feed], SNAP_PORTS[feed]);
        one("_max_inst_no", all.maxInstNo[feed], MAX_INST_NO[feed]);
    }
    all.shfeServerPort = ServerPort();
    all.ineServerPort = ServerPort();
}

void Drawer::DrawConnection() {
    const std::array<uint32_t, 6> dst = Mac("DSTMAC");
    m_settings.dstMacHigh = dst[0] << 8 | dst[1];
    m_settings.dstMacLow = Low(dst, 0);
    m_settings.dstIp = Address("DSTIP");
    m_settings.dstPort = Port("DSTPORT");
    const std::array<uint32_t, 6> src = Mac("SRCMAC");
    m_settings.srcMacHigh = src[0] << 8 | src[1];
    for (uint32_t session = 0; session < FEED_COUNT; ++session) m_settings.srcMacLow[session] = Low(src, session);
    m_settings.srcIp = Address("SRCIP");
    m_settings.srcPort = Port("SRCPORT");
    constexpr int32_t ROUTES[] = {0, 1, 15, 16, 31, -1};
    const int32_t route = ROUTES[m_random.Below(std::size(ROUTES))];
    m_settings.route = static_cast<uint32_t>(route) & 15;
    Put("TARGETROUTE", route);
}

void Drawer::DrawEngines() {
    const auto mask = static_cast<uint32_t>(m_random.Next());
    m_settings.priceMask = IsLeftOut() ? 0x0C0C0C0C : m_random.OneIn(4) ? 0xFFFFFFFF : mask;
    if (m_settings.priceMask != 0x0C0C0C0C) Put("price_protect_event_mask", m_settings.priceMask);
    const auto lastTick = static_cast<uint32_t>(m_random.Next());
    m_settings.lastTick = lastTick & 0xFFFF;
    Put("last_tick_channel", lastTick);
    m_settings.repeatQuote = Flag("repeat_quote_upload");
    m_settings.model = Flag("model_sel");
    m_settings.eventModel = Flag("event_model_sel");
}

/// Without the flag the other keys say nothing.
void Drawer::DrawInjection() {
    m_settings.isFaultInjected = m_random.OneIn(4);
    if (m_settings.isFaultInjected) Put("debug_flag", 1);
    if (!m_settings.isFaultInjected && m_random.OneIn(2)) Put("debug_flag", 2);
    if (!m_settings.isFaultInjected && m_random.OneIn(2)) return;
    m_settings.faultInstNo = m_random.Between(0, 16);
    if (m_settings.faultInstNo != 0) Put("error_instno", m_settings.faultInstNo);
    constexpr uint32_t CASES[] = {0, 1, 1, 2, 3, 65535};
    m_settings.faultCase = CASES[m_random.Below(std::size(CASES))];
    if (m_settings.faultCase != 65535) Put("error_case", m_settings.faultCase);
    constexpr int32_t PARTS[] = {0, 1, 2, 3, 4, 4, 4, 7, 65540};
    const int32_t parts = PARTS[m_random.Below(std::size(PARTS))];
    m_settings.faultParts = static_cast<uint32_t>(parts) & 0xFFFF;
    if (parts != 4) Put("error_limit_parts", parts);
    Put("dma_sleep", m_random.Between(0, 5000));
}

/// What changes nothing that anybody sees.
void Drawer::DrawRest() {
    m_settings.bus = static_cast<uint16_t>(m_random.Below(4));
    Put("board_id", m_random.Between(0, 9));
    constexpr int32_t CORES[] = {-1, -2, 1024, 100000};  // none of them binds this process
    if (!IsLeftOut()) Put("cpucore", CORES[m_random.Below(std::size(CORES))]);
    if (m_random.OneIn(4)) Put("shfe4ps", "enabled");
    if (m_random.OneIn(4)) Put("detect_interval", 7);
    if (m_random.OneIn(4)) Put("log_path", "");
}

}  // namespace

Settings DrawSettings(uint64_t seed, bool hasShfe) {
    Settings settings;
    Drawer drawer(seed, settings);
    drawer.DrawFeeds(hasShfe);
    drawer.DrawConnection();
    drawer.DrawEngines();
    drawer.DrawInjection();
    drawer.DrawRest();
    return settings;
}

}  // namespace simulation

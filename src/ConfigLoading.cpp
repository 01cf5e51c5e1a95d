// INI file -> U50ConfigInfo. Runs on the thread that starts, before anything else.
// In: the file named by m_configFileName; out: m_u50ConfigInfo, the log's path, one log line per value.
// Invariant: nothing is checked or refused; what is missing takes its default, a number is read as far as it is one,
// and what is too long is cut.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/Feed.h"
#include "public/config/IniReader.h"
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

constexpr const char* SECTION = "config";
constexpr uint32_t DETECT_INTERVAL = 4294967295U;
constexpr uint32_t LAST_TICK_MASK = 0xFFFFU;

std::string FeedKey(const FeedTraits& feed, const char* ending) { return std::string(feed.name) + ending; }

bool ReadFlag(CIniReader& ini, const char* key) { return ini.ReadUInt16(SECTION, key, 0) == 1; }

template <std::size_t N>
void ReadText(CIniReader& ini, const char* key, const char* byDefault, CQelCharArray<N>& field) {
    field.UnSafeCopyFrom(ini.ReadString(SECTION, key, byDefault).c_str());
}

/// Reads a number the way "%d" does, without its undefined range. False, and `number` untouched, when there is none.
bool TakeNumber(const char*& text, int32_t& number) {
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text) return false;
    number = static_cast<int32_t>(value);
    text = end;
    return true;
}

/// "xilinx%d:%d": a number that is not there leaves its field as it was.
void ParseDevice(const std::string& device, int32_t& bus, int32_t& channel) {
    const std::string_view prefix = "xilinx";
    if (device.compare(0, prefix.size(), prefix) != 0) return;
    const char* text = device.c_str() + prefix.size();
    if (!TakeNumber(text, bus) || *text != ':') return;
    TakeNumber(++text, channel);
}

void ReadFeeds(CIniReader& ini, U50ConfigInfo& config) {
    config.enabled_mask = {};
    config.enabled_mask.shfe2ps = ini.ReadString(SECTION, "shfe2ps", "enabled") == "enabled" ? 1 : 0;
    config.enabled_mask.ine2ps = ini.ReadString(SECTION, "ine2ps", "disabled") == "enabled" ? 1 : 0;
    for (const FeedTraits& feed : FEEDS) {
        const FeedTraits::Defaults& defaults = feed.defaults;
        ReadText(ini, FeedKey(feed, "_ip_a").c_str(), defaults.lineA, config.multiIpAndPort.*feed.lineA);
        ReadText(ini, FeedKey(feed, "_ip_b").c_str(), defaults.lineB, config.multiIpAndPort.*feed.lineB);
        config.topicID.*feed.topicId = ini.ReadInt32(SECTION, FeedKey(feed, "_topic_id").c_str(), defaults.topicId);
        config.snapTcpPort.*feed.snapPort =
            ini.ReadUInt16(SECTION, FeedKey(feed, "_snap_port").c_str(), defaults.snapPort);
        config.maxInstNo.*feed.maxInstNo =
            ini.ReadInt32(SECTION, FeedKey(feed, "_max_inst_no").c_str(), defaults.maxInstNo);
    }
}

void ReadBoardKeys(CIniReader& ini, U50ConfigInfo& config) {
    config.last_tick_channel = ini.ReadUInt32(SECTION, "last_tick_channel", 0) & LAST_TICK_MASK;
    config.detect_interval = DETECT_INTERVAL;
    config.board_id = ini.ReadInt32(SECTION, "board_id", 0);
    ReadText(ini, "DSTMAC", "", config.DSTMAC);
    ReadText(ini, "DSTIP", "", config.DSTIP);
    config.DSTPORT = ini.ReadUInt16(SECTION, "DSTPORT", 0);
    ReadText(ini, "SRCMAC", "", config.SRCMAC);
    ReadText(ini, "SRCIP", "", config.SRCIP);
    config.SRCPORT = ini.ReadUInt16(SECTION, "SRCPORT", 0);
    config.TARGETROUTE = ini.ReadInt32(SECTION, "TARGETROUTE", 0);
    config.crc_mux_check = ReadFlag(ini, "crc_mux_check");
    config.repeat_quote_upload = ReadFlag(ini, "repeat_quote_upload");
    config.price_protect_event_mask = ini.ReadUInt32(SECTION, "price_protect_event_mask", 0x0C0C0C0CU);
    config.debug_flag = ReadFlag(ini, "debug_flag");
    config.error_instno = ini.ReadUInt16(SECTION, "error_instno", 0);
    config.error_case = ini.ReadUInt16(SECTION, "error_case", 65535);
    config.error_limit_parts = static_cast<uint16_t>(ini.ReadInt32(SECTION, "error_limit_parts", 4));
    config.dma_sleep = static_cast<uint32_t>(ini.ReadInt32(SECTION, "dma_sleep", 0));
    config.model_sel = ReadFlag(ini, "model_sel");
    config.event_model_sel = ReadFlag(ini, "event_model_sel");
    config.shield_price_check = ReadFlag(ini, "shield_price_check");
    config.dma_data_flag = ReadFlag(ini, "dma_data_flag");
}

void ReadChannels(CIniReader& ini, U50ConfigInfo& config) {
    for (int32_t i = 0; i < CHANNEL_SIZE; ++i) {
        CQelCharArray<64> section("channel");
        section.Append(i);
        U50ChannelInfo& channel = config.channelInfo[i];
        channel.insts.UnSafeCopyFrom(ini.ReadString(section.data(), "insts", "").c_str());
        channel.options = ini.ReadString(section.data(), "options", "norecv") == "recv";
        channel.recvall = channel.insts.Comp("all") == 0;
    }
}

// Lines of loading name the one operation that loads, whichever helper wrote them.
#define LOADING_LOG(level, ...) VEXA_LOG_AS("_ReadConfig", level, __VA_ARGS__)

void TellFeeds(const U50ConfigInfo& config) {
    LOADING_LOG(LOG_DEBUG, "enabled_mask[%d]", config.enabled_mask.enabled_mask);
    for (const FeedTraits& feed : FEEDS) {
        LOADING_LOG(LOG_DEBUG, "%s_ip_a[%s]", feed.name, (config.multiIpAndPort.*feed.lineA).data());
        LOADING_LOG(LOG_DEBUG, "%s_ip_b[%s]", feed.name, (config.multiIpAndPort.*feed.lineB).data());
    }
    for (const FeedTraits& feed : FEEDS) {
        LOADING_LOG(LOG_DEBUG, "%s_topic_id[%d]", feed.name, config.topicID.*feed.topicId);
    }
    for (const FeedTraits& feed : FEEDS) {
        LOADING_LOG(LOG_DEBUG, "%s_snap_port[%d]", feed.name, config.snapTcpPort.*feed.snapPort);
    }
    for (const FeedTraits& feed : FEEDS) {
        LOADING_LOG(LOG_DEBUG, "%s_max_inst_no[%d]", feed.name, config.maxInstNo.*feed.maxInstNo);
    }
}

void TellBoardKeys(const U50ConfigInfo& config) {
    LOADING_LOG(LOG_DEBUG, "last_tick_channel[%u]", config.last_tick_channel);
    LOADING_LOG(LOG_DEBUG, "detect_interval[%u]", config.detect_interval);
    LOADING_LOG(LOG_DEBUG, "board_id[%d]", config.board_id);
    LOADING_LOG(LOG_DEBUG, "DSTMAC[%s]", config.DSTMAC.data());
    LOADING_LOG(LOG_DEBUG, "DSTIP[%s]", config.DSTIP.data());
    LOADING_LOG(LOG_DEBUG, "DSTPORT[%d]", config.DSTPORT);
    LOADING_LOG(LOG_DEBUG, "SRCMAC[%s]", config.SRCMAC.data());
    LOADING_LOG(LOG_DEBUG, "SRCIP[%s]", config.SRCIP.data());
    LOADING_LOG(LOG_DEBUG, "SRCPORT[%d]", config.SRCPORT);
    LOADING_LOG(LOG_DEBUG, "TARGETROUTE[%d]", config.TARGETROUTE);
    LOADING_LOG(LOG_DEBUG, "crc_mux_check[%d]", config.crc_mux_check ? 1 : 0);
    LOADING_LOG(LOG_DEBUG, "price_protect_event_mask[%u]", config.price_protect_event_mask);
    LOADING_LOG(LOG_DEBUG, "repeat_quote_upload[%d]", config.repeat_quote_upload ? 1 : 0);
    LOADING_LOG(LOG_DEBUG, "model_sel[%d]", config.model_sel ? 1 : 0);
    LOADING_LOG(LOG_DEBUG, "event_model_sel[%d]", config.event_model_sel ? 1 : 0);
    LOADING_LOG(LOG_DEBUG, "shield_price_check[%d]", config.shield_price_check ? 1 : 0);
    LOADING_LOG(LOG_DEBUG, "dma_data_flag[%d]", config.dma_data_flag ? 1 : 0);
}

void TellFaultInjection(const U50ConfigInfo& config) {
    LOADING_LOG(LOG_WARNING, "error_instno[%d]", config.error_instno);
    LOADING_LOG(LOG_WARNING, "error_case[%d]", config.error_case);
    LOADING_LOG(LOG_WARNING, "error_limit_parts[%d]", config.error_limit_parts);
    LOADING_LOG(LOG_WARNING, "dma_sleep[%d]", static_cast<int32_t>(config.dma_sleep));
}

}  // namespace

int32_t CVexaShfeMdApiImpl::_ReadConfig() {
    CIniReader ini;
    if (!ini.ReadConfig(m_configFileName.data())) {
        // The log has no path yet.
        std::printf("ReadConfig is %s failed \n", m_configFileName.data());
        std::fflush(stdout);
        return -1;
    }
    U50ConfigInfo& config = m_u50ConfigInfo;
    config.log_level = static_cast<ELOGLEVEL>(ini.ReadInt32(SECTION, "log_level", 15));
    config.cpucore = ini.ReadInt32(SECTION, "cpucore", -1);
    ParseDevice(ini.ReadString(SECTION, "device", "xilinx0:0"), config.bus_id, config.channel_id);
    config.log_path = ini.ReadString(SECTION, "log_path", "");
    CCommonLog::GetInstance().SetLogPath(config.log_path.c_str());
    VEXA_LOG(LOG_DEBUG, "log_level[%d]", static_cast<int32_t>(config.log_level));
    VEXA_LOG(LOG_DEBUG, "cpucore[%d]", config.cpucore);
    VEXA_LOG(LOG_DEBUG, "bus_id[%d] channel_id[%d]", config.bus_id, config.channel_id);
    // What follows programs the board, which only the managing channel does.
    if (config.channel_id != MANAGER_CHANNEL) return 0;

    ReadFeeds(ini, config);
    ReadBoardKeys(ini, config);
    if (config.debug_flag) TellFaultInjection(config);
    TellFeeds(config);
    TellBoardKeys(config);
    ReadChannels(ini, config);
    config.wait_snap_timeout = ini.ReadUInt16(SECTION, "wait_snap_timeout", 600);
    config.init_tcpcnt = ini.ReadUInt16(SECTION, "init_tcpcnt", 3);
    VEXA_LOG(LOG_INFO, "wait_snap_timeout = [%d]", config.wait_snap_timeout);
    VEXA_LOG(LOG_INFO, "init_tcpcnt = [%d]", config.init_tcpcnt);
    return 0;
}

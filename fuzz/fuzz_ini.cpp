// Any bytes as an INI file: the reader must agree with a plain second reading of the grammar, line by line, and the
// loaded configuration with a plain second reading of the keys.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "fuzz/Oracle.h"
#include "public/config/IniReader.h"
#include "testing/LogCapture.h"
#include "tests/support/TestableApi.h"

namespace {

using Section = std::map<std::string, std::string>;

std::string Trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Written from the grammar's description, not from the reader.
std::map<std::string, Section> SecondReading(const std::string& text) {
    std::map<std::string, Section> sections;
    Section current;
    std::string section;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::string key;
        std::string value;
        if (line.empty() || line[0] == '#') continue;
        if (line.find('[') != std::string::npos && line.find(']') != std::string::npos) {
            const long length = static_cast<long>(line.find(']')) - 1;
            const std::string rest = line.substr(line.find('[') + 1);
            section = length < 0 ? rest : rest.substr(0, static_cast<std::size_t>(length));
        } else {
            const std::string content = line.substr(0, line.find('#'));
            const std::size_t equals = content.find('=');
            if (equals == std::string::npos) continue;
            key = Trimmed(content.substr(0, equals));
            value = Trimmed(content.substr(equals + 1));
            if (key.empty()) continue;
        }
        if (sections.count(section) != 0) {
            current[key] = value;
            sections[section] = current;
        } else {
            current.clear();
            sections[section];
        }
    }
    return sections;
}

/// The values of a second reading, as the configuration's documentation describes them.
class SecondLoading {
public:
    explicit SecondLoading(const std::map<std::string, Section>& sections) : m_sections(sections) {}

    std::string Text(const std::string& section, const std::string& key, const std::string& byDefault) const {
        const std::string* text = Find(section, key);
        return text == nullptr ? byDefault : *text;
    }
    int64_t Number(const std::string& key, int64_t byDefault) const {
        const std::string* text = Find("config", key);
        if (text == nullptr) return byDefault;
        std::size_t at = 0;
        int64_t number = 0;
        return TakeNumber(*text, at, number) ? number : 0;
    }
    bool IsOn(const std::string& key) const { return static_cast<uint16_t>(Number(key, 0)) == 1; }

    /// Digits behind blanks and a sign; beyond 64 bits the nearest number that there is.
    static bool TakeNumber(const std::string& text, std::size_t& at, int64_t& number) {
        std::size_t here = at;
        while (here < text.size() && (text[here] == ' ' || (text[here] >= '\t' && text[here] <= '\r'))) ++here;
        const bool isNegative = here < text.size() && text[here] == '-';
        if (here < text.size() && (text[here] == '-' || text[here] == '+')) ++here;
        const std::size_t first = here;
        __int128 value = 0;
        for (; here < text.size() && text[here] >= '0' && text[here] <= '9'; ++here) {
            value = std::min<__int128>(value * 10 + (text[here] - '0'), static_cast<__int128>(INT64_MAX) + 1);
        }
        if (here == first) return false;
        number = static_cast<int64_t>(isNegative ? -value : std::min<__int128>(value, INT64_MAX));
        at = here;
        return true;
    }

    /// "xilinx<bus>:<channel>", of which what is missing stays as it is.
    void TakeDevice(int32_t& bus, int32_t& channel) const {
        std::string text = Text("config", "device", "xilinx0:0");
        text = text.substr(0, text.find('\0'));
        if (text.rfind("xilinx", 0) != 0) return;
        std::size_t at = 6;
        int64_t number = 0;
        if (!TakeNumber(text, at, number)) return;
        bus = static_cast<int32_t>(number);
        if (at == text.size() || text[at] != ':') return;
        if (TakeNumber(text, ++at, number)) channel = static_cast<int32_t>(number);
    }

private:
    const std::string* Find(const std::string& section, const std::string& key) const {
        const auto found = m_sections.find(section);
        if (found == m_sections.end()) return nullptr;
        const auto value = found->second.find(key);
        return value == found->second.end() ? nullptr : &value->second;
    }

    const std::map<std::string, Section>& m_sections;
};

template <std::size_t N>
void RequireText(const CQelCharArray<N>& loaded, const std::string& expected) {
    const std::string text = expected.substr(0, expected.find('\0')).substr(0, N - 1);
    FUZZ_REQUIRE(std::string(loaded.data()) == text);
}

void RequireAddresses(const U50ConfigInfo& config, const SecondLoading& second) {
    const U50MultiIpAndPort& loaded = config.multiIpAndPort;
    const auto text = [&](const char* key, const char* byDefault) { return second.Text("config", key, byDefault); };
    RequireText(loaded.shfe2ps_ip_a, text("shfe2ps_ip_a", "239.3.42.71:21000"));
    RequireText(loaded.shfe2ps_ip_b, text("shfe2ps_ip_b", "239.4.42.72:21000"));
    RequireText(loaded.shfe4ps_ip_a, text("shfe4ps_ip_a", "239.3.2.3:21101"));
    RequireText(loaded.shfe4ps_ip_b, text("shfe4ps_ip_b", "239.4.2.4:21101"));
    RequireText(loaded.ine2ps_ip_a, text("ine2ps_ip_a", "239.3.52.71:25000"));
    RequireText(loaded.ine2ps_ip_b, text("ine2ps_ip_b", "239.4.52.72:25000"));
    RequireText(loaded.ine4ps_ip_a, text("ine4ps_ip_a", "239.3.151.91:25101"));
    RequireText(loaded.ine4ps_ip_b, text("ine4ps_ip_b", "239.4.151.92:25101"));
    RequireText(config.DSTMAC, text("DSTMAC", ""));
    RequireText(config.DSTIP, text("DSTIP", ""));
    RequireText(config.SRCMAC, text("SRCMAC", ""));
    RequireText(config.SRCIP, text("SRCIP", ""));
}

void RequireFeeds(const U50ConfigInfo& config, const SecondLoading& second) {
    const bool isShfe = second.Text("config", "shfe2ps", "enabled") == "enabled";
    const bool isIne = second.Text("config", "ine2ps", "disabled") == "enabled";
    FUZZ_REQUIRE(config.enabled_mask.enabled_mask == (isShfe ? 1 : 0) + (isIne ? 4 : 0));
    const auto number = [&](const char* key, int64_t byDefault) {
        return static_cast<int32_t>(second.Number(key, byDefault));
    };
    const auto port = [&](const char* key, int64_t byDefault) {
        return static_cast<uint16_t>(second.Number(key, byDefault));
    };
    FUZZ_REQUIRE(config.topicID.shfe2ps_topic_id == number("shfe2ps_topic_id", 1000));
    FUZZ_REQUIRE(config.topicID.shfe4ps_topic_id == number("shfe4ps_topic_id", 1101));
    FUZZ_REQUIRE(config.topicID.ine2ps_topic_id == number("ine2ps_topic_id", 5000));
    FUZZ_REQUIRE(config.topicID.ine4ps_topic_id == number("ine4ps_topic_id", 5101));
    FUZZ_REQUIRE(config.snapTcpPort.shfe2ps_snap_port == port("shfe2ps_snap_port", 33022));
    FUZZ_REQUIRE(config.snapTcpPort.shfe4ps_snap_port == port("shfe4ps_snap_port", 22000));
    FUZZ_REQUIRE(config.snapTcpPort.ine2ps_snap_port == port("ine2ps_snap_port", 33022));
    FUZZ_REQUIRE(config.snapTcpPort.ine4ps_snap_port == port("ine4ps_snap_port", 22000));
    FUZZ_REQUIRE(config.maxInstNo.shfe2ps_max_inst_no == number("shfe2ps_max_inst_no", 81000));
    FUZZ_REQUIRE(config.maxInstNo.shfe4ps_max_inst_no == number("shfe4ps_max_inst_no", 81101));
    FUZZ_REQUIRE(config.maxInstNo.ine2ps_max_inst_no == number("ine2ps_max_inst_no", 85000));
    FUZZ_REQUIRE(config.maxInstNo.ine4ps_max_inst_no == number("ine4ps_max_inst_no", 85101));
}

void RequireNumbers(const U50ConfigInfo& config, const SecondLoading& second) {
    const auto word = [&](const char* key, int64_t byDefault) {
        return static_cast<uint16_t>(second.Number(key, byDefault));
    };
    FUZZ_REQUIRE(config.last_tick_channel == word("last_tick_channel", 0));
    FUZZ_REQUIRE(config.detect_interval == 4294967295U);
    FUZZ_REQUIRE(config.board_id == static_cast<int32_t>(second.Number("board_id", 0)));
    FUZZ_REQUIRE(config.DSTPORT == word("DSTPORT", 0));
    FUZZ_REQUIRE(config.SRCPORT == word("SRCPORT", 0));
    FUZZ_REQUIRE(config.TARGETROUTE == static_cast<int32_t>(second.Number("TARGETROUTE", 0)));
    const auto mask = static_cast<uint32_t>(second.Number("price_protect_event_mask", 0x0C0C0C0C));
    FUZZ_REQUIRE(config.price_protect_event_mask == mask);
    FUZZ_REQUIRE(config.error_instno == word("error_instno", 0));
    FUZZ_REQUIRE(config.error_case == word("error_case", 65535));
    FUZZ_REQUIRE(config.error_limit_parts == word("error_limit_parts", 4));
    FUZZ_REQUIRE(config.dma_sleep == static_cast<uint32_t>(second.Number("dma_sleep", 0)));
    FUZZ_REQUIRE(config.wait_snap_timeout == word("wait_snap_timeout", 600));
    FUZZ_REQUIRE(config.init_tcpcnt == word("init_tcpcnt", 3));
    FUZZ_REQUIRE(config.crc_mux_check == second.IsOn("crc_mux_check"));
    FUZZ_REQUIRE(config.repeat_quote_upload == second.IsOn("repeat_quote_upload"));
    FUZZ_REQUIRE(config.debug_flag == second.IsOn("debug_flag"));
    FUZZ_REQUIRE(config.model_sel == second.IsOn("model_sel"));
    FUZZ_REQUIRE(config.event_model_sel == second.IsOn("event_model_sel"));
    FUZZ_REQUIRE(config.shield_price_check == second.IsOn("shield_price_check"));
    FUZZ_REQUIRE(config.dma_data_flag == second.IsOn("dma_data_flag"));
}

void RequireChannels(const U50ConfigInfo& config, const SecondLoading& second) {
    for (std::size_t i = 0; i < 16; ++i) {
        const std::string section = "channel" + std::to_string(i);
        const std::string insts = second.Text(section, "insts", "");
        RequireText(config.channelInfo[i].insts, insts);
        FUZZ_REQUIRE(config.channelInfo[i].options == (second.Text(section, "options", "") == "recv"));
        FUZZ_REQUIRE(config.channelInfo[i].recvall == (insts.substr(0, insts.find('\0')) == "all"));
    }
}

/// Loads the file into a session that holds nothing yet.
void RequireLoading(const std::string& path, const std::map<std::string, Section>& sections) {
    static const auto api = MakeApi();
    const SecondLoading second(sections);
    U50ConfigInfo& config = api->m_u50ConfigInfo;
    config = {};
    config.bus_id = 5;
    config.channel_id = 7;
    api->m_configFileName.UnSafeCopyFrom(path.c_str());
    FUZZ_REQUIRE(api->_ReadConfig() == 0);
    int32_t bus = 5;
    int32_t channel = 7;
    second.TakeDevice(bus, channel);
    FUZZ_REQUIRE(config.bus_id == bus && config.channel_id == channel);
    FUZZ_REQUIRE(static_cast<int32_t>(config.log_level) == static_cast<int32_t>(second.Number("log_level", 15)));
    FUZZ_REQUIRE(config.cpucore == static_cast<int32_t>(second.Number("cpucore", -1)));
    FUZZ_REQUIRE(config.log_path == second.Text("config", "log_path", ""));
    if (channel != 0) return;
    RequireAddresses(config, second);
    RequireFeeds(config, second);
    RequireNumbers(config, second);
    RequireChannels(config, second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const int file = memfd_create("ini", MFD_CLOEXEC);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
    static SilentLog silence;
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    CIniReader reader;
    FUZZ_REQUIRE(reader.ReadConfig(path));
    const auto sections = SecondReading(std::string(reinterpret_cast<const char*>(data), size));
    FUZZ_REQUIRE(reader.Sections() == sections);
    RequireLoading(path, sections);
    close(file);
    for (const auto& [section, keys] : reader.Sections()) {
        for (const auto& [key, value] : keys) {
            reader.ReadInt32(section.c_str(), key.c_str(), 0);
            reader.ReadUInt32(section.c_str(), key.c_str(), 0);
            reader.ReadUInt16(section.c_str(), key.c_str(), 0);
            reader.ReadDouble(section.c_str(), key.c_str(), 0);
        }
    }
    return 0;
}

#include "tests/session/LiteralWorld.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "public/log/CommonLog.h"
#include "testing/IniText.h"

namespace literal {

namespace {

Record Instrument(uint32_t instNo, const std::string& id, uint32_t multiple, double tick, double codec) {
    return Record(112).Text(0, id).U32(72, multiple).F64(92, tick).F64(100, codec).U32(108, instNo);
}

Record Level(uint32_t instNo, char side, double price, uint32_t volume) {
    return Record(17).U32(0, instNo).Text(4, std::string(1, side)).F64(5, price).U32(13, volume);
}

/// One connection: first segment, what its instruments are, the last message of the feed.
struct Connection {
    uint16_t srcPort;
    uint16_t dstPort;
    uint16_t topic;
    uint32_t packetNo;
    Message instruments;
};

Message Shfe4ps() {
    return Message(0x11)
        .Field(0x0101, Instrument(2, "ag2612", 15, 1.0, 5000.0))
        .Field(0x0102, Record(154)
                           .U32(0, 2)
                           .F64(4, 5012.0)
                           .U32(12, 77)
                           .F64(16, 1234.56)
                           .F64(24, 88.0)
                           .F64(32, 5020.0)
                           .F64(40, 5001.0)
                           .F64(72, 5500.0)
                           .F64(80, 4500.0)
                           .Text(128, "20260430")
                           .U32(146, 250)
                           .U32(150, 9))
        .Field(0x0103, Level(2, '0', 5011.0, 3))
        .Field(0x0103, Level(2, '1', 5013.0, 4))
        .Field(0x0031, Record(8));
}

Message Ine4ps() {
    return Message(0x11).Field(0x0101, Instrument(0, "bc2612", 5, 10.0, 70000.0)).Field(0x0031, Record(8));
}

Message Ine2ps() {
    return Message(0x11)
        .Field(0x0101, Instrument(1, "sc2612", 1000, 0.1, 500.0))
        .Field(0x0102, Record(154)
                           .U32(0, 1)
                           .F64(4, 512.3)
                           .U32(12, 31)
                           .F64(72, 600.0)
                           .F64(80, 400.0)
                           .Text(128, "20260430")
                           .U32(146, 750)
                           .U32(150, 17))
        .Field(0x0103, Level(1, '0', 512.2, 21))
        .Field(0x0103, Level(1, '1', 512.4, 22))
        .Field(0x0031, Record(8));
}

Message Shfe2ps() {
    Message message(0x11);
    message.Field(0x0101, Instrument(1, "cu2612", 5, 10.0, 78000.0))
        .Field(0x0102, Record(154)
                           .U32(0, 1)
                           .F64(4, 78120.0)
                           .U32(12, 123456)
                           .F64(16, 48200000.5)
                           .F64(24, 210000.0)
                           .F64(32, 78500.0)
                           .F64(40, 77500.0)
                           .F64(72, 84000.0)
                           .F64(80, 72000.0)
                           .Text(128, "20260430")
                           .U32(146, 500)
                           .U32(150, 42));
    for (uint32_t i = 0; i < 5; ++i) message.Field(0x0103, Level(1, '0', 78110.0 - 10 * i, 7 + i));
    for (uint32_t i = 0; i < 5; ++i) message.Field(0x0103, Level(1, '1', 78130.0 + 10 * i, 12 + i));
    return message.Field(0x0104, Record(28).U32(0, 1).U32(4, 1001).F64(8, 7811.25).U32(16, 1002).F64(20, 7813.5))
        .Field(0x0101, Instrument(3, "sc2612TAS", 1000, 0.1, 0.0))
        .Field(0x0031, Record(8));
}

void Send(const Connection& connection, std::vector<Bytes>& messages) {
    Segment segment{connection.srcPort, connection.dstPort, 5000, 0x10, {}};
    const Message first = Message(0x11)
                              .Field(0x1001, Record(6).U16(0, connection.topic).U32(2, 77))
                              .Field(0x1004, Record(4).U32(0, connection.packetNo))
                              .Field(0x0031, Record(30));
    for (const Bytes& message : {first.Take(), connection.instruments.Take(), Message(0x01).Take()}) {
        segment.payload = message;
        messages.push_back(segment.Take());
        segment.seq += static_cast<uint32_t>(message.size());
    }
}

/// 64 words, zero where nothing is named.
Words Slot(std::initializer_list<std::pair<std::size_t, uint32_t>> words) {
    Words slot(64);
    for (const auto& [word, value] : words) slot[word] = value;
    return slot;
}

const Words NOTHING(64);

const Words CU2612 =
    Slot({{1, 1000},     {2, 7800000},  {3, 5},           {4, 42},       {5, 500},      {7, 7807000},     {8, 11},
          {9, 7808000},  {10, 10},      {11, 7809000},    {12, 9},       {13, 7810000}, {14, 8},          {15, 7811000},
          {16, 7},       {17, 7817000}, {18, 16},         {19, 7816000}, {20, 15},      {21, 7815000},    {22, 14},
          {23, 7814000}, {24, 13},      {25, 7813000},    {26, 12},      {27, 210000},  {29, 0x1F4B5D32}, {30, 1},
          {31, 123456},  {32, 7812000}, {33, 0x36327563}, {34, 0x3231},  {37, 8400000}, {38, 7200000},    {39, 1001},
          {40, 781125},  {42, 1002},    {43, 781350},     {45, 7850000}, {46, 7750000}});
const Words SC2612TAS = Slot({{1, 10}, {3, 1000}, {33, 0x36326373}, {34, 0x41543231}, {35, 0x53}});
const Words AG2612 = Slot({{1, 100},
                           {2, 500000},
                           {3, 15},
                           {4, 9},
                           {5, 250},
                           {15, 501100},
                           {16, 3},
                           {25, 501300},
                           {26, 4},
                           {27, 88},
                           {29, 123456},
                           {31, 77},
                           {32, 501200},
                           {33, 0x36326761},
                           {34, 0x3231},
                           {37, 550000},
                           {38, 450000},
                           {45, 502000},
                           {46, 500100}});
const Words SC2612 = Slot({{1, 10},
                           {2, 50000},
                           {3, 1000},
                           {4, 17},
                           {5, 750},
                           {15, 51220},
                           {16, 21},
                           {25, 51240},
                           {26, 22},
                           {31, 31},
                           {32, 51230},
                           {33, 0x36326373},
                           {34, 0x3231},
                           {37, 60000},
                           {38, 40000}});
const Words BC2612 = Slot({{1, 1000}, {2, 7000000}, {3, 5}, {33, 0x36326362}, {34, 0x3231}});

constexpr const char* KEYS = R"(shfe2ps=enabled
ine2ps=enabled
shfe2ps_ip_a=239.1.1.11:21011
shfe2ps_ip_b=239.1.1.12:21012
shfe4ps_ip_a=239.1.1.21:21021
shfe4ps_ip_b=239.1.1.22:21022
ine2ps_ip_a=239.1.1.31:21031
ine2ps_ip_b=239.1.1.32:21032
ine4ps_ip_a=239.1.1.41:21041
ine4ps_ip_b=239.1.1.42:21042
shfe2ps_topic_id=1010
shfe4ps_topic_id=1111
ine2ps_topic_id=5010
ine4ps_topic_id=5111
shfe2ps_snap_port=33101
shfe4ps_snap_port=33102
ine2ps_snap_port=33103
ine4ps_snap_port=33104
shfe2ps_max_inst_no=82000
shfe4ps_max_inst_no=82101
ine2ps_max_inst_no=86000
ine4ps_max_inst_no=86101
last_tick_channel=6
board_id=12
DSTMAC=01:02:03:04:05:06
DSTIP=10.20.0.1
DSTPORT=33022
SRCMAC=0a:0b:0c:0d:0e:fe
SRCIP=10.20.0.2
SRCPORT=40000
TARGETROUTE=58
repeat_quote_upload=1
price_protect_event_mask=168496141
model_sel=1
event_model_sel=0
wait_snap_timeout=2
init_tcpcnt=2)";

constexpr const char* CHANNELS = R"([channel0]
insts=all
options=recv
[channel3]
insts=cu,ag2612
options=norecv
[channel15]
insts=sc2612TAS
options=norecv)";

std::string Configuration(int logLevel, const std::string& directory, const std::vector<std::string>& keys) {
    IniText text;
    text.Section("config").Key("log_level", logLevel).Device(3, 0).Key("log_path", directory + "/");
    text.Line(KEYS);
    for (const std::string& key : keys) text.Line(key);
    return text.Line(CHANNELS).Text();
}

std::string Without(std::string text, const std::string& part, const std::string& name) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part)) {
        text.replace(at, part.size(), name);
    }
    return text;
}

}  // namespace

std::vector<Words> SnapshotSlots(std::size_t table) {
    switch (table) {
        case 0: return {NOTHING, CU2612, NOTHING, SC2612TAS};
        case 1: return {NOTHING, NOTHING, AG2612};
        case 2: return {NOTHING, SC2612};
        default: return {BC2612};
    }
}

std::vector<Bytes> SnapshotMessages() {
    std::vector<Bytes> messages;
    Send({33102, 41002, 1111, 7002, Shfe4ps()}, messages);
    Send({33104, 41004, 5111, 7004, Ine4ps()}, messages);
    Send({33103, 41003, 5010, 7003, Ine2ps()}, messages);
    Send({33101, 41001, 1010, 7001, Shfe2ps()}, messages);
    messages.push_back(Segment{33103, 41003, 9000, 0x10, {}}.Take());  // any segment brings the completion about
    return messages;
}

World::World(int logLevel, const std::vector<std::string>& keys)
    : file(Configuration(logLevel, directory.Path(), keys)), snapshot(SnapshotMessages()) {
    CCommonLog::GetInstance().SetLogLevel(15);  // as in a fresh process

    setenv("TZ", "UTC", 1);
    tzset();
    TestableApi::s_indexDirectory = directory.Path();
    for (std::size_t i = 0; i < TABLES.size(); ++i) m_tables[i].resize(std::size_t{64} * TABLES[i].slots);
    board.accesses.reserve(6'000'000);
    board.answers = {{0x4, 0x17},          {0x5, 0x20260418},    {0x101, 0x20260421},  {0x103, 1},
                     {0x1002, 0x0A0B0C0D}, {0x1003, 0x0E0F1011}, {0x1004, 0x12131415}, {0x1001, 0xC0FFEE},
                     {0x1207, 50},         {0x1220, 20},         {0x1230, 30},         {0x1240, 40},
                     {0x1250, 60},         {0x2030, 0x2030},     {0x2031, 0x2031},     {0x2032, 3},
                     {0x12015, 0x15},      {0x1201B, 0x1B},      {0x22015, 0x25},      {0x2201B, 0x2B}};
    board.onRead = [this](uint32_t index, uint64_t& value) { return Answer(index, value); };
    board.onPoll = [this](RecordingBoard&) { SendSnapshot(); };
}

World::~World() {
    CCommonLog::GetInstance().SetLogPath("");
    TestableApi::s_indexDirectory = "/tmp";
}

bool World::Answer(uint32_t index, uint64_t& value) {
    if (index == 0x5 && atIdentity) atIdentity();
    if (index == 0x5 && has4ps) api->m_u50ConfigInfo.enabled_mask.enabled_mask = 15;
    FollowWrites();
    if (index == 0x1F14 || index == 0x1F15) {
        value = m_counts[index - 0x1F14];
        return true;
    }
    for (std::size_t i = 0; i < TABLES.size(); ++i) {
        if (index != TABLES[i].readData) continue;
        value = m_tables[i].at(m_readAddr[i]);
        return true;
    }
    return false;
}

void World::FollowWrites() {
    for (; m_followed < board.accesses.size(); ++m_followed) {
        const Access& access = board.accesses[m_followed];
        if (access.kind != Access::Write) continue;
        const auto value = static_cast<uint32_t>(access.value);
        if (access.index == 0x1F14 || access.index == 0x1F15) m_counts[access.index - 0x1F14] = value;
        for (std::size_t i = 0; i < TABLES.size(); ++i) {
            if (access.index == TABLES[i].writeData) m_writeData[i] = value;
            if (access.index == TABLES[i].readAddr) m_readAddr[i] = value;
            if (access.index == TABLES[i].writeAddr && value != 0xFFFFFFFF) m_tables[i].at(value) = m_writeData[i];
        }
    }
}

void World::Forget() {
    FollowWrites();
    board.Forget();
    m_followed = m_sentAt = 0;
}

// Once the last group is programmed; before that, messages are thrown away.
void World::SendSnapshot() {
    const std::vector<Access>& accesses = board.accesses;
    if (accesses.empty() || accesses.back().index != 0x21107 || accesses.size() == m_sentAt) return;
    m_sentAt = accesses.size();
    for (const Bytes& message : snapshot) board.messages.push_back(message);
}

std::vector<std::string> World::LogFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string World::LogText() const {
    std::ostringstream text;
    text << std::ifstream(directory.Path() / "vexa_shfe_md_20260429.log").rdbuf();
    return text.str();
}

std::vector<std::string> World::Troubles() const {
    std::vector<std::string> lines = LogLines();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) {
                                   return line.rfind("[WARNING]", 0) != 0 && line.rfind("[ERROR]", 0) != 0;
                               }),
                lines.end());
    return lines;
}

std::vector<std::string> World::LogLines() const {
    static const std::regex shape(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} (\[[A-Z]+\] )\[[A-Za-z0-9_]+\.(?:cpp|h):\d+\](\[\w+\])(.*))");
    static const std::regex address("frag_buf:0x[0-9a-f]+");
    static const std::regex build(R"(VERSION\[[A-Z][a-z][a-z] [ 1-3][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2} )");
    std::istringstream text(LogText());
    std::vector<std::string> lines;
    const uint32_t checksum = Crc32c([&] {
        std::ostringstream whole;
        whole << std::ifstream(file.Path()).rdbuf();
        return whole.str();
    }());
    char hexadecimal[9];
    std::snprintf(hexadecimal, sizeof hexadecimal, "%08x", checksum);
    for (std::string line; std::getline(text, line);) {
        line = std::regex_replace(line, shape, "$1$2$3");
        line = std::regex_replace(line, address, "frag_buf:<address>");
        line = std::regex_replace(line, build, "VERSION[<build> ");
        line = Without(line, directory.Path(), "<directory>");
        line = Without(line, file.Path(), "<file>");
        line = Without(line, "0x" + std::string(hexadecimal), "0x<checksum>");
        lines.push_back(Without(line, std::to_string(checksum), "<checksum>"));
    }
    return lines;
}

}  // namespace literal

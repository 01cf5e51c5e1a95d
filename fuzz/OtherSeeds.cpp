// Seeds of the targets whose inputs are short: what a session meets, one thing each.
#include <initializer_list>

#include "fuzz/Bytes.h"
#include "fuzz/SeedWriter.h"
#include "testing/IniText.h"

namespace fuzz {
namespace {

using Block = std::vector<uint8_t>;

// Answers of fuzz_start_up.
constexpr uint8_t RIGHT = 0;
constexpr uint8_t ALL_ONES = 4;
constexpr uint8_t FAILED = 6;
constexpr uint8_t ZERO = 7;
constexpr uint8_t POLL_FAILS = 1;
constexpr uint8_t EVENT = 2;
constexpr uint8_t STOP = 5;
constexpr uint8_t EXIT = 6;
constexpr uint8_t UPDATE = 8;
constexpr uint8_t LIE = 9;

void AddEvent(Block& bytes, std::initializer_list<uint32_t> data) {
    Put(bytes, EVENT);
    for (const uint32_t word : data) Put(bytes, word);
    bytes.insert(bytes.end(), (6 - data.size()) * sizeof(uint32_t), 0);
}

constexpr uint8_t POLLING = 0x80;

Block StartUpInput(uint8_t configuration, const Block& start, const Block& session) {
    Block bytes{configuration, 0};
    for (const Block& part : {start, session}) {
        Put(bytes, static_cast<uint16_t>(part.size()));
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
}

Block Repeated(std::size_t rights, uint8_t answer, std::size_t times) {
    Block bytes(rights, RIGHT);
    bytes.insert(bytes.end(), times, answer);
    return bytes;
}

/// An update, and an event behind which a rebuild takes the rest of the input.
Block EventfulSession(uint32_t word, uint32_t bits) {
    Block bytes{UPDATE};
    bytes.insert(bytes.end(), 176, 0x41);
    Block data(word * sizeof(uint32_t), 0);
    Put(data, bits);
    data.resize(6 * sizeof(uint32_t));
    bytes.push_back(EVENT);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

}  // namespace

void WriteStartUpSeeds(const std::string& folder) {
    int number = 0;
    const auto write = [&](uint8_t configuration, const Block& start, const Block& session) {
        WriteSeed(folder, std::to_string(number++), StartUpInput(configuration, start, session));
    };
    for (uint8_t configuration = 0; configuration < 4; ++configuration) {
        write(configuration, {}, {});
        write(configuration, {}, EventfulSession(0, 0x80));
        write(configuration | POLLING, {}, EventfulSession(0, 0x80));
    }
    for (uint32_t word = 0; word < 4; ++word) {
        for (const uint32_t bits : {0x40U, 0x0FU, 0x10U}) write(0, {}, EventfulSession(word, bits));
    }
    for (uint8_t answer = 0; answer < 9; ++answer) {
        for (uint8_t kind = 4; kind < 8; ++kind) {
            Block bytes{0, 1, answer, kind};
            Put(bytes, uint32_t{2});
            WriteSeed(folder, std::to_string(number++), bytes);
        }
    }
    write(0, {}, {POLL_FAILS, 255, STOP});
    write(0, Repeated(90, POLL_FAILS, 1000), {});
    Block lie{LIE};
    Put(lie, uint32_t{0x80000001U});
    for (const std::size_t rights : {0U, 1U, 2U, 4U, 8U, 12U, 18U, 25U}) {
        for (const uint8_t answer : {ALL_ONES, FAILED, ZERO}) write(0, Repeated(rights, answer, 1), {});
        write(0, Repeated(rights, FAILED, 2000), {});
    }
    // Behind the opening, the identity, the counters and the first registers come the polls.
    for (const std::size_t rights : {23U, 24U, 60U, 1100U}) {
        for (const uint8_t poll : {POLL_FAILS, STOP, EXIT}) write(0, Repeated(rights, poll, 3), {});
        Block ready(rights, RIGHT);
        AddEvent(ready, {0, 0, 1});
        write(0, ready, {});
        Block lying(rights, RIGHT);
        lying.insert(lying.end(), lie.begin(), lie.end());
        write(0, lying, {});
    }
    write(0, {}, {POLL_FAILS, 9, RIGHT, STOP});
    write(0, {}, {EXIT});
    for (const uint8_t answer : {FAILED, ZERO, ALL_ONES}) {
        Block loss;
        AddEvent(loss, {0x80});
        loss.insert(loss.end(), 7, RIGHT);
        loss.insert(loss.end(), 3000, answer);
        write(0, {}, loss);
    }
}

// ---- served_board ---------------------------------------------------------------------------------------------------

void WriteServedBoardSeeds(const std::string& folder) {
    constexpr uint8_t SERVE = 0;
    constexpr uint8_t POLL = 1;
    constexpr uint8_t POKE = 2;
    constexpr uint8_t READ = 3;
    constexpr uint8_t WRITE = 4;
    constexpr uint8_t COMMAND = 5;
    constexpr uint8_t OPEN = 6;
    constexpr uint8_t END = 7;
    constexpr uint8_t ANEW = 8;
    constexpr uint8_t LOOK = 9;
    Block live{0};
    // A bring-up, the snapshot phase, and the engines, with polls between them.
    for (const uint8_t command : {0, 1, 2, 3, 4}) {
        live.insert(live.end(), {COMMAND, command, SERVE, SERVE});
        live.insert(live.end(), 20, POLL);
    }
    const auto write = [&](const std::string& name, const Block& tail) {
        Block bytes = live;
        bytes.insert(bytes.end(), tail.begin(), tail.end());
        WriteSeed(folder, name, bytes);
    };
    write("live", {LOOK, OPEN, LOOK});
    write("ended", {END, POLL, POLL, POLL, READ, 0, 0x30, 0, 0, WRITE, 0, 0x30, 0, 0, 1, 0, 0, 0, LOOK, OPEN});
    Block accesses;
    for (uint8_t first = 0; first < 8; ++first) {
        for (uint8_t index = 0; index < 80; index = static_cast<uint8_t>(index < 9 ? index + 1 : index + 20)) {
            accesses.insert(accesses.end(), {READ, first, 0, index, 0, WRITE, first, 0, index, 0, index, 0, 0, 0});
        }
    }
    // In the snapshot phase, in which the tables are open.
    Block early{0, COMMAND, 0, SERVE, SERVE, COMMAND, 1, SERVE};
    early.insert(early.end(), accesses.begin(), accesses.end());
    WriteSeed(folder, "accesses", early);
    Block anew{ANEW};
    anew.insert(anew.end(), 200, POLL);
    anew.insert(anew.end(), {READ, 0, 0x30, 0, 0});
    write("anew", anew);
    for (uint8_t place = 0; place < 8; ++place) {
        for (uint8_t word = 0; word < 4; ++word) {
            Block poke{POKE};
            Put(poke, static_cast<uint32_t>(place + 8 * word));
            Put(poke, uint32_t{0x80000FFFU});
            poke.insert(poke.end(), {SERVE, POLL, POLL, OPEN, POLL, LOOK, READ, 0x32, 0x20, 0, 0});
            write("poke-" + std::to_string(place) + "-" + std::to_string(word), poke);
        }
    }
    for (const uint32_t begin : {0U, 16380U, 16383U}) {
        Block ring{1};
        Put(ring, begin);
        for (int i = 0; i < 30; ++i)
            ring.insert(ring.end(), {0, static_cast<uint8_t>(i * 9), static_cast<uint8_t>(i), 1});
        for (int i = 1; i < 31; ++i) {
            ring.insert(ring.end(), {3});
            Put(ring, static_cast<uint32_t>(4 * (16379 + i) + 1));
            Put(ring, 0x80000800U + static_cast<uint32_t>(i % 3));
            ring.push_back(1);
        }
        WriteSeed(folder, "ring-" + std::to_string(begin), ring);
    }
}

// ---- market_data ----------------------------------------------------------------------------------------------------

void WriteMarketDataSeeds(const std::string& folder) {
    int number = 0;
    constexpr uint8_t MESSAGE_UPDATE = 0;
    constexpr uint8_t MESSAGE_EVENT = 1;
    constexpr uint8_t MESSAGE_BYTES = 2;
    for (uint8_t options = 0; options < 16; ++options) {
        for (const uint16_t minute : {600, 900, 960, 535}) {
            for (uint32_t word = 0; word < 4; ++word) {
                Block bytes{options};
                Put(bytes, minute);
                bytes.push_back(MESSAGE_UPDATE);
                for (uint8_t i = 0; i < 176; ++i) bytes.push_back(static_cast<uint8_t>(i + 1));
                bytes.push_back(MESSAGE_EVENT);
                Block data(word * sizeof(uint32_t), 0);
                Put(data, uint32_t{minute == 600 ? 0x80U : minute == 535 ? 0x01U : 0x40U});
                data.resize(6 * sizeof(uint32_t));
                bytes.insert(bytes.end(), data.begin(), data.end());
                bytes.insert(bytes.end(), {MESSAGE_BYTES, 2, 0, 1, 0, MESSAGE_UPDATE});
                bytes.insert(bytes.end(), 176, 0x5A);
                WriteSeed(folder, std::to_string(number++), bytes);
            }
        }
    }
    // A time-out in each first and last quiet minute, and in those before and behind.
    for (const uint16_t time :
         {229,  230,  231,  854,  855,  900,  901,  1014, 1015, 1016, 1024, 1025, 1030, 1031, 1129,
          1130, 1131, 1324, 1325, 1330, 1331, 1459, 1500, 1559, 1600, 2054, 2055, 2100, 2101}) {
        Block bytes{0};
        Put(bytes, static_cast<uint16_t>(time / 100 * 60 + time % 100));
        bytes.push_back(MESSAGE_EVENT);
        Put(bytes, uint32_t{0x40});
        WriteSeed(folder, "quiet-" + std::to_string(time), bytes);
    }
}

// ---- ini ------------------------------------------------------------------------------------------------------------

namespace {
constexpr const char* INI_KEYS[] = {"log_level",
                                    "cpucore",
                                    "board_id",
                                    "last_tick_channel",
                                    "DSTPORT",
                                    "SRCPORT",
                                    "TARGETROUTE",
                                    "crc_mux_check",
                                    "repeat_quote_upload",
                                    "price_protect_event_mask",
                                    "debug_flag",
                                    "error_instno",
                                    "error_case",
                                    "error_limit_parts",
                                    "dma_sleep",
                                    "model_sel",
                                    "event_model_sel",
                                    "shield_price_check",
                                    "dma_data_flag",
                                    "wait_snap_timeout",
                                    "init_tcpcnt",
                                    "shfe2ps",
                                    "ine2ps",
                                    "DSTMAC",
                                    "DSTIP",
                                    "SRCMAC",
                                    "SRCIP",
                                    "log_path",
                                    "shfe2ps_ip_a",
                                    "shfe2ps_ip_b",
                                    "shfe4ps_ip_a",
                                    "shfe4ps_ip_b",
                                    "ine2ps_ip_a",
                                    "ine2ps_ip_b",
                                    "ine4ps_ip_a",
                                    "ine4ps_ip_b",
                                    "shfe2ps_topic_id",
                                    "shfe4ps_topic_id",
                                    "ine2ps_topic_id",
                                    "ine4ps_topic_id",
                                    "shfe2ps_snap_port",
                                    "shfe4ps_snap_port",
                                    "ine2ps_snap_port",
                                    "ine4ps_snap_port",
                                    "shfe2ps_max_inst_no",
                                    "shfe4ps_max_inst_no",
                                    "ine2ps_max_inst_no",
                                    "ine4ps_max_inst_no"};
}  // namespace

void WriteIniSeeds(const std::string& folder) {
    int number = 0;
    const auto write = [&](const std::string& text) {
        WriteSeed(folder, std::to_string(number++), Block(text.begin(), text.end()));
    };
    std::string repeated = "[config]\n";
    for (const char* value : {"1", "enabled", "-1", "70000", "99999999999999999999", " +12x # comment", "0x10", ""}) {
        IniText text;
        text.Section("config").Device(2, 0);
        for (const char* key : INI_KEYS) text.Line(std::string(key) + " = " + value);
        for (int channel = 0; channel < 16; ++channel) {
            text.Section("channel" + std::to_string(channel)).Key("insts", channel % 2 == 0 ? "all" : "cu,sc2612");
            text.Key("options", channel % 3 == 0 ? "recv" : value);
        }
        write(text.Text());
        repeated += text.Text();
    }
    write(repeated);
    for (const char* device : {"xilinx3:5", "xilinx", "xilinx1", "xilinx1:", "xilinx 1: 2", "xilinx-1:-0", "card0:0"}) {
        write(IniText().Section("config").Key("device", device).Text());
    }
    write("[config]\ninsts=a\n]odd[\nkey=1\n[channel1]\r\ninsts=" + std::string(5000, 'c') + "\n x=[1]\n=\n#\n");
}

}  // namespace fuzz

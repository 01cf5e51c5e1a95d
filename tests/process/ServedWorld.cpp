#include "tests/process/ServedWorld.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "exchange/Exchange.h"
#include "testing/IniText.h"

using software_board::Load;

namespace {
constexpr uint32_t MAX_INST_NO[] = {81000, 81101, 85000, 85101};

common_clock::Clock* MapClock(const std::string& path) {
    constexpr std::size_t BYTES = sizeof(common_clock::Clock);
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, BYTES) != 0) throw std::runtime_error("no file " + path);
    void* shared = mmap(nullptr, BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared == MAP_FAILED) throw std::runtime_error("cannot map " + path);
    return static_cast<common_clock::Clock*>(shared);
}
}  // namespace

std::size_t Reader::Count() const {
    std::error_code none;
    const auto bytes = std::filesystem::file_size(records, none);
    return none ? 0 : bytes / sizeof(VexaShfeMdType);
}

std::vector<VexaShfeMdType> Reader::Records() const {
    std::ifstream file(records, std::ios::binary);
    std::vector<VexaShfeMdType> read(Count());
    file.read(reinterpret_cast<char*>(read.data()), static_cast<std::streamsize>(read.size() * sizeof(VexaShfeMdType)));
    return read;
}

ServedWorld::ServedWorld(uint16_t busNumber) : bus(busNumber) {
    m_clock = MapClock(Path("clock"));
    WriteConfig("");
}

ServedWorld::~ServedWorld() {
    server.reset();
    munmap(m_clock, sizeof *m_clock);
    std::filesystem::remove(software_board::SharedBoardPath(bus));
}

void ServedWorld::TellWhatTheProcessesSaid(std::size_t bytes) const {
    for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
        const std::string name = entry.path().filename().string();
        if (name == "clock" || name.find("_records") != std::string::npos || entry.path().extension() == ".ini")
            continue;
        std::ifstream file(entry.path());
        const std::string said{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::cout << "---- " << name << "\n" << said.substr(said.size() - std::min(said.size(), bytes)) << "\n";
    }
}

std::string ServedWorld::Log(int channel) const {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("channel" + std::to_string(channel) + "_vexa", 0) != 0) continue;
        std::ifstream file(entry.path());
        text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return text;
}

void ServedWorld::WriteConfig(const std::string& comment) const {
    static constexpr const char* LISTS[] = {"all", "cu,al", "sc", "zn", "ru,rb,sc"};
    for (int channel = 0; channel < CHANNEL_SIZE; ++channel) {
        const std::string name = "channel" + std::to_string(channel);
        IniText text;
        text.Line("; " + comment).Section("config").Key("log_path", Path(name + "_")).Key("log_level", 7);
        text.Device(bus, channel).Enabled("shfe2ps").Enabled("ine2ps");
        text.Key("SRCIP", "10.20.0.2").Key("crc_mux_check", 1);
        for (int listed = 0; listed < CHANNEL_SIZE; ++listed) text.Channel(listed, LISTS[listed % 5], listed % 2 == 0);
        directory.Write(name + ".ini", text.Text());
    }
}

std::vector<std::string> ServedWorld::Environment() const {
    return {"LD_PRELOAD=" COMMON_CLOCK_LIBRARY, "COMMON_CLOCK=" + Path("clock"), "VEXA_BOARD_PROVIDER=software:shared"};
}

std::unique_ptr<ChildProcess> ServedWorld::RunBoard(std::vector<std::string> arguments,
                                                    const std::string& output) const {
    arguments.insert(arguments.begin(), BOARD_TOOL);
    arguments.insert(arguments.end(), {"--bus", std::to_string(bus)});
    return std::make_unique<ChildProcess>(arguments, Environment(), Path(output));
}

bool ServedWorld::Serve(const std::string& rate, const std::string& instruments) {
    server =
        RunBoard({"serve", "--seed", std::to_string(SEED), "--instruments", instruments, "--rate", rate}, "serve.out");
    std::string error;
    return WaitUntil([&] { return board.Attach(bus, true, error); });
}

Reader ServedWorld::RunReader(int channel, const std::string& slowness) {
    const std::string name = "channel" + std::to_string(channel);
    Reader reader;
    reader.records = Path(name + "_records" + std::to_string(++m_readers));
    reader.process =
        std::make_unique<ChildProcess>(std::vector<std::string>{READER, Path(name + ".ini"), reader.records, slowness},
                                       Environment(), Path(name + ".out"));
    return reader;
}

void ServedWorld::Pass(double seconds) const {
    const double end = Seconds() + seconds;
    WaitUntil([&] { return Seconds() >= end; });
}

bool ServedWorld::IsLive() const {
    return Load(board->memory.registers.phase) == static_cast<uint32_t>(software_board::EBoardPhase::Live);
}

uint64_t ServedWorld::BringUps() const { return Load(board->memory.statistics.bringUps); }

uint64_t ServedWorld::Updates() const { return Load(board->memory.statistics.liveUpdates); }

ServedWorld::Truth ServedWorld::TruthUpTo(uint64_t updates) const {
    exchange::ExchangeOptions options;
    options.seed = SEED;
    options.shfeInstruments = static_cast<int32_t>(board->instruments[SHFE_2PS]);
    options.ineInstruments = static_cast<int32_t>(board->instruments[INE_2PS]);
    exchange::Exchange market(options);
    Truth truth;
    for (uint64_t i = 0; i < updates; ++i) {
        const exchange::LiveUpdate update = market.Next();
        VexaShfeMdType record = market.Truth(update.feed, update.instNo);
        record.max_inst_no = MAX_INST_NO[update.feed];
        truth.emplace(std::make_pair(std::string(record.inst_id), record.change_no), record);
    }
    return truth;
}

ServedWorld::Verdict ServedWorld::Judge(const Reader& reader, const Truth& truth) {
    Verdict verdict;
    std::map<std::string, uint32_t> last;
    for (const VexaShfeMdType& record : reader.Records()) {
        const auto found = truth.find({record.inst_id, record.change_no});
        if (found == truth.end() || std::memcmp(&found->second, &record, sizeof record) != 0) ++verdict.wrong;
        uint32_t& before = last[record.inst_id];
        if (before != 0 && record.change_no <= before) ++verdict.back;
        if (before != 0 && record.change_no > before + 1) ++verdict.gaps;
        before = record.change_no;
    }
    return verdict;
}

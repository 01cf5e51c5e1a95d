#include "tests/session/FailingSession.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>

#include "public/log/CommonLog.h"
#include "public/write_shot/write_shot.h"

namespace fs = std::filesystem;

namespace failing {

namespace {

constexpr std::size_t BIN_HEAD_BYTES = 16;
constexpr std::size_t PCAP_HEAD_BYTES = 24;

std::string Content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::ptrdiff_t OpenFiles() {
    const fs::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
}

software_board::BoardOptions FewInstruments() {
    software_board::BoardOptions options = WithFaults("reorder");
    options.exchange.shfeInstruments = 3;
    options.exchange.ineInstruments = 8;
    return options;
}

/// Seconds, or their lower half, and nanoseconds or the upper one.
uint64_t FirstTime(const std::string& content, std::size_t head) {
    uint32_t parts[2] = {};
    if (content.size() >= head + sizeof parts) std::memcpy(parts, content.data() + head, sizeof parts);
    if (head == PCAP_HEAD_BYTES) return uint64_t{parts[0]} * 1'000'000'000 + parts[1];
    return uint64_t{parts[1]} << 32 | parts[0];
}

/// The bodies; what is behind the last whole record is a failure.
void TakeRecords(const std::string& content, std::size_t head, Lines& records) {
    std::size_t at = head;
    EXPECT_GE(content.size(), at) << "a capture without its head";
    while (at + 16 <= content.size()) {
        uint32_t length = 0;
        std::memcpy(&length, content.data() + at + 8, sizeof length);
        at += 16;
        EXPECT_LE(at + length, content.size()) << "a cut record";
        const std::string body = content.substr(std::min(at, content.size()), length);
        records.push_back(std::to_string(length) + " bytes, hash " + std::to_string(std::hash<std::string>{}(body)));
        at += length;
    }
    EXPECT_EQ(at, content.size()) << "a cut record";
}

}  // namespace

FailingSession::FailingSession() : world(FewInstruments()), m_directory(TestableApi::s_indexDirectory) {
    setenv("TZ", "UTC", 1);
    tzset();
    CCommonLog::GetInstance().SetSink(nullptr);
    world.configKeys =
        "ine2ps=enabled\nshfe2ps=disabled\ndma_data_flag=1\nwait_snap_timeout=5\nlog_level=15\n"
        "cpucore=" +
        std::to_string(sched_getcpu()) + "\n";
    LogTo("");
    m_openFiles = OpenFiles();
    LogTo(m_directory + "/before_");
}

Sight FailingSession::Run() {
    const uint64_t linesBefore = CCommonLog::GetInstance().DroppedLines();
    const uint64_t recordsBefore = CWriteShot::GetInstance().GetDroppedCnt();
    Sight sight;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        const FailingCalls::Watch watch;
        sight.start = world.Start(Delivery::Callback);
        sight.isWhole = sight.start == 0 && LiveALossAndStop();
        CWriteShot::GetInstance().CloseShotBinLog();
        CWriteShot::GetInstance().CloseShotPcapLog();
    }
    sight.error = Nameless(testing::internal::GetCapturedStderr());
    sight.told = Nameless(testing::internal::GetCapturedStdout());
    sight.linesDropped = CCommonLog::GetInstance().DroppedLines() - linesBefore;
    sight.recordsDropped = CWriteShot::GetInstance().GetDroppedCnt() - recordsBefore;
    LookAtFiles(sight);
    return sight;
}

bool FailingSession::StartsAgain() {
    for (const auto& entry : fs::directory_iterator(m_directory)) fs::remove(entry.path());
    FailingCalls::Forget();
    testing::internal::CaptureStderr();
    const bool isReceiving = world.Start(Delivery::Callback) == 0 && world.Receive(20);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    Sight sight;
    LookAtFiles(sight);
    for (const std::string& line : sight.log) {
        EXPECT_TRUE(line.find("[ERROR]") == std::string::npos) << line;
    }
    EXPECT_GT(sight.log.size(), 50U);
    EXPECT_EQ(sight.captureFiles, 2U);
    return isReceiving && sight.hasIndex;
}

std::ptrdiff_t FailingSession::FilesLeftOpen() {
    world.api.reset();
    CWriteShot::GetInstance().CloseShotBinLog();
    CWriteShot::GetInstance().CloseShotPcapLog();
    LogTo("");
    return OpenFiles() - m_openFiles;
}

bool FailingSession::LiveALossAndStop() {
    if (!world.Receive(20)) return false;
    world.board.LosePackets(1);
    while (world.api->m_isAllInitFinished) {
        if (world.Step() == -1) return false;
    }
    if (!world.Receive(20)) return false;
    world.api->VexaStop();
    return world.Step() == -1 && world.Step() == -1;
}

void FailingSession::LogTo(const std::string& path) {
    CCommonLog::GetInstance().SetLogPath(path.c_str());
    CCommonLog::GetInstance().SetLogLevel(LOG_DEBUG_EX);
    testing::internal::CaptureStderr();
    CCommonLog::GetInstance().WriteLog(LOG_DEBUG_EX, "the log is elsewhere");
    testing::internal::GetCapturedStderr();
    CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
}

std::string FailingSession::Nameless(std::string text) const {
    for (std::size_t at = text.find(m_directory); at != std::string::npos; at = text.find(m_directory)) {
        text.replace(at, m_directory.size(), "<dir>");
    }
    // An address, and what depends on the directory's name: the checksum of the configuration.
    for (const char* const own : {"frag_buf:0x", "addr[0x1001] value[", "configCrc["}) {
        if (const std::size_t at = text.find(own); at != std::string::npos) text.resize(at);
    }
    if (text.find("chan0_2") == std::string::npos) return text;
    return std::regex_replace(text, std::regex("chan0_\\d{8}_\\d{6}_\\d+(_\\d+)?"), "chan0_<time>");
}

void FailingSession::LookAtFiles(Sight& sight) const {
    std::map<uint64_t, std::string> bins;  // by the time of their first record
    std::map<uint64_t, std::string> pcaps;
    for (const auto& entry : fs::directory_iterator(m_directory)) {
        const std::string name = entry.path().filename();
        const std::string content = Content(entry.path());
        if (name.starts_with("vexa_shfe_md_2")) {
            TakeLog(content, sight.log);
        } else if (name.ends_with(".bin")) {
            bins[FirstTime(content, BIN_HEAD_BYTES)] = content;
        } else if (name.ends_with(".pcap")) {
            pcaps[FirstTime(content, PCAP_HEAD_BYTES)] = content;
        } else if (name == ".shfe_20260429_pm") {
            sight.hasIndex = content.starts_with("contract_no,");
        } else if (name != "session.ini" && !name.starts_with("before_")) {
            sight.others.push_back(name);
        }
    }
    sight.captureFiles = bins.size() + pcaps.size();
    for (const auto& [time, content] : bins) TakeRecords(content, BIN_HEAD_BYTES, sight.captures);
    for (const auto& [time, content] : pcaps) TakeRecords(content, PCAP_HEAD_BYTES, sight.captures);
}

void FailingSession::TakeLog(const std::string& content, Lines& lines) const {
    EXPECT_TRUE(content.empty() || content.back() == '\n');
    constexpr std::size_t TIME_LENGTH = sizeof "2026-04-29 22:00:00.123456";
    std::size_t begin = 0;
    for (std::size_t end; (end = content.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::string line = content.substr(begin, end - begin);
        const std::size_t place = line.find("] [");
        const std::size_t text = line.find("][");
        const bool isWhole = line.size() > TIME_LENGTH && line[TIME_LENGTH] == '[' && place < text;
        EXPECT_TRUE(isWhole && line.find("2026-04-29 22:", TIME_LENGTH) == std::string::npos) << line;
        if (isWhole) {
            lines.push_back(line.substr(TIME_LENGTH, place + 2 - TIME_LENGTH) + Nameless(line.substr(text + 1)));
        }
    }
}

std::vector<Call> WithReasons(const std::vector<MadeCall>& made) {
    std::vector<Call> calls;
    std::map<ECall, uint64_t> counts;
    std::set<std::string> begun;
    int iniOpens = 0;
    int seeks = 0;
    const auto reasonOf = [&](const MadeCall& one) {
        if (one.call == ECall::Sigaction) return EFor::Signal;
        if (one.call == ECall::SetAffinity) return EFor::Cpu;
        if (one.call == ECall::Getrandom) return EFor::Name;
        const std::string name = fs::path(one.path).filename();
        if (name == "session.ini") {
            iniOpens += one.call == ECall::Open ? 1 : 0;
            if (one.call == ECall::Lseek && ++seeks == 3)
                return EFor::Rewind;  // to the end, where is that, to the start
            return iniOpens == 1 ? EFor::Ini : EFor::Checksum;
        }
        if (name.ends_with(".log")) return EFor::Log;
        if (name.starts_with(".shfe_")) return name == ".shfe_20260429_pm" ? EFor::Index : EFor::IndexBeside;
        const bool isHead = one.call == ECall::Write && begun.insert(one.path).second;
        if (name.ends_with(".bin")) return isHead ? EFor::BinHead : EFor::Bin;
        EXPECT_TRUE(name.ends_with(".pcap")) << NAMES_OF_CALLS[static_cast<std::size_t>(one.call)] << ' ' << one.path;
        return isHead ? EFor::PcapHead : EFor::Pcap;
    };
    calls.reserve(made.size());
    for (const MadeCall& one : made) calls.push_back({one.call, ++counts[one.call], reasonOf(one)});
    return calls;
}

}  // namespace failing

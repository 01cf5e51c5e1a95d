// Every system call of a start, a loss, a rebuild and a stop fails in each way it can. A table says what comes of it,
// by call and by what the call is for; a session without failures is the measure of everything else that is seen.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <random>
#include <regex>
#include <set>

#include "public/log/CommonLog.h"
#include "public/write_shot/write_shot.h"
#include "tests/support/FailingCalls.h"
#include "tests/support/SessionWorld.h"

using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr int PART = FailingCalls::PART;
constexpr int CUT = -2;  // a part, and no room for the rest

// A session makes hundreds of writes: of so many calls for one thing some are taken, always the same.
constexpr std::size_t CALLS_MAX = 10;
constexpr uint64_t SEED = 20260430;

constexpr std::size_t BIN_HEAD_BYTES = 16;
constexpr std::size_t PCAP_HEAD_BYTES = 24;

/// What a call is for.
enum class EFor { Ini, Checksum, Rewind, Log, BinHead, Bin, PcapHead, Pcap, IndexBeside, Index, Signal, Cpu, Name };

enum class ESeen {
    Nothing,          ///< neither in what is told nor in what is there
    NoConfiguration,  ///< the start is refused: the file cannot be read
    NoChecksum,       ///< the start is refused: -1 of the checksum
    EmptyChecksum,    ///< -2
    ShortChecksum,    ///< -4
    NoLog,            ///< told once on standard error
    LineLost,         ///< the same, and of the log one line
    NoCapture,        ///< one error line, and of the captures one file
    HeadLost,         ///< the same
    RecordLost,       ///< one error line, and of the captures one record
    NoIndex,          ///< one warning
    NoSignal,         ///< one error line
    NotPinned,        ///< one warning
};

struct Rule {
    ECall call;
    EFor reason;
    std::vector<int> errors;
    ESeen seen;
};

const std::vector<int> OPENING{EACCES, ENOENT, EMFILE, ENFILE, ENOMEM, EINTR, EIO, ENOSPC, EROFS, EDQUOT};
const std::vector<int> READING{EACCES, ENOENT, EMFILE, ENFILE, ENOMEM, EINTR, EIO};
const std::vector<int> LOOKING{EIO, ENOMEM, EOVERFLOW};
const std::vector<int> WRITING{ENOSPC, EDQUOT, EIO, EFBIG, EAGAIN, CUT};
const std::vector<int> SOME{EINTR, PART};
const std::vector<int> CLOSING{EIO, EINTR, ENOSPC, EDQUOT};
const std::vector<int> REPLACING{EACCES, EPERM, EIO, ENOSPC, EBUSY, EXDEV};

const Rule RULES[] = {
    {ECall::Open, EFor::Ini, READING, ESeen::NoConfiguration},
    {ECall::Fstat, EFor::Ini, LOOKING, ESeen::NoConfiguration},
    {ECall::Read, EFor::Ini, {EIO, EISDIR, EAGAIN}, ESeen::NoConfiguration},
    {ECall::Read, EFor::Ini, SOME, ESeen::Nothing},
    {ECall::Close, EFor::Ini, CLOSING, ESeen::Nothing},

    {ECall::Open, EFor::Checksum, READING, ESeen::NoChecksum},
    {ECall::Fstat, EFor::Checksum, LOOKING, ESeen::NoChecksum},
    {ECall::Fdopen, EFor::Checksum, {ENOMEM, EINVAL}, ESeen::NoChecksum},
    {ECall::Lseek, EFor::Checksum, {EIO, ESPIPE, EOVERFLOW}, ESeen::EmptyChecksum},
    {ECall::Lseek, EFor::Rewind, {EIO, ESPIPE, EOVERFLOW}, ESeen::ShortChecksum},
    {ECall::Read, EFor::Checksum, {EIO, EINTR, EAGAIN}, ESeen::ShortChecksum},
    {ECall::Read, EFor::Checksum, {PART}, ESeen::Nothing},
    {ECall::Close, EFor::Checksum, CLOSING, ESeen::Nothing},

    {ECall::Open, EFor::Log, OPENING, ESeen::NoLog},
    {ECall::Fstat, EFor::Log, LOOKING, ESeen::NoLog},
    {ECall::Dup3, EFor::Log, {EBUSY, EINTR, EMFILE}, ESeen::Nothing},
    {ECall::Close, EFor::Log, CLOSING, ESeen::Nothing},
    {ECall::Write, EFor::Log, WRITING, ESeen::LineLost},
    {ECall::Write, EFor::Log, SOME, ESeen::Nothing},

    {ECall::Open, EFor::Bin, OPENING, ESeen::NoCapture},
    {ECall::Open, EFor::Bin, {EEXIST}, ESeen::Nothing},
    {ECall::Fstat, EFor::Bin, LOOKING, ESeen::NoCapture},
    {ECall::Write, EFor::BinHead, WRITING, ESeen::HeadLost},
    {ECall::Write, EFor::BinHead, SOME, ESeen::Nothing},
    {ECall::Write, EFor::Bin, WRITING, ESeen::RecordLost},
    {ECall::Write, EFor::Bin, SOME, ESeen::Nothing},
    {ECall::Close, EFor::Bin, CLOSING, ESeen::Nothing},

    {ECall::Open, EFor::Pcap, OPENING, ESeen::NoCapture},
    {ECall::Open, EFor::Pcap, {EEXIST}, ESeen::Nothing},
    {ECall::Fstat, EFor::Pcap, LOOKING, ESeen::NoCapture},
    {ECall::Write, EFor::PcapHead, WRITING, ESeen::HeadLost},
    {ECall::Write, EFor::PcapHead, SOME, ESeen::Nothing},
    {ECall::Write, EFor::Pcap, WRITING, ESeen::RecordLost},
    {ECall::Write, EFor::Pcap, SOME, ESeen::Nothing},
    {ECall::Close, EFor::Pcap, CLOSING, ESeen::Nothing},

    {ECall::Lstat, EFor::Index, {EACCES, EIO, ENOMEM, EOVERFLOW}, ESeen::NoIndex},
    {ECall::Getrandom, EFor::Name, {EAGAIN, ENOSYS, PART}, ESeen::Nothing},
    {ECall::Open, EFor::IndexBeside, OPENING, ESeen::NoIndex},
    {ECall::Open, EFor::IndexBeside, {EEXIST}, ESeen::Nothing},
    {ECall::Write, EFor::IndexBeside, WRITING, ESeen::NoIndex},
    {ECall::Write, EFor::IndexBeside, SOME, ESeen::Nothing},
    {ECall::Close, EFor::IndexBeside, CLOSING, ESeen::NoIndex},
    {ECall::Rename, EFor::IndexBeside, REPLACING, ESeen::NoIndex},

    {ECall::Sigaction, EFor::Signal, {EINVAL}, ESeen::NoSignal},
    {ECall::SetAffinity, EFor::Cpu, {EINVAL, EPERM}, ESeen::NotPinned},
};

// ---- what calls are for ---------------------------------------------------------------------------------------------

struct Call {
    ECall call;
    uint64_t number;  ///< of its kind, from 1
    EFor reason;
};

/// The same, in order, for every session.
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
        if (name.starts_with(".shfe_")) return name.ends_with("m") ? EFor::Index : EFor::IndexBeside;
        const bool isHead = one.call == ECall::Write && begun.insert(one.path).second;
        if (name.ends_with(".bin")) return isHead ? EFor::BinHead : EFor::Bin;
        EXPECT_TRUE(name.ends_with(".pcap")) << NAMES_OF_CALLS[static_cast<std::size_t>(one.call)] << ' ' << one.path;
        return isHead ? EFor::PcapHead : EFor::Pcap;
    };
    for (const MadeCall& one : made) calls.push_back({one.call, ++counts[one.call], reasonOf(one)});
    return calls;
}

// ---- a session ------------------------------------------------------------------------------------------------------

/// All that can be seen of a session from outside.
struct Sight {
    int32_t start = 99;
    bool isWhole = false;  ///< received, rebuilt after a loss, received again, and ended on the stop
    std::string told;      ///< on standard output
    std::string error;     ///< on standard error
    Lines log;
    Lines captures;  ///< the bodies of all records, file by file
    std::size_t captureFiles = 0;
    bool hasIndex = false;
    Lines others;  ///< files that nobody should find
    uint64_t linesDropped = 0;
    uint64_t recordsDropped = 0;
};

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

class FailingSession {
public:
    FailingSession() : world(FewInstruments()), m_directory(TestableApi::s_indexDirectory) {
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
    ~FailingSession() { LogTo(""); }
    FailingSession(const FailingSession&) = delete;
    FailingSession& operator=(const FailingSession&) = delete;

    /// Start, loss, rebuild and stop under the failures that were asked for.
    Sight Run() {
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

    /// A start on the same object after all that; all files of the first one are gone.
    bool StartsAgain() {
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

    /// Of the session and its log, with everything closed.
    std::ptrdiff_t FilesLeftOpen() {
        world.api.reset();
        CWriteShot::GetInstance().CloseShotBinLog();
        CWriteShot::GetInstance().CloseShotPcapLog();
        LogTo("");
        return OpenFiles() - m_openFiles;
    }

private:
    bool LiveALossAndStop() {
        if (!world.Receive(20)) return false;
        world.board.LosePackets(1);
        while (world.api->m_isAllInitFinished) {
            if (world.Step() == -1) return false;
        }
        if (!world.Receive(20)) return false;
        world.api->VexaStop();
        return world.Step() == -1 && world.Step() == -1;
    }

    static void LogTo(const std::string& path) {
        CCommonLog::GetInstance().SetLogPath(path.c_str());
        CCommonLog::GetInstance().SetLogLevel(LOG_DEBUG_EX);
        testing::internal::CaptureStderr();
        CCommonLog::GetInstance().WriteLog(LOG_DEBUG_EX, "the log is elsewhere");
        testing::internal::GetCapturedStderr();
        CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
    }

    std::string Nameless(std::string text) const {
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

    void LookAtFiles(Sight& sight) const {
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

    /// Seconds, or their lower half, and nanoseconds or the upper one.
    static uint64_t FirstTime(const std::string& content, std::size_t head) {
        uint32_t parts[2] = {};
        if (content.size() >= head + sizeof parts) std::memcpy(parts, content.data() + head, sizeof parts);
        if (head == PCAP_HEAD_BYTES) return uint64_t{parts[0]} * 1'000'000'000 + parts[1];
        return uint64_t{parts[1]} << 32 | parts[0];
    }

    /// Without the times in front; every line is whole.
    void TakeLog(const std::string& content, Lines& lines) const {
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

    /// The bodies; what is behind the last whole record is a failure.
    static void TakeRecords(const std::string& content, std::size_t head, Lines& records) {
        std::size_t at = head;
        EXPECT_GE(content.size(), at) << "a capture without its head";
        while (at + 16 <= content.size()) {
            uint32_t length = 0;
            std::memcpy(&length, content.data() + at + 8, sizeof length);
            at += 16;
            EXPECT_LE(at + length, content.size()) << "a cut record";
            const std::string body = content.substr(std::min(at, content.size()), length);
            records.push_back(std::to_string(length) + " bytes, hash " +
                              std::to_string(std::hash<std::string>{}(body)));
            at += length;
        }
        EXPECT_EQ(at, content.size()) << "a cut record";
    }

    SessionWorld world;
    std::string m_directory;
    std::ptrdiff_t m_openFiles = 0;
};

// ---- what comes of it -----------------------------------------------------------------------------------------------

/// `seen` is `whole` without `lost` of its elements, and with `added` among them, in this order.
void ExpectChanged(const Lines& whole, const Lines& seen, std::size_t lost, const Lines& added) {
    Lines extra;
    std::size_t at = 0;
    std::size_t missing = 0;
    for (const std::string& one : seen) {
        const std::size_t reach = std::min(whole.size(), at + lost - std::min(lost, missing) + 1);
        std::size_t match = at;
        while (match < reach && whole[match] != one) ++match;
        if (match == reach) {
            extra.push_back(one);
        } else {
            missing += match - at;
            at = match + 1;
        }
    }
    missing += whole.size() - at;
    EXPECT_EQ(extra, added);
    EXPECT_EQ(missing, lost);
}

bool IsRefusal(ESeen seen) {
    return seen == ESeen::NoConfiguration || seen == ESeen::NoChecksum || seen == ESeen::EmptyChecksum ||
           seen == ESeen::ShortChecksum;
}

void ExpectRefused(const Sight& sight, ESeen seen) {
    EXPECT_EQ(sight.start, -2);
    EXPECT_EQ(sight.error, "");
    EXPECT_EQ(sight.captureFiles, 0U);
    EXPECT_FALSE(sight.hasIndex);
    const auto isTrouble = [](const std::string& line) {
        return line.starts_with("[ERROR]") || line.starts_with("[WARNING]");
    };
    Lines troubles;
    std::copy_if(sight.log.begin(), sight.log.end(), std::back_inserter(troubles), isTrouble);
    const std::string init = "[ERROR] [VexaStart]_Init error";
    if (seen == ESeen::NoConfiguration) {
        EXPECT_EQ(sight.told, "ReadConfig is <dir>/session.ini failed \nInit, _ReadConfig failed \n");
        EXPECT_THAT(sight.log, IsEmpty());  // it goes where the log went before
        return;
    }
    EXPECT_EQ(sight.told, "");
    const std::string why = seen == ESeen::NoChecksum      ? "Error opening file [<dir>/session.ini] [4294967295]."
                            : seen == ESeen::EmptyChecksum ? "file is empty [<dir>/session.ini] [4294967294]."
                                                           : "error reading certificate file[<dir>/session.ini] "
                                                             "[4294967292].";
    EXPECT_THAT(troubles,
                testing::ElementsAre("[ERROR] [_GetConfigCrc]" + why,
                                     "[ERROR] [_ChechAndVexaSubDmaUp]Error opening file [<dir>/session.ini].", init));
}

struct Filter {
    ECall call;
    std::optional<EFor> reason;
};

class FailingCallsTable : public testing::Test {
protected:
    ~FailingCallsTable() override { FailingCalls::Forget(); }

    static Sight Undisturbed() {
        FailingCalls::Forget();
        FailingSession session;
        return session.Run();
    }

    void ExpectSeen(const Sight& sight, ESeen seen, const Call& call, const std::string& reason) const {
        if (IsRefusal(seen)) return ExpectRefused(sight, seen);
        EXPECT_EQ(sight.start, 0);
        EXPECT_TRUE(sight.isWhole);
        EXPECT_EQ(sight.told, "");
        EXPECT_EQ(sight.hasIndex, true);  // the start's or the rebuild's
        const bool isOfLog = seen == ESeen::NoLog || seen == ESeen::LineLost;
        const std::string what =
            seen == ESeen::NoLog ? "vexa_shfe_md_20260429.log cannot be opened (" : " cannot be written (";
        EXPECT_EQ(
            sight.error,
            isOfLog ? "vexa_shfe_md: the log file <dir>/" + what + reason + "); the session goes on without it\n" : "");
        if (seen == ESeen::NoLog) {
            EXPECT_THAT(sight.log, IsEmpty());
            EXPECT_EQ(sight.linesDropped, whole.log.size());
        } else {
            ExpectChanged(whole.log, sight.log, LinesLost(seen), Told(seen, call, reason));
            EXPECT_EQ(sight.linesDropped, seen == ESeen::LineLost ? 1U : 0U);
        }
        ExpectCaptures(sight, seen);
    }

    void ExpectCaptures(const Sight& sight, ESeen seen) const {
        const bool isFileLost = seen == ESeen::NoCapture || seen == ESeen::HeadLost;
        EXPECT_EQ(sight.captureFiles, isFileLost ? 3U : 4U);
        EXPECT_EQ(sight.recordsDropped, seen == ESeen::HeadLost || seen == ESeen::RecordLost ? 1U : 0U);
        if (isFileLost) {
            EXPECT_LT(sight.captures.size(), whole.captures.size());
        } else {
            ExpectChanged(whole.captures, sight.captures, seen == ESeen::RecordLost ? 1 : 0, {});
        }
    }

    static std::size_t LinesLost(ESeen seen) { return seen == ESeen::LineLost || seen == ESeen::NotPinned ? 1 : 0; }

    /// The lines that the failure adds to the log.
    static Lines Told(ESeen seen, const Call& call, const std::string& reason) {
        const std::string capture = call.reason == EFor::Bin || call.reason == EFor::BinHead ? "bin" : "pcap";
        switch (seen) {
            case ESeen::NoCapture:
                return {"[ERROR] [Create]the capture file <dir>/vexa_shfe_md_chan0_<time>." + capture +
                        " cannot be created (" + reason + "); check log_path"};
            case ESeen::HeadLost:
            case ESeen::RecordLost:
                return {"[ERROR] [Append]a capture record cannot be written (" + reason +
                        "); records are counted as dropped"};
            case ESeen::NoIndex:
                return {"[WARNING] [_InstStaticInfoWriteFile]open contract index file failed <dir>/.shfe_20260429_pm"};
            case ESeen::NoSignal: {
                const char* const names[] = {"SIGINT", "SIGTERM", "SIGPIPE"};
                return {std::string("[ERROR] [InitSignal]Failed to install ") + names[call.number - 1] + " handle!"};
            }
            case ESeen::NotPinned:
                return {"[WARNING] [_BindCpu]set CPU[" + std::to_string(sched_getcpu()) + "] affinity failed."};
            default: return {};
        }
    }

    /// The calls that a rule is for; of many the first, the last and some between.
    std::vector<Call> Sample(const Filter& wanted) const {
        std::vector<Call> all;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(all), [&](const Call& call) {
            return call.call == wanted.call && (!wanted.reason || *wanted.reason == call.reason);
        });
        if (all.size() <= CALLS_MAX) return all;
        std::mt19937_64 random(SEED);
        std::vector<Call> some{all.front()};
        std::sample(all.begin() + 1, all.end() - 1, std::back_inserter(some), CALLS_MAX - 2, random);
        some.push_back(all.back());
        return some;
    }

    void ExpectFailure(const Rule& rule, const Call& call, int error) const {
        SCOPED_TRACE(Title(call, error));
        FailingCalls::Forget();
        FailingCalls::FailAt(call.call, call.number, error == CUT ? PART : error);
        if (error == CUT) FailingCalls::FailAt(call.call, call.number + 1, ENOSPC);
        FailingSession session;
        const Sight sight = session.Run();
        EXPECT_EQ(FailingCalls::Happened(), error == CUT ? 2U : 1U);
        ExpectSeen(sight, rule.seen, call, std::strerror(error == CUT ? ENOSPC : error));
        EXPECT_THAT(sight.others, IsEmpty());
        EXPECT_TRUE(session.StartsAgain());
        EXPECT_EQ(session.FilesLeftOpen(), 0);
    }

    static std::string Title(const Call& call, int error) {
        return std::string(NAMES_OF_CALLS[static_cast<std::size_t>(call.call)]) + " number " +
               std::to_string(call.number) + ": " +
               (error == PART  ? "a part"
                : error == CUT ? "a part, then ENOSPC"
                               : strerrorname_np(error));
    }

    static const Rule& RuleOf(const Call& call) {
        const auto* found = std::find_if(std::begin(RULES), std::end(RULES), [&](const Rule& rule) {
            return rule.call == call.call && rule.reason == call.reason;
        });
        return *found;
    }

    Sight whole = Undisturbed();
    std::vector<Call> calls = WithReasons(FailingCalls::Made());
};

class FailingCallsOf : public FailingCallsTable, public testing::WithParamInterface<ECall> {};

TEST_P(FailingCallsOf, AKindLeaveWhatTheTableSays) {
    ASSERT_EQ(whole.start, 0);
    ASSERT_TRUE(whole.isWhole);
    ASSERT_EQ(whole.captureFiles, 4U);
    ASSERT_THAT(whole.others, IsEmpty());
    for (const Rule& rule : RULES) {
        if (rule.call != GetParam()) continue;
        for (const int error : rule.errors) {
            for (const Call& call : Sample({rule.call, rule.reason})) ExpectFailure(rule, call, error);
        }
    }
}

TEST_P(FailingCallsOf, AKindForEverRefuseTheStartWhereOneOfThemWould) {
    for (const Call& call : Sample({GetParam(), {}})) {
        SCOPED_TRACE(Title(call, EIO) + " and all later ones");
        const auto refuses = [&](const Call& later) {
            return later.call == call.call && later.number >= call.number && IsRefusal(RuleOf(later).seen);
        };
        const bool isRefused = std::any_of(calls.begin(), calls.end(), refuses);
        FailingCalls::Forget();
        FailingCalls::FailFrom(call.call, call.number, EIO);
        FailingSession session;
        const Sight sight = session.Run();
        EXPECT_EQ(sight.start, isRefused ? -2 : 0);
        EXPECT_EQ(sight.isWhole, !isRefused);
        EXPECT_TRUE(session.StartsAgain());
        EXPECT_EQ(session.FilesLeftOpen(), 0);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, FailingCallsOf,
                         testing::Values(ECall::Open, ECall::Fdopen, ECall::Read, ECall::Write, ECall::Close,
                                         ECall::Fstat, ECall::Lstat, ECall::Lseek, ECall::Rename, ECall::Dup3,
                                         ECall::Sigaction, ECall::SetAffinity, ECall::Getrandom),
                         [](const auto& call) { return NAMES_OF_CALLS[static_cast<std::size_t>(call.param)]; });

TEST_F(FailingCallsTable, HasARuleForEveryCallOfASessionAndNoOther) {
    std::set<const Rule*> used;
    for (const Call& call : calls) {
        bool hasRule = false;
        for (const Rule& rule : RULES) {
            if (rule.call != call.call || rule.reason != call.reason) continue;
            hasRule = true;
            used.insert(&rule);
        }
        EXPECT_TRUE(hasRule) << Title(call, 0) << ", reason " << static_cast<int>(call.reason);
    }
    for (const Rule& rule : RULES) {
        EXPECT_TRUE(used.contains(&rule))
            << NAMES_OF_CALLS[static_cast<std::size_t>(rule.call)] << ", reason " << static_cast<int>(rule.reason);
    }
}

}  // namespace

// A whole session on the software board: bring-up, snapshot, tables, subscriptions, live quotes, losses and recovery.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "interface/VexaShfeMdApi.h"
#include "public/config/IniReader.h"
#include "public/signal/SignalProcess.h"
#include "software_board/SoftwareBoard.h"
#include "testing/IniText.h"
#include "testing/InstalledBoard.h"
#include "testing/TemporaryDirectory.h"
#include "tools/CommandLine.h"
#include "tools/DemoClock.h"
#include "tools/Main.h"
#include "tools/QuoteDisplay.h"
#include "tools/StartUpProgress.h"
#include "tools/Terminal.h"

namespace {

constexpr double SECONDS_WITHOUT_TERMINAL = 10;
constexpr int INTERRUPTED = 130;

// Results of starts and steps.
constexpr int32_t STARTED = 0;
constexpr int32_t ONE_UPDATE = 1;
constexpr int32_t SESSION_ENDED = -1;

struct DemoOptions {
    bool isPolling = false;
    bool isFast = false;
    std::string config;
    std::string instruments = "all";
    std::string faults;
    uint64_t seed = 1;
    uint32_t rate = 2000;
    std::optional<double> seconds;
};

std::string WriteConfig(const DemoOptions& options, const TemporaryDirectory& directory) {
    IniText text;
    text.Section("config").Key("log_path", directory.Prefix()).Key("log_level", 7).Device(0, 0);
    text.Enabled("shfe2ps").Enabled("ine2ps");
    text.Key("SRCMAC", "02:00:00:00:00:10").Key("SRCIP", "10.20.0.2").Key("SRCPORT", 40000);
    text.Key("DSTMAC", "02:00:00:00:00:01").Key("DSTIP", "10.20.0.1").Key("DSTPORT", 33022);
    return directory.Write("demo.ini", text.Channel(0, options.instruments).Text());
}

/// The exchange and the board as the configuration expects them.
struct BoardSetup {
    uint16_t bus = 0;
    software_board::BoardOptions options;
};

BoardSetup ReadBoardSetup(const DemoOptions& demo, const std::string& config) {
    CIniReader ini;
    if (!ini.ReadConfig(config)) throw std::runtime_error("cannot open the configuration file " + config);
    int bus = 0;
    int channel = 0;
    const std::string device = ini.ReadString("config", "device", "xilinx0:0");
    // NOLINTNEXTLINE(cert-err34-c): the same reading as the library's own, so that both mean the same board
    std::sscanf(device.c_str(), "xilinx%d:%d", &bus, &channel);
    if (channel != 0) {
        throw std::runtime_error(config + ": device=" + device +
                                 ": the demo plays the managing channel; use device=xilinx<bus>:0");
    }
    BoardSetup setup;
    setup.bus = static_cast<uint16_t>(bus);
    setup.options.updatesPerSecond = demo.rate;
    setup.options.shfeSnapPort = ini.ReadUInt16("config", "shfe2ps_snap_port", setup.options.shfeSnapPort);
    setup.options.ineSnapPort = ini.ReadUInt16("config", "ine2ps_snap_port", setup.options.ineSnapPort);
    setup.options.exchange.seed = demo.seed;
    setup.options.exchange.shfeTopicId =
        ini.ReadInt32("config", "shfe2ps_topic_id", setup.options.exchange.shfeTopicId);
    setup.options.exchange.ineTopicId = ini.ReadInt32("config", "ine2ps_topic_id", setup.options.exchange.ineTopicId);
    std::string error;
    if (!exchange::ParseFaults(demo.faults, setup.options.faults, error)) throw std::runtime_error(error);
    return setup;
}

class ApiHandle {
public:
    ApiHandle() : m_api(CVexaShfeMdApi::CreateVexaShfeMdApi()) {}
    ~ApiHandle() { CVexaShfeMdApi::DestroyVexaShfeMdApi(m_api); }
    ApiHandle(const ApiHandle&) = delete;
    ApiHandle& operator=(const ApiHandle&) = delete;
    CVexaShfeMdApi& operator*() const { return m_api; }
    CVexaShfeMdApi* operator->() const { return &m_api; }

private:
    CVexaShfeMdApi& m_api;
};

/// Takes the quotes of either form.
class QuoteReceiver : public CVexaShfeMdSpi {
public:
    explicit QuoteReceiver(QuoteDisplay& display) : m_display(display) {}

    void OnVexaShfeMd(VexaShfeMdType& md) override { m_display.OnQuote(md); }

    int32_t Start(CVexaShfeMdApi& api, const std::string& config, bool isPolling) {
        m_isPolling = isPolling;
        return isPolling ? api.VexaStart(config.c_str()) : api.VexaStart(*this, config.c_str());
    }

    int32_t Step(CVexaShfeMdApi& api) {
        if (!m_isPolling) return api.VexaRecv();
        const int32_t result = api.VexaRecv(m_md);
        if (result == ONE_UPDATE) m_display.OnQuote(m_md);
        return result;
    }

private:
    QuoteDisplay& m_display;
    VexaShfeMdType m_md{};
    bool m_isPolling = false;
};

bool IsInterrupted() { return CSignalProcess::m_isExit.load(std::memory_order_relaxed); }

enum class EEnd { Complete, Interrupted, ReaderGone, Failed };

/// Receives until the time is up (then the market stands still and what is under way is taken) or the session ends.
/// Complete: the market was brought to a stand and everything has arrived.
EEnd ReceiveLive(CVexaShfeMdApi& api, QuoteReceiver& receiver, QuoteDisplay& display,
                 software_board::SoftwareBoard& board, std::optional<double> seconds) {
    constexpr int LOOK_EVERY = 256;  // steps between two looks at the clock
    const int64_t start = DemoClock::RealNanoseconds();
    bool isFinishing = false;
    for (int steps = 0;; ++steps) {
        if (receiver.Step(api) == SESSION_ENDED) return IsInterrupted() ? EEnd::Interrupted : EEnd::Failed;
        if (isFinishing && board.IsDrained()) return EEnd::Complete;
        if (steps % LOOK_EVERY != 0) continue;
        const int64_t now = DemoClock::RealNanoseconds();
        display.Tick(now);
        if (IsReaderGone()) return EEnd::ReaderGone;
        if (!isFinishing && seconds && static_cast<double>(now - start) >= *seconds * 1e9) {
            board.FinishAfterOneMoreOfEach();
            isFinishing = true;
        }
    }
}

/// What the board adds to the exchange's own state is no part of the comparison.
bool EqualsTruth(VexaShfeMdType md, const VexaShfeMdType& truth) {
    md.type = truth.type;
    md.max_inst_no = truth.max_inst_no;
    md.last_tick_flag = truth.last_tick_flag;
    return std::memcmp(&md, &truth, sizeof md) == 0;
}

std::size_t CountEqualToTruth(const QuoteDisplay& display, software_board::SoftwareBoard& board) {
    std::size_t equal = 0;
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        for (const exchange::Instrument& instrument : board.Market().Instruments(feed)) {
            const auto found = display.Quotes().find(instrument.id);
            if (found != display.Quotes().end() &&
                EqualsTruth(found->second.md, board.Market().Truth(feed, instrument.instNo))) {
                ++equal;
            }
        }
    }
    return equal;
}

/// The session that the demo plays, and everything that watches it.
class Demo {
public:
    explicit Demo(const DemoOptions& options)
        : m_options(options),
          m_config(options.config.empty() ? WriteConfig(options, m_work) : options.config),
          m_setup(ReadBoardSetup(options, m_config)),
          m_clock(options.isFast),
          m_board(m_setup.options),
          m_progress(m_board, m_isTerminal),
          m_display(m_isTerminal),
          m_installed(m_board, m_setup.bus),
          m_receiver(m_display) {
        m_clock.onLook = [this] { WatchStartUp(); };
        m_board.onWrite = [this](uint32_t index, uint32_t value) {
            if (m_progress.IsLive()) m_display.Detach();
            m_progress.OnWrite(index, value);
            m_clock.isStarting = !m_progress.IsLive();
        };
    }

    int Run() {
        std::printf("starting in the %s form, seed %llu%s%s\n", m_options.isPolling ? "polling" : "callback",
                    static_cast<unsigned long long>(m_options.seed), m_options.faults.empty() ? "" : ", faults ",
                    m_options.faults.c_str());
        m_progress.Begin();
        const int32_t started = m_receiver.Start(*m_api, m_config, m_options.isPolling);
        if (started != STARTED) return TellFailedStart(started);

        const int64_t liveStart = DemoClock::RealNanoseconds();
        const EEnd end = ReceiveLive(*m_api, m_receiver, m_display, m_board, m_options.seconds);
        const double liveSeconds = static_cast<double>(DemoClock::RealNanoseconds() - liveStart) / 1e9;
        m_api->VexaStop();
        if (end == EEnd::ReaderGone || IsReaderGone()) return 0;
        return TellSummary(end, liveSeconds);
    }

private:
    /// An end that is asked for meanwhile does not wait for the start-up's waits.
    void WatchStartUp() {
        m_progress.Redraw();
        if (!IsInterrupted() && !IsReaderGone()) return;
        m_clock.Hurry();
        m_api->VexaStop();
    }

    std::string LogPlace() {
        m_work.isKept = m_options.config.empty();
        return m_work.isKept ? "in " + m_work.Path().string() : "named in your configuration";
    }

    int TellFailedStart(int32_t result) {
        if (IsReaderGone()) return 0;
        std::fflush(stdout);
        if (IsInterrupted()) {
            std::fputs("\nvexa_demo: interrupted during the start-up\n", stderr);
            return INTERRUPTED;
        }
        std::fprintf(stderr, "vexa_demo: the start failed with %d; the log %s says why\n", result, LogPlace().c_str());
        return 1;
    }

    int TellSummary(EEnd end, double liveSeconds) {
        std::printf("\nupdates      %llu in %.1f seconds\ninstruments  %zu\nlosses       %llu\nrecoveries   %llu\n",
                    static_cast<unsigned long long>(m_display.Updates()), liveSeconds, m_display.Instruments(),
                    static_cast<unsigned long long>(m_progress.Losses()),
                    static_cast<unsigned long long>(m_progress.EngineStarts() - 1));
        const bool isRight = end == EEnd::Complete ? IsTruthReached() : end == EEnd::Interrupted;
        if (std::fflush(stdout) != 0 && !IsReaderGone()) throw std::runtime_error("standard output cannot be written");
        if (end == EEnd::Failed) {
            std::fprintf(stderr, "vexa_demo: the session could not be rebuilt after a loss; the log %s says why\n",
                         LogPlace().c_str());
        }
        return isRight ? 0 : 1;
    }

    bool IsTruthReached() {
        const std::size_t equal = CountEqualToTruth(m_display, m_board);
        std::printf("checked      %zu of %zu last records equal the exchange's state\n", equal,
                    m_display.Instruments());
        if (m_display.Updates() > 0) return equal == m_display.Instruments();
        std::fputs("vexa_demo: no update arrived; does the list name any instrument?\n", stderr);
        return false;
    }

    const DemoOptions& m_options;
    const bool m_isTerminal = isatty(STDOUT_FILENO) != 0;
    TemporaryDirectory m_work{"vexa-demo"};  // kept when a run ends badly
    std::string m_config;
    BoardSetup m_setup;
    DemoClock m_clock;
    software_board::SoftwareBoard m_board;
    StartUpProgress m_progress;
    QuoteDisplay m_display;
    InstalledBoard m_installed;
    ApiHandle m_api;
    QuoteReceiver m_receiver;
};

int ParseAndRun(int argc, char** argv) {
    DemoOptions options;
    CLI::App app(
        "Runs a whole session on the software board, with a synthetic exchange behind it:\n"
        "start-up, live quotes, and, where faults are asked for, losses and recoveries.\n"
        "Ends after --seconds of live quotes: by itself after ten where the output is no terminal, else on Ctrl-C.\n"
        "Exit status: 0 when all went well, 1 when the session failed or a last record differs from the exchange's\n"
        "state, 2 for wrong options, 130 when interrupted during the start-up.");
    app.name("vexa_demo");
    app.add_flag("--polling", options.isPolling, "fetch updates by polling instead of by callback");
    app.add_flag("--fast", options.isFast, "let the waits of a start-up (about 9 seconds) pass at once");
    app.add_option("--seconds", options.seconds, "end after this many seconds of live quotes")
        ->check(Decimal(0, 1000000));
    CLI::Option* config =
        app.add_option("--config", options.config, "INI file to start with, instead of a built-in one")
            ->check(CLI::ExistingFile);
    app.add_option("--instruments", options.instruments,
                   "comma-separated: \"all\", product codes (cu), futures (cu2612) or whole ids")
        ->capture_default_str()
        ->excludes(config);
    app.add_option("--faults", options.faults,
                   "comma-separated, each with @moment or without; \"all\" for those that a session survives: " +
                       exchange::FaultNames())
        ->check(FaultList());
    app.add_option("--seed", options.seed, "the same seed gives the same exchange")
        ->check(WholeNumber(0, UINT64_MAX))
        ->capture_default_str();
    app.add_option("--rate", options.rate, "updates a second (0: as fast as they are taken)")
        ->check(WholeNumber(0, UINT32_MAX))
        ->capture_default_str();
    if (!ParseCommandLine(app, argc, argv)) return 0;
    if (!options.seconds && isatty(STDOUT_FILENO) == 0) options.seconds = SECONDS_WITHOUT_TERMINAL;
    CSignalProcess::InitSignal();  // from here on an end removes what the run has made
    return Demo(options).Run();
}

}  // namespace

int main(int argc, char** argv) {
    return RunProgram("vexa_demo", [&] { return ParseAndRun(argc, argv); });
}

// usage: killing_rounds [--rounds N] [--seed S] [--limit SECONDS]
// A served board, its manager and two readers, each a process of its own. Each round kills one of them with SIGKILL, a
// quarter in each phase of a start (comparing counters, memory wait, snapshot, live), starts it again at once or after
// a gap, and waits until everybody receives again: within SECONDS of the clock that the processes share. In the end
// every record ever received must be one of the exchange's. Exit status 1 otherwise.
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "exchange/Random.h"
#include "tests/process/ServedWorld.h"

using software_board::EBoardPhase;
using software_board::Load;

namespace {

constexpr double PATIENCE = 300;  // real seconds, for what the round itself needs
constexpr std::size_t RECORDS_TO_RECOVER = 20;
constexpr std::size_t LOG_TAIL = 6000;

struct Options {
    int rounds = 8;
    uint64_t seed = 1;
    double limit = 100;
};

enum class Moment { Comparing, MemoryWait, Snapshot, Live };
enum class Victim { Server, Manager, Reader };
constexpr const char* MOMENTS[] = {"comparing", "memory wait", "snapshot", "live"};
constexpr const char* VICTIMS[] = {"server", "manager", "reader"};

/// Nothing else tells one moment of a phase from another: milliseconds, up to the length of the phase.
constexpr uint32_t LONGEST_MS[] = {3000, 6000, 400, 1000};
constexpr uint32_t LONGEST_GAP_MS = 4000;

struct Application {
    int channel;
    Reader reader;
    std::size_t baseline = 0;
};

class KillingRounds {
public:
    explicit KillingRounds(const Options& options)
        : m_options(options),
          m_chance(options.seed, "killing rounds"),
          m_world(static_cast<uint16_t>(10'000 + getpid() % 50'000)) {}

    bool Run();

private:
    void Round(int number);
    void BeginStart(Moment moment, int number);
    void Kill(Victim victim);
    void StartAgain(Victim victim);
    double Recover(const std::string& round);
    void LookAfterApplications(const std::string& round);
    bool HaveAllReceivedMore();
    void JudgeRecords();

    void Begin(Application& application) { application.reader = m_world.RunReader(application.channel); }
    void End(Application& application, int signal);
    void NoteUpdates() { m_updates = std::max(m_updates, m_world.Updates()); }
    Application& Chosen() { return m_applications[m_reader]; }
    EBoardPhase Phase() const { return static_cast<EBoardPhase>(Load(m_world.board->memory.registers.phase)); }
    void Pause(uint32_t longest) { m_world.Pass(m_chance.Below(longest) / 1000.0); }
    template <typename Question>
    static void Await(Question isTrue, const std::string& what) {
        if (!WaitUntil(isTrue, PATIENCE)) throw std::runtime_error("waited in vain: " + what);
    }

    Options m_options;
    exchange::Random m_chance;
    ServedWorld m_world;
    std::array<Application, 3> m_applications{{{0, {}}, {1, {}}, {2, {}}}};
    std::size_t m_reader = 1;    ///< the one that a round may kill
    std::vector<Reader> m_past;  ///< ended, their records still to be judged
    uint64_t m_updates = 0;      ///< most of any board
    int m_refusedStarts = 0;     ///< for want of a board, or because it ended meanwhile
    double m_longest = 0;
    double m_total = 0;
};

bool KillingRounds::Run() {
    try {
        if (!m_world.Serve()) throw std::runtime_error("no board: " + m_world.server->Output());
        for (Application& application : m_applications) Begin(application);
        Recover("first start");
        m_longest = m_total = 0;
        for (int number = 1; number <= m_options.rounds; ++number) Round(number);
        JudgeRecords();
    } catch (const std::exception& error) {
        m_world.TellWhatTheProcessesSaid(LOG_TAIL);
        std::printf("killing_rounds --seed %llu --rounds %d: %s\n", static_cast<unsigned long long>(m_options.seed),
                    m_options.rounds, error.what());
        return false;
    }
    std::printf("%d rounds, recovered within %.1f seconds, %.1f on average; %d starts refused and repeated\n",
                m_options.rounds, m_longest, m_total / std::max(m_options.rounds, 1), m_refusedStarts);
    return true;
}

void KillingRounds::Round(int number) {
    const auto moment = static_cast<Moment>((number - 1) % 4);
    const auto victim = static_cast<Victim>(m_chance.Below(3));
    m_reader = 1 + m_chance.Below(2);
    const std::string round = "round " + std::to_string(number) + ": " + VICTIMS[static_cast<int>(victim)] +
                              " killed, " + MOMENTS[static_cast<int>(moment)];
    BeginStart(moment, number);
    Pause(LONGEST_MS[static_cast<int>(moment)]);
    Kill(victim);
    if (m_chance.OneIn(2)) Pause(LONGEST_GAP_MS);
    StartAgain(victim);
    const double seconds = Recover(round);
    std::printf("%s: %.1f seconds\n", round.c_str(), seconds);
    std::fflush(stdout);
}

// A start of a new manager, or a rebuild of the running one.
void KillingRounds::BeginStart(Moment moment, int number) {
    if (moment == Moment::Live) return;
    const uint64_t before = m_world.BringUps();
    Application& manager = m_applications[0];
    if (moment == Moment::Comparing || m_chance.OneIn(2)) {
        End(manager, SIGKILL);
        // An unchanged file lets the board alone; then there is nothing but the comparison.
        if (moment != Moment::Comparing || m_chance.OneIn(2)) m_world.WriteConfig("round " + std::to_string(number));
        Begin(manager);
    } else if (m_world.RunBoard({"inject", "price-error"}, "inject.out")->Wait() != 0) {
        throw std::runtime_error("no loss could be injected");
    }
    if (moment == Moment::Comparing) {
        const auto isOpen = [&] {
            const uint64_t holder = Load(m_world.board->memory.channels[0].holder);
            return software_board::ProcessNumber(holder) == manager.reader.process->Pid();
        };
        return Await(isOpen, "a manager that compares counters");
    }
    const EBoardPhase phase = moment == Moment::MemoryWait ? EBoardPhase::Memory : EBoardPhase::Snapshot;
    Await([&] { return m_world.BringUps() > before && Phase() >= phase; }, "a start that has come so far");
}

void KillingRounds::Kill(Victim victim) {
    switch (victim) {
        case Victim::Server:
            m_world.server->Signal(SIGKILL);
            m_world.server->Wait();
            return NoteUpdates();
        case Victim::Manager: return End(m_applications[0], SIGKILL);
        case Victim::Reader: return End(Chosen(), SIGKILL);
    }
}

void KillingRounds::StartAgain(Victim victim) {
    switch (victim) {
        case Victim::Server:
            if (!m_world.Serve()) throw std::runtime_error("no board again: " + m_world.server->Output());
            return;
        case Victim::Manager: return Begin(m_applications[0]);
        case Victim::Reader: return Begin(Chosen());
    }
}

void KillingRounds::End(Application& application, int signal) {
    application.reader.process->Signal(signal);
    if (application.reader.process->Wait() == -1) throw std::runtime_error("an application does not end");
    m_past.push_back(std::move(application.reader));
}

/// Seconds of the common clock.
double KillingRounds::Recover(const std::string& round) {
    const double start = m_world.Seconds();
    bool isCounting = false;
    for (;;) {
        const double seconds = m_world.Seconds() - start;
        LookAfterApplications(round);
        if (!isCounting && m_world.IsLive()) {
            for (Application& application : m_applications) application.baseline = application.reader.Count();
        }
        isCounting = m_world.IsLive();
        if (isCounting && HaveAllReceivedMore()) {
            m_longest = std::max(m_longest, seconds);
            m_total += seconds;
            return seconds;
        }
        if (seconds > m_options.limit) {
            throw std::runtime_error(round + ": not everybody receives again; phase " +
                                     std::to_string(static_cast<uint32_t>(Phase())));
        }
        PauseShortly();
    }
}

// A start may be refused for want of a board, and whoever watches over the application repeats it. One that has
// received must not end because a board has.
void KillingRounds::LookAfterApplications(const std::string& round) {
    if (m_world.server->Wait(0) != -1) throw std::runtime_error(round + ": the server ended by itself");
    for (Application& application : m_applications) {
        const int status = application.reader.process->Wait(0);
        if (status == -1) continue;
        if (status != 1 || application.reader.Count() > 0) {
            throw std::runtime_error(round + ": channel " + std::to_string(application.channel) +
                                     " ended by itself with status " + std::to_string(status));
        }
        ++m_refusedStarts;
        Begin(application);
        application.baseline = 0;
    }
}

bool KillingRounds::HaveAllReceivedMore() {
    return std::all_of(m_applications.begin(), m_applications.end(), [](const Application& application) {
        return application.reader.Count() >= application.baseline + RECORDS_TO_RECOVER;
    });
}

void KillingRounds::JudgeRecords() {
    for (Application& application : m_applications) End(application, SIGINT);
    NoteUpdates();
    const ServedWorld::Truth truth = m_world.TruthUpTo(m_updates);
    std::size_t wrong = 0;
    std::size_t records = 0;
    for (const Reader& reader : m_past) {
        wrong += ServedWorld::Judge(reader, truth).wrong;
        records += reader.Count();
    }
    std::printf("%zu records judged\n", records);
    if (wrong > 0) throw std::runtime_error(std::to_string(wrong) + " records are none of the exchange's");
}

bool Parse(int argc, char** argv, Options& options) {
    static constexpr option NAMES[] = {{"rounds", required_argument, nullptr, 'r'},
                                       {"seed", required_argument, nullptr, 's'},
                                       {"limit", required_argument, nullptr, 'l'},
                                       {nullptr, 0, nullptr, 0}};
    for (int name = 0; (name = getopt_long(argc, argv, "", NAMES, nullptr)) != -1;) {
        switch (name) {
            case 'r': options.rounds = std::atoi(optarg); break;
            case 's': options.seed = std::strtoull(optarg, nullptr, 10); break;
            case 'l': options.limit = std::atof(optarg); break;
            default: return false;
        }
    }
    return optind == argc && options.rounds > 0 && options.limit > 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!Parse(argc, argv, options)) {
        std::fputs("usage: killing_rounds [--rounds N] [--seed S] [--limit SECONDS]\n", stderr);
        return 2;
    }
    return KillingRounds(options).Run() ? 0 : 1;
}

// Whole sessions of the library in virtual time, under faults, with every rule checked after every step.
#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "exchange/Faults.h"
#include "simulation/Simulation.h"
#include "tools/CommandLine.h"
#include "tools/Main.h"

namespace {

constexpr char NAME[] = VEXA_SIM_NAME;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

struct SimOptions {
    simulation::RunOptions run;
    int canary = 0;
    std::string trace;
    bool isVerbose = false;
    bool isReachDue = false;
};

FilePtr OpenTrace(const std::string& path) {
    if (path.empty()) return nullptr;
    FilePtr file(std::fopen(path.c_str(), "we"));
    if (file == nullptr)
        throw UsageError("--trace " + path + ": cannot be written; name a file in an existing directory");
    return file;
}

int Run(SimOptions& options) {
    const FilePtr trace = OpenTrace(options.trace);
    options.run.trace = trace.get();
    options.run.canary = static_cast<simulation::ERule>(options.canary);
    const simulation::Totals totals = simulation::RunSessions(options.run);
    if (trace != nullptr && (std::fflush(trace.get()) != 0 || std::ferror(trace.get()) != 0)) {
        throw std::runtime_error("--trace " + options.trace + ": could not be written whole");
    }
    if (totals.broken) std::fputs(simulation::TellBreach(totals, options.run).c_str(), stdout);
    if (options.isVerbose || options.isReachDue) std::fputs(simulation::TellReach(totals).c_str(), stdout);
    const std::string holes = options.isReachDue && !totals.broken ? simulation::TellHoles(totals) : "";
    if (!holes.empty()) std::printf("\nmet too seldom:\n%s\n", holes.c_str());
    std::printf("%" PRIu64 " sessions, %" PRIu64 " updates, %" PRIu64 " losses, %" PRIu64
                " engine starts, %d breaches, %.1f seconds, trace %016" PRIx64 "\n",
                totals.sessions, totals.updates, totals.losses, totals.recoveries, totals.broken ? 1 : 0,
                totals.seconds, totals.traceHash);
    return totals.broken || !holes.empty() ? 1 : 0;
}

std::string CheckCanary(const std::string& text) {
    std::string known;
    for (const simulation::Rule& row : simulation::Rules()) {
        known += (known.empty() ? "" : ", ") + std::to_string(row.number);
        if (text == std::to_string(row.number)) return "";
    }
    return "there is no rule " + text + "; known are " + known;
}

int ParseAndRun(int argc, char** argv) {
    SimOptions options;
    CLI::App app(
        "Runs whole sessions of the library in virtual time on the software board, with faults, losses, stops and\n"
        "restarts drawn from the seed, and checks every rule after every step. The same seed gives the same trace.\n"
        "Exit status: 0 when every rule held, 1 when one was broken or --reach found a gap, 2 for wrong options.");
    app.name(NAME);
    app.add_option("--seed", options.run.seed, "of the first session; session k has this plus k")
        ->required()
        ->check(WholeNumber(0, UINT64_MAX));
    CLI::Option* sessions = app.add_option("--sessions", options.run.sessions, "how many")
                                ->check(WholeNumber(1, uint64_t{1} << 40))
                                ->capture_default_str();
    CLI::Option* minutes =
        app.add_option("--minutes", options.run.minutes, "end after this much real time")->check(Decimal(0.01, 100000));
    app.add_option("--faults", options.run.faults,
                   "\"all\": each fault in half of the sessions; or a list: " + exchange::FaultNames())
        ->check(FaultList())
        ->capture_default_str();
    app.add_option("--canary", options.canary, "tell the checks one lie about the rule of this number")
        ->check(CheckCanary);
    app.add_option("--trace", options.trace, "write every event to this file");
    app.add_flag(
        "--reach", options.isReachDue,
        "tell as --verbose does, and fail where something was met too seldom: five times in 2,000 sessions, or\n"
        "once in a shorter run");
    app.add_flag("--verbose", options.isVerbose, "tell what was tried in which phase, and the quirks booked");
    if (!ParseCommandLine(app, argc, argv)) return 0;
    if (minutes->count() > 0 && sessions->count() == 0) options.run.sessions = UINT64_MAX;
    return Run(options);
}

}  // namespace

int main(int argc, char** argv) {
    return RunProgram(NAME, [&] { return ParseAndRun(argc, argv); });
}

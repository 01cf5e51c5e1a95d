#include "tools/StartUpProgress.h"

#include <cstdio>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "tools/DemoClock.h"
#include "tools/Terminal.h"

namespace {
constexpr int64_t REDRAW_NS = 100'000'000;
}

const std::array<const char*, StartUpProgress::STAGE_COUNT> StartUpProgress::STAGE_NAMES{
    "comparing packet counters",
    "waiting for the board's memory",
    "loading the snapshots",
    "writing the tables",
    "checking the versions",
    "subscribing",
    "engines started"};

void StartUpProgress::Begin() { Enter(COUNTERS); }

void StartUpProgress::OnWrite(uint32_t index, uint32_t value) {
    switch (index) {
        case reg::BRING_UP_START:
            if (m_stage == LIVE) {
                ++m_losses;
                std::printf("loss: clearing everything and starting again\n");
            }
            return Enter(MEMORY);
        case reg::SNAPSHOT_CONTROL: return Enter(value == reg::SNAPSHOT_OPEN ? SNAPSHOT : TABLES);
        case reg::SOFTWARE_VERSION: return Enter(VERSION);
        case TraitsOf(SHFE_2PS).registers.table.readAddr:
            if (m_stage == VERSION) Enter(SUBSCRIPTION);
            return;
        case reg::LOGICAL_START_4PS: ++m_engineStarts; return Enter(LIVE);
        default:
            if (m_stage == TABLES && (index & 0xFU) == 0) Redraw();
    }
}

void StartUpProgress::Enter(Stage stage) {
    if (m_isCounterShown) Draw();
    if (m_isCounterShown) std::printf("\n");
    m_stage = stage;
    m_isCounterShown = false;
    std::printf("[%zu/%zu] %s\n", stage + std::size_t{1}, std::size_t{STAGE_COUNT}, STAGE_NAMES[stage]);
    std::fflush(stdout);
}

void StartUpProgress::Redraw() {
    if (!m_isTerminal) return;
    const int64_t now = DemoClock::RealNanoseconds();
    if (now - m_lastDrawNs < REDRAW_NS) return;
    m_lastDrawNs = now;
    Draw();
}

void StartUpProgress::Draw() {
    static constexpr const char SPINNER[] = "|/-\\";
    static unsigned int turn = 0;
    const software_board::BoardStatistics& seen = m_board.Statistics();
    char line[96];
    std::snprintf(line, sizeof line, "      %c %llu register writes, %llu snapshot frames", SPINNER[turn++ % 4],
                  static_cast<unsigned long long>(seen.registerWrites),
                  static_cast<unsigned long long>(seen.snapshotFrames));
    std::printf("\r%.*s", AskTerminalSize().columns - 1, line);  // a line that wraps is not gone back over
    std::fflush(stdout);
    m_isCounterShown = true;
}

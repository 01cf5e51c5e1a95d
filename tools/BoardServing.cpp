#include "tools/BoardServing.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include "public/clock/Clock.h"
#include "software_board/BoardServer.h"
#include "tools/BoardText.h"

namespace {

constexpr int64_t IDLE_NS = 200'000;
constexpr int64_t STATUS_EVERY_NS = 1'000'000'000;
constexpr std::size_t DEFAULT_COLUMNS = 80;
constexpr int LINES_EVERY = 10;  // seconds, where the output is no terminal

volatile std::sig_atomic_t g_isEnded = 0;

void End(int) { g_isEnded = 1; }

/// Of the terminal, which may be resized at any time. One is left free, so that no line wraps.
std::size_t Columns() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return DEFAULT_COLUMNS - 1;
    return size.ws_col - std::size_t{1};
}

/// One line: rewritten in place on a terminal, now and then a new one elsewhere.
class StatusLine {
public:
    explicit StatusLine(const software_board::SharedBoard& board) : m_board(board) {}

    void Tick(int64_t now) {
        if (now - m_last < STATUS_EVERY_NS) return;
        const double seconds = static_cast<double>(now - m_last) / 1e9;
        m_last = now;
        const uint64_t updates = software_board::Load(m_board.memory.statistics.liveUpdates);
        const double rate = m_isFirst ? 0 : static_cast<double>(updates - m_updates) / seconds;
        m_updates = updates;
        m_isFirst = false;
        if (!m_isTerminal && m_lines++ % LINES_EVERY != 0) return;
        if (m_isTerminal) {
            std::printf("\r\033[K%s", BoardLine(m_board, rate, Columns()).c_str());
        } else {
            std::printf("%s\n", BoardLine(m_board, rate, std::string::npos).c_str());
        }
        std::fflush(stdout);
    }

    void Close() const {
        if (m_isTerminal) std::printf("\n");
    }

private:
    const software_board::SharedBoard& m_board;
    bool m_isTerminal = isatty(STDOUT_FILENO) != 0;
    bool m_isFirst = true;
    int64_t m_last = 0;
    uint64_t m_updates = 0;
    int m_lines = 0;
};

void EndOnSignals() {
    struct sigaction action {};
    action.sa_handler = End;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

}  // namespace

int ServeBoard(uint16_t bus, const software_board::BoardOptions& options) {
    using software_board::Load;
    EndOnSignals();
    software_board::BoardServer server;
    std::string error;
    if (!server.Open(bus, options, error)) throw std::runtime_error(error);
    std::printf("serving bus %u as %s; applications attach with VEXA_BOARD_PROVIDER=software:shared\n", bus,
                software_board::SharedBoardPath(bus).c_str());
    std::fflush(stdout);
    StatusLine status(server.Board());
    while (g_isEnded == 0) {
        if (!server.Step()) {
            const timespec idle{0, IDLE_NS};
            nanosleep(&idle, nullptr);
        }
        status.Tick(CClock::MonotonicNanoseconds());
    }
    status.Close();
    const software_board::BoardStatistics& seen = server.Board().memory.statistics;
    std::printf(
        "ended: %llu updates, %llu records delivered, %llu messages dropped, %llu bring-ups\n",
        static_cast<unsigned long long>(Load(seen.liveUpdates)), static_cast<unsigned long long>(Load(seen.delivered)),
        static_cast<unsigned long long>(Load(seen.overruns)), static_cast<unsigned long long>(Load(seen.bringUps)));
    return 0;
}

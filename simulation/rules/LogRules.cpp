#include "simulation/rules/LogRules.h"

#include <string_view>

#include "simulation/base/WatchedAllocator.h"
#include "simulation/rules/Rules.h"

namespace simulation {
namespace {

/// "[file:line][function]text" without a control character, in all of its length.
bool IsWhole(std::string_view line) {
    const std::size_t middle = line.find("][");
    if (line.empty() || line.front() != '[' || middle == std::string_view::npos) return false;
    if (line.substr(0, middle).find(':') == std::string_view::npos) return false;
    return line.find(']', middle + 2) != std::string_view::npos && line.find('\n') == std::string_view::npos &&
           line.find('\0') == std::string_view::npos;
}

/// Texts hold paths and addresses of the machine, compilers count the lines of a call that takes several in their own
/// ways, and code moves from file to file; the function is the same everywhere.
uint64_t HashOfFunction(std::string_view line) {
    const std::size_t middle = line.find("][");
    return HashOf(line.data() + middle, line.find(']', middle + 2) - middle);
}

}  // namespace

LogRules::LogRules(EventTrace& trace, Canary& canary, const SimulatedClock& clock)
    : m_trace(trace), m_canary(canary), m_clock(clock) {
    CCommonLog::GetInstance().SetSink(this);
}

LogRules::~LogRules() {
    CCommonLog::GetInstance().SetSink(nullptr);
    CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
}

void LogRules::OnLine(ELOGLEVEL level, const char* line, std::size_t length) {
    const WatchedAllocator::Watch unwatched(false);
    std::string_view text(line, length);
    if (m_canary.Lies(ERule::Log)) text = text.substr(0, text.find("]["));
    Require(IsWhole(text), ERule::Log, [&] { return "log line \"" + std::string(text) + "\""; });
    if (level == LOG_DEBUG_EX) return;
    m_trace.Add({EEvent::Log, 0, static_cast<uint64_t>(level), HashOfFunction(text), m_clock.Now()});
}

int32_t LogRules::Level() {
    int32_t mask = 0;
    for (const ELOGLEVEL level : {LOG_ERROR, LOG_WARNING, LOG_INFO, LOG_DEBUG, LOG_DEBUG_EX}) {
        if (CCommonLog::GetInstance().IsEnabled(level)) mask |= level;
    }
    return mask;
}

}  // namespace simulation

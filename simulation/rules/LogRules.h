/// Takes the library's log lines for its lifetime and looks at their shape.
#pragma once

#include <cstdint>

#include "public/log/CommonLog.h"
#include "simulation/base/Canary.h"
#include "simulation/base/EventTrace.h"
#include "simulation/base/SimulatedClock.h"

namespace simulation {

class LogRules final : public ILogSink {
public:
    LogRules(EventTrace& trace, Canary& canary, const SimulatedClock& clock);
    ~LogRules() override;
    LogRules(const LogRules&) = delete;
    LogRules& operator=(const LogRules&) = delete;

    void OnLine(ELOGLEVEL level, const char* line, std::size_t length) override;

    /// The mask in force.
    static int32_t Level();

private:
    EventTrace& m_trace;
    Canary& m_canary;
    const SimulatedClock& m_clock;
};

}  // namespace simulation

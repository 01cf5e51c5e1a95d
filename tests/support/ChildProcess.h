/// A program run beside the test; killed with it at the latest.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "public/clock/Clock.h"

/// Of real time: far beyond what any load makes of it.
constexpr double PATIENCE_SECONDS = 300;

class ChildProcess {
public:
    /// Starts `arguments[0]`, with `environment` ("NAME=value") added to the test's own. What it prints goes to the
    /// file `output`.
    ChildProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                 std::string output);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return m_pid; }
    void Signal(int number) const;

    /// Waits for its end: the exit status, or 128 and the signal that ended it. -1 when it does not end in time.
    int Wait(double seconds = PATIENCE_SECONDS);

    std::string Output() const;

private:
    std::string m_output;
    pid_t m_pid = -1;
    int m_status = -1;
};

/// A few milliseconds of real time.
void PauseShortly();

/// Asks again and again whether `isTrue`; false when it never was.
template <typename Question>
bool WaitUntil(Question isTrue, double seconds = PATIENCE_SECONDS) {
    const int64_t start = CClock::MonotonicNanoseconds();
    while (!isTrue()) {
        if (static_cast<double>(CClock::MonotonicNanoseconds() - start) / 1e9 > seconds) return false;
        PauseShortly();
    }
    return true;
}

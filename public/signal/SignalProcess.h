/// Ends the receive loop on SIGINT and SIGTERM instead of killing the process in the middle of a step.
/// Process-wide: the handlers stay installed after every session has ended, and the flag is never cleared.
#pragma once

#include <csignal>

#include <atomic>
#include <cstdint>

class CSignalProcess {
public:
    /// Installs the handlers (SIGINT, SIGTERM) and ignores SIGPIPE. 0, or -1 at the first one refused.
    static int32_t InitSignal();

    /// Writes one log line and sets m_isExit; preserves errno; async-signal-safe.
    static void SignalHandler(int sig, siginfo_t* info, void* context);

    static std::atomic<bool> m_isExit;

protected:
    CSignalProcess() = default;
    ~CSignalProcess() = default;
};

static_assert(std::atomic<bool>::is_always_lock_free, "the handler stores the flag");

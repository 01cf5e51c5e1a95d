#include "public/signal/SignalProcess.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "public/log/LogLine.h"

std::atomic<bool> CSignalProcess::m_isExit{false};

namespace {

// Lines name the header that declares the class, where readers look it up.
constexpr const char* LOG_FILE_NAME = "SignalProcess.h";

#define SIGNAL_LOG(level, text) WriteLogLine((level), LOG_FILE_NAME, __LINE__, "InitSignal", "%s", (text))

/// Builds a short text without the formatted-output functions, which a signal handler may not call.
class SignalText {
public:
    SignalText& Text(std::string_view text) {
        m_end += text.copy(m_end, static_cast<std::size_t>(std::end(m_text) - m_end));
        return *this;
    }
    SignalText& Number(int number) {
        m_end = std::to_chars(m_end, std::end(m_text), number).ptr;
        return *this;
    }
    const char* Data() const { return m_text; }
    std::size_t Length() const { return static_cast<std::size_t>(m_end - m_text); }

private:
    char m_text[128];
    char* m_end = m_text;
};

int Install(int signal, void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction action {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = handler;
    return sigaction(signal, &action, nullptr);
}

int Ignore(int signal) {
    struct sigaction action {};
    action.sa_flags = SA_SIGINFO;
    action.sa_handler = SIG_IGN;
    return sigaction(signal, &action, nullptr);
}

}  // namespace

int32_t CSignalProcess::InitSignal() {
    CCommonLog::GetInstance();  // made here, so that the handler finds it made
    if (Install(SIGINT, SignalHandler) != 0) {
        SIGNAL_LOG(LOG_ERROR, "Failed to install SIGINT handle!");
        return -1;
    }
    if (Install(SIGTERM, SignalHandler) != 0) {
        SIGNAL_LOG(LOG_ERROR, "Failed to install SIGTERM handle!");
        return -1;
    }
    if (Ignore(SIGPIPE) != 0) {
        SIGNAL_LOG(LOG_ERROR, "Failed to install SIGPIPE handle!");
        return -1;
    }
    return 0;
}

void CSignalProcess::SignalHandler(int sig, siginfo_t*, void*) {
    const int savedErrno = errno;
    SignalText line;
    line.Text("[").Text(LOG_FILE_NAME).Text(":").Number(__LINE__).Text("][SignalHandler][");
    line.Number(getpid()).Text("]received signal ").Number(sig);
    CCommonLog::GetInstance().WriteText(LOG_ERROR, line.Data(), line.Length());
    m_isExit.store(true, std::memory_order_relaxed);
    errno = savedErrno;
}

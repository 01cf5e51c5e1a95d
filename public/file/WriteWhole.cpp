// Writing of the log, the captures and the contract index. Any thread and any signal handler.
// Invariant: a file size limit ends no process, and a signal of it that waited before the write waits behind it, too.
#include "public/file/WriteWhole.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace {

constexpr int INTERRUPTED_TRIES_MAX = 16;

sigset_t FileSizeSignal() {
    sigset_t signal{};
    sigaddset(&signal, SIGXFSZ);
    return signal;
}

bool IsFileSizeSignalPending() {
    sigset_t pending{};
    sigpending(&pending);
    return sigismember(&pending, SIGXFSZ) == 1;
}

/// Keeps SIGXFSZ from ending the process while a write may exceed the file size limit, and takes one that it caused.
class FileSizeSignalGuard {
public:
    FileSizeSignalGuard() { pthread_sigmask(SIG_BLOCK, &m_signal, &m_before); }
    ~FileSizeSignalGuard() {
        if (hasFailed && !m_wasPending) {
            const int savedErrno = errno;
            constexpr timespec NO_WAIT{};
            sigtimedwait(&m_signal, nullptr, &NO_WAIT);
            errno = savedErrno;
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    FileSizeSignalGuard(const FileSizeSignalGuard&) = delete;
    FileSizeSignalGuard& operator=(const FileSizeSignalGuard&) = delete;

    bool hasFailed = false;

private:
    const sigset_t m_signal = FileSizeSignal();
    const bool m_wasPending = IsFileSizeSignalPending();
    sigset_t m_before{};
};

}  // namespace

std::size_t WriteWhole(int file, const void* data, std::size_t size) {
    FileSizeSignalGuard guard;
    const auto* bytes = static_cast<const char*>(data);
    std::size_t written = 0;
    for (int tries = 0; written < size && tries < INTERRUPTED_TRIES_MAX;) {
        const ssize_t count = write(file, bytes + written, size - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count < 0 && errno == EINTR) {
            ++tries;
        } else {
            guard.hasFailed = true;
            break;
        }
    }
    return written;
}

bool TakeBack(int file, std::size_t bytes) {
    if (bytes == 0) return true;
    // A negative length, as where the end is not told, is refused.
    return ftruncate(file, lseek(file, 0, SEEK_END) - static_cast<off_t>(bytes)) == 0;
}

// Opening and writing of the files that the library keeps beside its log. Any thread; WriteWhole in signal handlers
// too. In: the configured path, finished bytes. Out: descriptors above the standard ones, owner-only regular files.
// Whoever controls the directory can neither redirect a file of ours nor make an open wait.
#include "public/log/LogFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace log_file {

namespace {

constexpr int INTERRUPTED_TRIES_MAX = 16;
constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;
constexpr mode_t ALL_RIGHTS = S_IRWXU | S_IRWXG | S_IRWXO;

/// Keeps SIGXFSZ from ending the process while a write may exceed the file size limit, and takes one that it caused.
class FileSizeSignalGuard {
public:
    FileSizeSignalGuard() {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, SIGXFSZ);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGXFSZ) == 1;
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
    }
    ~FileSizeSignalGuard() {
        if (hasFailed && !m_wasPending) {
            const int savedErrno = errno;
            constexpr timespec NO_WAIT{0, 0};
            sigtimedwait(&m_signal, nullptr, &NO_WAIT);
            errno = savedErrno;
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    FileSizeSignalGuard(const FileSizeSignalGuard&) = delete;
    FileSizeSignalGuard& operator=(const FileSizeSignalGuard&) = delete;

    bool hasFailed = false;

private:
    sigset_t m_signal{};
    sigset_t m_before{};
    bool m_wasPending = false;
};

bool IsDirectory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// A file that somebody else put there, or that has a second name elsewhere, is no log of ours.
bool IsOurs(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == geteuid();
}

/// In a process that closed its standard descriptors a file of ours must not become one of them.
int AboveStandard(int descriptor) {
    if (descriptor > STDERR_FILENO) return descriptor;
    const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
    return above;
}

}  // namespace

std::string Place(const std::string& path, const std::string& name) {
    if (path.empty() || path.back() == '/') return path + name;
    return IsDirectory(path) ? path + "/" + name : path + name;
}

int OpenAppend(const std::string& file, bool isNew) {
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (isNew ? O_EXCL : 0);
    const int descriptor = open(file.c_str(), flags, OWNER_ONLY);
    if (descriptor < 0) return -1;
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !IsOurs(status)) {
        close(descriptor);
        errno = EINVAL;
        return -1;
    }
    // Under a umask that takes everything the file would be closed to the next start.
    if ((status.st_mode & ALL_RIGHTS) == 0) fchmod(descriptor, OWNER_ONLY);
    return AboveStandard(descriptor);
}

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

}  // namespace log_file

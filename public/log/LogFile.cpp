// Opening of the files that the library keeps beside its log. Any thread. In: the configured path. Out: descriptors
// above the standard ones, owner-only regular files.
// Whoever controls the directory can neither redirect a file of ours nor make an open wait.
#include "public/log/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "public/file/RegularFile.h"

namespace log_file {

namespace {

constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;
constexpr mode_t ALL_RIGHTS = S_IRWXU | S_IRWXG | S_IRWXO;

bool IsDirectory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
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
    const int reason = fstat(descriptor, &status) != 0 ? errno : EINVAL;
    if (!IsOwnFile(status)) {
        close(descriptor);
        if (isNew) unlink(file.c_str());
        errno = reason;
        return -1;
    }
    // Under a umask that takes everything the file would be closed to the next start.
    if ((status.st_mode & ALL_RIGHTS) == 0) fchmod(descriptor, OWNER_ONLY);
    return AboveStandard(descriptor);
}

bool AreDifferent(int one, int other) {
    struct stat status {};
    struct stat otherStatus {};
    if (fstat(one, &status) != 0 || fstat(other, &otherStatus) != 0) return false;
    return status.st_ino != otherStatus.st_ino || status.st_dev != otherStatus.st_dev;
}

}  // namespace log_file

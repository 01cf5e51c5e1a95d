#include "software_board/ProcessId.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace software_board {

namespace {

constexpr int START_TIME_FIELD = 22;  // of /proc/<pid>/stat; the second field is a name in brackets
constexpr int STATE_FIELD = 3;

/// State letter and start time of a process; false when there is none, or it cannot be told (`errno` says which).
bool ReadStat(int32_t number, char& state, uint64_t& startTime) {
    errno = 0;
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", number);
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return false;
    char text[1024];
    const ssize_t length = read(descriptor, text, sizeof text);
    close(descriptor);
    if (length <= 0) return false;
    std::string_view rest(text, static_cast<std::size_t>(length));
    const std::size_t nameEnd = rest.rfind(')');  // the name may hold blanks and brackets
    if (nameEnd == std::string_view::npos || nameEnd + 2 >= rest.size()) return false;
    rest.remove_prefix(nameEnd + 2);
    state = rest.front();
    for (int field = STATE_FIELD; field < START_TIME_FIELD; ++field) {
        const std::size_t blank = rest.find(' ');
        if (blank == std::string_view::npos) return false;
        rest.remove_prefix(blank + 1);
    }
    return std::from_chars(rest.data(), rest.data() + rest.size(), startTime).ec == std::errc();
}

ProcessId IdOf(int32_t number, uint64_t startTime) {
    return static_cast<uint32_t>(number) | static_cast<uint64_t>(static_cast<uint32_t>(startTime)) << 32;
}

}  // namespace

ProcessId OwnProcessId() {
    char state = 0;
    uint64_t startTime = 0;
    ReadStat(getpid(), state, startTime);
    return IdOf(getpid(), startTime);
}

bool IsAlive(ProcessId process) {
    char state = 0;
    uint64_t startTime = 0;
    const bool isThere = ReadStat(ProcessNumber(process), state, startTime);
    // A process that has no descriptor left to look with takes nothing from others.
    if (!isThere && errno != 0 && errno != ENOENT && errno != ESRCH) return true;
    // A killed process that nobody has waited for holds nothing any more.
    return isThere && state != 'Z' && state != 'X' && IdOf(ProcessNumber(process), startTime) == process;
}

}  // namespace software_board

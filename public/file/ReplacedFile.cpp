// A file that takes the place of another one at once. One thread. In: text; out: the whole file in its place, or
// nothing. Invariant: nothing is opened, truncated or changed through a name that somebody else may have put there.
#include "public/file/ReplacedFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <tuple>
#include <utility>

#include "public/file/RegularFile.h"
#include "public/file/WriteWhole.h"

namespace {

constexpr mode_t READABLE_BY_ALL = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
constexpr int NAMES_TRIED_MAX = 100;
constexpr std::size_t SUFFIX_LENGTH = 6;

/// Nothing there, or a file of our own.
bool MayReplace(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return errno == ENOENT;
    return IsOwnFile(status);
}

/// Names that cannot be guessed keep others from having them all.
std::string RandomSuffix() {
    std::string noise(SUFFIX_LENGTH, '\0');
    std::ignore = getrandom(noise.data(), noise.size(), GRND_NONBLOCK);
    for (char& byte : noise) byte = static_cast<char>('a' + static_cast<unsigned char>(byte) % 26);
    return noise;
}

/// The descriptor, and in `name` under which name; -1 where none could be made. No link is followed to a new file.
int CreateBeside(const std::string& path, std::string& name) {
    for (int tries = 0; tries < NAMES_TRIED_MAX; ++tries) {
        name = path + "." + RandomSuffix();
        const int descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, READABLE_BY_ALL);
        if (descriptor >= 0 || errno != EEXIST) return descriptor;
    }
    return -1;
}

}  // namespace

CReplacedFile::CReplacedFile(std::string path)
    : m_path(std::move(path)),
      m_file(MayReplace(m_path) ? CreateBeside(m_path, m_beside) : -1),
      m_isBeside(m_file.IsOpen()) {}

CReplacedFile::~CReplacedFile() {
    if (m_isBeside) unlink(m_beside.c_str());
}

void CReplacedFile::Add(std::string_view text) {
    while (!text.empty()) {
        const std::size_t count = std::min(text.size(), sizeof m_buffer - m_used);
        std::copy_n(text.begin(), count, m_buffer + m_used);
        m_used += count;
        text.remove_prefix(count);
        if (m_used == sizeof m_buffer) Flush();
    }
}

void CReplacedFile::Flush() {
    if (!m_hasFailed && WriteWhole(m_file.Get(), m_buffer, m_used) != m_used) m_hasFailed = true;
    m_used = 0;
}

bool CReplacedFile::PutInPlace() {
    Flush();
    const bool isWhole = !m_hasFailed && close(m_file.Release()) == 0;
    if (!isWhole || !MayReplace(m_path) || std::rename(m_beside.c_str(), m_path.c_str()) != 0) return false;
    m_isBeside = false;
    return true;
}

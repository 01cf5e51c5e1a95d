#include "public/config/IniReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "public/file/Descriptor.h"

namespace {

constexpr std::size_t FILE_BYTES_MAX = std::size_t{64} << 20;

/// The whole file; false for what is no regular file or too large, without ever waiting on it.
bool ReadWhole(const std::string& path, std::string& text) {
    const CDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen()) return false;
    struct stat status {};
    bool isRead = fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
                  static_cast<uint64_t>(status.st_size) <= FILE_BYTES_MAX;
    char block[16384];
    while (isRead) {
        const ssize_t count = read(file.Get(), block, sizeof block);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            isRead = count == 0;
            break;
        }
        text.append(block, static_cast<std::size_t>(count));
        isRead = text.size() <= FILE_BYTES_MAX;
    }
    return isRead;
}

// atoi without its undefined range: whatever does not fit is cut as the conversion from long cuts it.
int32_t ToInt32(const std::string& value) { return static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10)); }

// Decimal only, and the same whatever the locale; 0 for what is no number.
template <typename T>
T ToReal(const std::string& value) {
    const std::size_t first = !value.empty() && value.front() == '+' ? 1 : 0;
    T number = 0;
    std::from_chars(value.data() + first, value.data() + value.size(), number);
    return number;
}

}  // namespace

bool CIniReader::ReadConfig(const std::string& path) {
    m_configMap.clear();
    std::string text;
    if (!ReadWhole(path, text)) return false;
    TakeLines(text);
    return true;
}

// A section that is opened again takes over the entries of the section read last: files rely on it. A section gets
// its entries when another one begins, not line by line: copying them all for each line would take quadratic time.
void CIniReader::TakeLines(const std::string& text) {
    std::string section;
    std::string key;
    std::string value;
    Section current;
    Section* open = nullptr;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        if (AnalyseLine(text.substr(start, end - start), section, key, value)) {
            const auto [found, isNew] = m_configMap.try_emplace(section);
            if (open != nullptr && open != &found->second) *open = current;
            open = &found->second;
            if (isNew) {
                current.clear();
            } else {
                current[key] = value;
            }
        }
        key.clear();
        value.clear();
        start = end + 1;
    }
    if (open != nullptr) *open = current;
}

bool CIniReader::AnalyseLine(const std::string& line, std::string& section, std::string& key, std::string& value) {
    if (line.empty() || IsCommentChar(line.front())) return false;
    const std::size_t open = line.find('[');
    const std::size_t close = line.find(']');
    if (open != std::string::npos && close != std::string::npos) {
        // The length counts from the line's start; for a `]` in front it wraps round to "all that is left".
        section = line.substr(open + 1, close - 1);
        return true;
    }
    std::size_t end = 0;
    while (end < line.size() && !IsCommentChar(line[end])) ++end;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos || equals >= end) return false;
    key = line.substr(0, equals);
    value = line.substr(equals + 1, end - equals - 1);
    Trim(key);
    Trim(value);
    return !key.empty();
}

bool CIniReader::IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool CIniReader::IsCommentChar(char c) { return c == '#'; }

void CIniReader::Trim(std::string& text) {
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && IsSpace(text[first])) ++first;
    while (last > first && IsSpace(text[last - 1])) --last;
    text = text.substr(first, last - first);
}

bool CIniReader::ReadCommon(const char* section, const char* key, std::string& out) {
    if (section == nullptr || key == nullptr) return false;
    const auto foundSection = m_configMap.find(section);
    if (foundSection == m_configMap.end()) return false;
    const auto foundKey = foundSection->second.find(key);
    if (foundKey == foundSection->second.end()) return false;
    out = foundKey->second;
    return true;
}

std::string CIniReader::ReadString(const char* section, const char* key, const char* def) {
    std::string value;
    return ReadCommon(section, key, value) ? value : std::string(def != nullptr ? def : "");
}

int32_t CIniReader::ReadInt32(const char* section, const char* key, int32_t def) {
    std::string value;
    return ReadCommon(section, key, value) ? ToInt32(value) : def;
}

uint32_t CIniReader::ReadUInt32(const char* section, const char* key, uint32_t def) {
    std::string value;
    if (!ReadCommon(section, key, value)) return def;
    return static_cast<uint32_t>(std::strtoll(value.c_str(), nullptr, 10));
}

uint16_t CIniReader::ReadUInt16(const char* section, const char* key, uint16_t def) {
    std::string value;
    return ReadCommon(section, key, value) ? static_cast<uint16_t>(ToInt32(value)) : def;
}

int64_t CIniReader::ReadInt64(const char* section, const char* key, int64_t def) {
    std::string value;
    return ReadCommon(section, key, value) ? std::strtoll(value.c_str(), nullptr, 10) : def;
}

float CIniReader::ReadFloat(const char* section, const char* key, float def) {
    std::string value;
    return ReadCommon(section, key, value) ? ToReal<float>(value) : def;
}

double CIniReader::ReadDouble(const char* section, const char* key, double def) {
    std::string value;
    return ReadCommon(section, key, value) ? ToReal<double>(value) : def;
}

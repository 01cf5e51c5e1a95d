#include "public/config/IniReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "public/file/Descriptor.h"

namespace {

constexpr std::size_t SAMPLE_PART = 8;  // of a file's bytes
constexpr std::size_t FILE_BYTES_MAX = std::size_t{64} << 20;
constexpr int INTERRUPTED_TRIES_MAX = 16;

/// The whole file; false for what is no regular file or too large, without ever waiting on it.
bool ReadWhole(const std::string& path, std::string& text) {
    const CDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen()) return false;
    struct stat status {};
    bool isRead = fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
                  static_cast<uint64_t>(status.st_size) <= FILE_BYTES_MAX;
    char block[16384];
    int tries = 0;
    while (isRead) {
        const ssize_t count = read(file.Get(), block, sizeof block);
        if (count < 0 && errno == EINTR && ++tries < INTERRUPTED_TRIES_MAX) continue;
        if (count <= 0) {
            isRead = count == 0;
            break;
        }
        tries = 0;
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
    *this = CIniReader();
    auto text = std::make_shared<std::string>();
    if (!ReadWhole(path, *text)) return false;
    m_text = std::move(text);
    TakeLines();
    return true;
}

void CIniReader::TakeLines() {
    const std::string_view text = *m_text;
    std::string_view section;
    // Some lines ahead, so that the places of their names are on their way from memory while others are taken.
    LinesAhead ahead;
    std::size_t count = 0;
    std::size_t sampleEnd = text.size() / SAMPLE_PART;
    for (std::size_t start = 0; start < text.size();) {
        if (start > sampleEnd) {
            ExpectRest();
            sampleEnd = text.size();
        }
        const std::size_t end = std::min(text.find('\n', start), text.size());
        Line& line = ahead[count];
        line = {};
        if (AnalyseLine(text.substr(start, end - start), section, line.key, line.value)) {
            line.section = section;
            if (line.key.empty()) {
                m_sectionNames.Expect(section);
            } else {
                m_keyNames.Expect(line.key);
            }
            if (++count == ahead.size()) TakeAhead(ahead, std::exchange(count, 0));
        }
        start = end + 1;
    }
    TakeAhead(ahead, count);
}

void CIniReader::TakeAhead(const LinesAhead& lines, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const bool isHeader = lines[i].key.empty();
        if ((!isHeader && m_open != NONE) || Open(lines[i].section)) Take(lines[i].key, lines[i].value);
    }
}

// A file is much like its beginning: tables that are made large enough at once need not be moved again and again.
void CIniReader::ExpectRest() {
    m_sectionNames.Reserve(m_sectionNames.Names().size() * SAMPLE_PART);
    m_keyNames.Reserve(m_keyNames.Names().size() * SAMPLE_PART);
    m_spans.reserve(m_spans.size() * SAMPLE_PART);
    m_newest.reserve(m_newest.size() * SAMPLE_PART);
    m_entries.reserve(m_entries.size() * SAMPLE_PART);
}

// A section that is opened again takes over the entries of the section read last: files rely on it. Entries are never
// copied from section to section, which would take quadratic time; each remembers the opening in which it was read.
// False for a new section: it begins without entries, and the line that made it leaves none.
bool CIniReader::Open(std::string_view section) {
    const uint32_t number = m_sectionNames.Add(section);
    const bool isNew = number == m_spans.size();
    if (isNew) m_spans.push_back({});
    if (number != m_open) ++m_opening;
    if (isNew) m_cleared = m_opening;
    m_open = number;
    m_spans[number] = {m_cleared, m_opening};
    return !isNew;
}

void CIniReader::Take(std::string_view key, std::string_view value) {
    const uint32_t number = m_keyNames.Add(key);
    if (number == m_newest.size()) m_newest.push_back(NONE);
    uint32_t& newest = m_newest[number];
    if (newest != NONE) {
        Entry& entry = m_entries[newest];
        const bool isInForce = entry.opening >= m_cleared && entry.value == value;
        if (entry.opening == m_opening) entry.value = value;
        if (isInForce || entry.opening == m_opening) return;
    }
    m_entries.push_back({value, m_opening, newest});
    newest = static_cast<uint32_t>(m_entries.size()) - 1;
}

const CIniReader::Entry* CIniReader::FindEntry(uint32_t section, uint32_t key) const {
    const Span span = m_spans[section];
    uint32_t entry = m_newest[key];
    while (entry != NONE && m_entries[entry].opening > span.last) entry = m_entries[entry].before;
    return entry != NONE && m_entries[entry].opening >= span.first ? &m_entries[entry] : nullptr;
}

bool CIniReader::AnalyseLine(std::string_view line, std::string_view& section, std::string_view& key,
                             std::string_view& value) {
    if (line.empty() || IsCommentChar(line.front())) return false;
    const std::size_t open = line.find('[');
    const std::size_t close = open == std::string_view::npos ? open : line.find(']');
    if (close != std::string_view::npos) {
        // The length counts from the line's start; for a `]` in front it wraps round to "all that is left".
        section = line.substr(open + 1, close - 1);
        return true;
    }
    line = line.substr(0, line.find('#'));
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    key = line.substr(0, equals);
    value = line.substr(equals + 1);
    Trim(key);
    Trim(value);
    return !key.empty();
}

bool CIniReader::IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool CIniReader::IsCommentChar(char c) { return c == '#'; }

void CIniReader::Trim(std::string_view& text) {
    while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
}

std::map<std::string, CIniReader::Section> CIniReader::Sections() const {
    std::map<std::string, Section> sections;
    for (uint32_t section = 0; section < m_spans.size(); ++section) {
        Section& entries = sections[std::string(m_sectionNames.Names()[section])];
        for (uint32_t key = 0; key < m_newest.size(); ++key) {
            if (const Entry* entry = FindEntry(section, key))
                entries[std::string(m_keyNames.Names()[key])] = entry->value;
        }
    }
    return sections;
}

bool CIniReader::ReadCommon(const char* section, const char* key, std::string& out) {
    if (section == nullptr || key == nullptr) return false;
    const uint32_t sectionNumber = m_sectionNames.Find(section);
    const uint32_t keyNumber = m_keyNames.Find(key);
    if (sectionNumber == CNameTable::NONE || keyNumber == CNameTable::NONE) return false;
    const Entry* entry = FindEntry(sectionNumber, keyNumber);
    if (entry == nullptr) return false;
    out = entry->value;
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

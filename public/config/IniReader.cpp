#include "public/config/IniReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <utility>

#include "public/file/Descriptor.h"
#include "public/file/RegularFile.h"

namespace {

constexpr std::size_t SAMPLE_PART = 8;  // of a file's bytes
constexpr std::size_t FILE_BYTES_MAX = std::size_t{64} << 20;
constexpr int INTERRUPTED_TRIES_MAX = 16;

using Block = std::array<char, 16384>;

/// As read(), once more whenever a signal interrupts it, but not for ever.
ssize_t ReadBlock(int file, Block& block) {
    for (int tries = 1;; ++tries) {
        const ssize_t count = read(file, block.data(), block.size());
        if (count >= 0 || errno != EINTR || tries == INTERRUPTED_TRIES_MAX) return count;
    }
}

/// The whole file; false for what is no regular file or too large, without ever waiting on it.
bool ReadWhole(const std::string& path, std::string& text) {
    const CDescriptor file(OpenRegularFile(path.c_str()));
    if (!file.IsOpen()) return false;
    Block block;
    while (text.size() <= FILE_BYTES_MAX) {
        const ssize_t count = ReadBlock(file.Get(), block);
        if (count <= 0) return count == 0;
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return false;
}

// atoi without its undefined range: whatever does not fit is cut as the conversion from long cuts it.
int32_t ToInt32(const std::string& value) { return static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10)); }

// Decimal only, and the same whatever the locale; 0 for what is no number.
template <typename T>
T ToReal(std::string_view value) {
    if (value.starts_with('+')) value.remove_prefix(1);
    T number = 0;
    std::from_chars(std::to_address(value.begin()), std::to_address(value.end()), number);
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
    std::string_view rest = *m_text;
    std::string_view section;
    // Some lines ahead, so that the places of their names are on their way from memory while others are taken.
    LinesAhead ahead;
    while (!rest.empty()) {
        const std::size_t before = rest.size();
        std::size_t count = 0;
        while (count < ahead.size() && !rest.empty()) {
            if (!AnalyseLine(NextLine(rest), section, ahead[count])) continue;
            Expect(ahead[count]);
            ++count;
        }
        for (std::size_t i = 0; i < count; ++i) TakeLine(ahead[i]);
        ExpectRest(before, rest.size());
    }
}

std::string_view CIniReader::NextLine(std::string_view& rest) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    return line;
}

void CIniReader::TakeLine(const Line& line) {
    const bool isInSection = !m_spans.empty() && !line.key.empty();
    if (isInSection || Open(line.section)) Take(line.key, line.value);
}

void CIniReader::Expect(const Line& line) const {
    if (line.key.empty()) {
        m_sectionNames.Expect(line.section);
    } else {
        m_keyNames.Expect(line.key);
    }
}

// A file is much like its beginning: tables that are made large enough at once need not be moved again and again.
void CIniReader::ExpectRest(std::size_t bytesBefore, std::size_t bytesLeft) {
    const std::size_t sampleEnd = m_text->size() - m_text->size() / SAMPLE_PART;
    if (bytesBefore <= sampleEnd || bytesLeft > sampleEnd) return;
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
    if (isNew) {
        m_spans.push_back({});
        m_inForce.cleared = m_inForce.last;
    }
    ++m_inForce.last;
    m_spans[number] = m_inForce;
    return !isNew;
}

// Without those that change nothing, a section opened again and again leaves nothing in memory.
void CIniReader::Take(std::string_view key, std::string_view value) {
    const uint32_t number = m_keyNames.Add(key);
    if (number == m_newest.size()) m_newest.push_back(NONE);
    uint32_t& newest = m_newest[number];
    const Entry* before = FindEntry(m_inForce, newest);
    if (before == nullptr || before->value != value) {
        m_entries.push_back({value, m_inForce.last, newest});
        newest = static_cast<uint32_t>(m_entries.size()) - 1;
    }
}

const CIniReader::Entry* CIniReader::FindEntry(const Span& span, uint32_t entry) const {
    while (entry != NONE && m_entries[entry].opening > span.last) entry = m_entries[entry].before;
    return entry != NONE && m_entries[entry].opening > span.cleared ? &m_entries[entry] : nullptr;
}

bool CIniReader::AnalyseLine(std::string_view text, std::string_view& section, Line& line) {
    if (text.starts_with('#')) return false;
    const std::size_t open = text.find('[');
    const std::size_t close = text.find(']');
    if (open != std::string_view::npos && close != std::string_view::npos) {
        // The length counts from the line's start; for a `]` in front it wraps round to "all that is left".
        section = text.substr(open + 1, close - 1);
        line = {section, {}, {}};
        return true;
    }
    text = text.substr(0, text.find('#'));
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return false;
    line = {section, Trimmed(text.substr(0, equals)), Trimmed(text.substr(equals + 1))};
    return !line.key.empty();
}

std::string_view CIniReader::Trimmed(std::string_view text) {
    constexpr const char* BLANKS = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    return text.substr(0, text.find_last_not_of(BLANKS) + 1);  // none: the length wraps round to 0
}

std::map<std::string, CIniReader::Section> CIniReader::Sections() const {
    std::map<std::string, Section> sections;
    for (uint32_t section = 0; section < m_spans.size(); ++section) {
        Section& entries = sections[std::string(m_sectionNames.Names()[section])];
        for (uint32_t key = 0; key < m_newest.size(); ++key) {
            if (const Entry* entry = FindEntry(m_spans[section], m_newest[key]))
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
    const Entry* entry = FindEntry(m_spans[sectionNumber], m_newest[keyNumber]);
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

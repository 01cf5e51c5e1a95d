/// Reads a whole INI file once and answers typed look-ups, each with the caller's default.
///
/// Grammar: `#` begins a comment; `[name]` a section; `key = value` an entry, both trimmed of " \t\r". Names are
/// case-sensitive. Any line with both brackets is a section header, its name as long as the index of the `]` minus one.
/// Not thread-safe; look-ups return copies.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "public/config/NameTable.h"

class CIniReader {
public:
    using Section = std::map<std::string, std::string>;

    /// False when the file cannot be opened: missing, no permission, no regular file, or beyond 64 MiB.
    bool ReadConfig(const std::string& path);

    /// The value, or `def` when section or key is missing. Text that is no number reads as 0, or as its numeric prefix.
    std::string ReadString(const char* section, const char* key, const char* def);
    int32_t ReadInt32(const char* section, const char* key, int32_t def);
    uint32_t ReadUInt32(const char* section, const char* key, uint32_t def);  ///< -1 reads as 4294967295
    uint16_t ReadUInt16(const char* section, const char* key, uint16_t def);  ///< 70000 reads as 4464
    int64_t ReadInt64(const char* section, const char* key, int64_t def);
    float ReadFloat(const char* section, const char* key, float def);
    double ReadDouble(const char* section, const char* key, double def);

    /// False when a name is null or missing. An empty value is a value.
    bool ReadCommon(const char* section, const char* key, std::string& out);

    /// All that was read. Sections that share entries have each its own here, so that it may be far more than the file.
    std::map<std::string, Section> Sections() const;

private:
    static constexpr uint32_t NONE = UINT32_MAX;

    /// A section's entries are those of the openings behind `cleared` up to `last`, the latest of each key.
    struct Span {
        uint32_t cleared;
        uint32_t last;
    };

    struct Entry {
        std::string_view value;
        uint32_t opening;  ///< the one in which it was read
        uint32_t before;   ///< the same key's entry before it, or NONE
    };

    struct Line {
        std::string_view section;
        std::string_view key;  ///< empty in a section's header
        std::string_view value;
    };
    using LinesAhead = std::array<Line, 16>;

    static std::string_view Trimmed(std::string_view text);
    static std::string_view NextLine(std::string_view& rest);
    static bool AnalyseLine(std::string_view text, std::string_view& section, Line& line);
    void TakeLines();
    void TakeLine(const Line& line);
    void Expect(const Line& line) const;
    void ExpectRest(std::size_t bytesBefore, std::size_t bytesLeft);
    bool Open(std::string_view section);
    void Take(std::string_view key, std::string_view value);
    const Entry* FindEntry(const Span& span, uint32_t newest) const;

    std::shared_ptr<const std::string> m_text;  ///< all names and values lie in it
    CNameTable m_sectionNames;
    CNameTable m_keyNames;
    std::vector<Span> m_spans;       ///< by section
    std::vector<uint32_t> m_newest;  ///< by key: its latest entry
    std::vector<Entry> m_entries;

    Span m_inForce{};  ///< of the openings so far; the last is the one that lines belong to
};

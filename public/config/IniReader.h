/// Reads a whole INI file once and answers typed look-ups, each with the caller's default.
///
/// Grammar: `#` begins a comment; `[name]` a section; `key = value` an entry, both trimmed of " \t\r\n". Names are
/// case-sensitive. Any line with both brackets is a section header, its name as long as the index of the `]` minus one.
/// Not thread-safe; look-ups return copies.
#pragma once

#include <cstdint>
#include <map>
#include <string>

class CIniReader {
public:
    using Section = std::map<std::string, std::string>;

    /// False when the file cannot be opened: missing, no permission, no regular file, or beyond 64 MiB.
    bool ReadConfig(const std::string& path);

    // The value, or `def` when section or key is missing. Text that is no number reads as 0, or as its numeric prefix.
    std::string ReadString(const char* section, const char* key, const char* def);
    int32_t ReadInt32(const char* section, const char* key, int32_t def);
    uint32_t ReadUInt32(const char* section, const char* key, uint32_t def);  ///< -1 reads as 4294967295
    uint16_t ReadUInt16(const char* section, const char* key, uint16_t def);  ///< 70000 reads as 4464
    int64_t ReadInt64(const char* section, const char* key, int64_t def);
    float ReadFloat(const char* section, const char* key, float def);
    double ReadDouble(const char* section, const char* key, double def);

    /// False when a name is null or missing. An empty value is a value.
    bool ReadCommon(const char* section, const char* key, std::string& out);

    const std::map<std::string, Section>& Sections() const { return m_configMap; }

private:
    static bool IsSpace(char c);
    static bool IsCommentChar(char c);
    static void Trim(std::string& text);
    static bool AnalyseLine(const std::string& line, std::string& section, std::string& key, std::string& value);
    void TakeLines(const std::string& text);

    std::map<std::string, Section> m_configMap;
};

// Any bytes as an INI file: the reader must agree with a plain second reading of the grammar, line by line.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "public/config/IniReader.h"

namespace {

using Section = std::map<std::string, std::string>;

std::string Trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Written from the grammar's description, not from the reader.
std::map<std::string, Section> SecondReading(const std::string& text) {
    std::map<std::string, Section> sections;
    Section current;
    std::string section;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::string key;
        std::string value;
        if (line.empty() || line[0] == '#') continue;
        if (line.find('[') != std::string::npos && line.find(']') != std::string::npos) {
            const long length = static_cast<long>(line.find(']')) - 1;
            const std::string rest = line.substr(line.find('[') + 1);
            section = length < 0 ? rest : rest.substr(0, static_cast<std::size_t>(length));
        } else {
            const std::string content = line.substr(0, line.find('#'));
            const std::size_t equals = content.find('=');
            if (equals == std::string::npos) continue;
            key = Trimmed(content.substr(0, equals));
            value = Trimmed(content.substr(equals + 1));
            if (key.empty()) continue;
        }
        if (sections.count(section) != 0) {
            current[key] = value;
            sections[section] = current;
        } else {
            current.clear();
            sections[section];
        }
    }
    return sections;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const int file = memfd_create("ini", MFD_CLOEXEC);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
    CIniReader reader;
    if (!reader.ReadConfig("/proc/self/fd/" + std::to_string(file))) std::abort();
    close(file);
    if (reader.Sections() != SecondReading(std::string(reinterpret_cast<const char*>(data), size))) std::abort();
    for (const auto& [section, keys] : reader.Sections()) {
        for (const auto& [key, value] : keys) {
            reader.ReadInt32(section.c_str(), key.c_str(), 0);
            reader.ReadUInt32(section.c_str(), key.c_str(), 0);
            reader.ReadUInt16(section.c_str(), key.c_str(), 0);
            reader.ReadDouble(section.c_str(), key.c_str(), 0);
        }
    }
    return 0;
}

/// A configuration file for a test's lifetime, and the text of one.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// Builds INI texts: Section("config").Key("a", 1)...
class IniText {
public:
    IniText& Section(const std::string& name) { return Line("[" + name + "]"); }
    IniText& Key(const std::string& key, const std::string& value) { return Line(key + "=" + value); }
    IniText& Key(const std::string& key, long value) { return Key(key, std::to_string(value)); }
    IniText& Line(const std::string& line) {
        m_text += line + "\n";
        return *this;
    }
    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

class TempFile {
public:
    explicit TempFile(const std::string& text = "") {
        m_path = (std::filesystem::temp_directory_path() / "vexa-test-XXXXXX").string();
        const int file = mkstemp(m_path.data());
        if (file < 0) std::abort();
        close(file);
        Write(text);
    }
    explicit TempFile(const IniText& ini) : TempFile(ini.Text()) {}
    ~TempFile() { std::remove(m_path.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    void Write(const std::string& text) const { std::ofstream(m_path, std::ios::binary) << text; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

class TempDirectory {
public:
    TempDirectory() {
        std::string path = (std::filesystem::temp_directory_path() / "vexa-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) std::abort();
        m_path = path;
    }
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

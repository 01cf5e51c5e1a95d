/// Directories and files of a run's own, removed at the end of their lifetime.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

class TemporaryDirectory {
public:
    /// `name` stands in front of what makes it unique.
    explicit TemporaryDirectory(const std::string& name = "vexa-test") {
        std::string path = (std::filesystem::temp_directory_path() / (name + "-XXXXXX")).string();
        if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot make a directory like " + path);
        m_path = path;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        if (!isKept) std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    /// As text, with a slash behind: a log's prefix.
    std::string Prefix() const { return m_path.string() + "/"; }
    /// A file in it, there or not.
    std::string File(const std::string& name) const { return (m_path / name).string(); }
    /// Writes a file and tells where it is.
    std::string Write(const std::string& name, std::string_view text) const {
        std::ofstream(m_path / name, std::ios::binary) << text;
        return File(name);
    }

    bool isKept = false;  ///< left behind for somebody to read

private:
    std::filesystem::path m_path;
};

class TemporaryFile {
public:
    explicit TemporaryFile(std::string_view text = "") {
        m_path = (std::filesystem::temp_directory_path() / "vexa-test-XXXXXX").string();
        const int file = mkstemp(m_path.data());
        if (file < 0) throw std::runtime_error("cannot make a file like " + m_path);
        close(file);
        Write(text);
    }
    ~TemporaryFile() { std::remove(m_path.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void Write(std::string_view text) const { std::ofstream(m_path, std::ios::binary) << text; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

/// A text file for other processes, in a directory that anyone may write to: written beside its place and renamed into
/// it, so that readers see the old one or the whole new one. Whatever fails, nothing is left beside.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "public/file/Descriptor.h"

class CReplacedFile {
public:
    /// Begins the file beside `path`; others may read it as far as the umask lets them. Not open where `path` is taken
    /// by what is no ordinary file of our own under one name.
    explicit CReplacedFile(std::string path);
    ~CReplacedFile();
    CReplacedFile(const CReplacedFile&) = delete;
    CReplacedFile& operator=(const CReplacedFile&) = delete;

    /// Whether Add has where to write.
    bool IsOpen() const { return m_file.IsOpen(); }

    /// Never waits to be told: a failure shows in PutInPlace.
    void Add(std::string_view text);

    /// False when not all of it could be written, or the place is not ours to take.
    bool PutInPlace();

private:
    void Flush();

    std::string m_path;
    std::string m_beside;
    CDescriptor m_file;
    bool m_isBeside;
    bool m_hasFailed = false;
    std::size_t m_used = 0;
    char m_buffer[16384];
};

// Reads the ELF header, the program headers and where the section headers end; nothing else of the file is looked at.
#include "public/reg/SharedObject.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "public/file/Descriptor.h"

namespace {

using FileHeader = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);

/// False with errno 0 for a file that ends before.
template <typename Header>
bool ReadAt(int file, uint64_t offset, Header& header) {
    errno = 0;
    return pread(file, &header, sizeof header, static_cast<off_t>(offset)) == static_cast<ssize_t>(sizeof header);
}

bool IsSharedObject(const FileHeader& header) {
    constexpr unsigned char CLASS = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == CLASS &&
           header.e_type == ET_DYN && header.e_phentsize == sizeof(ProgramHeader);
}

/// False for an end that is beyond any number, too.
bool EndsWithin(uint64_t size, uint64_t offset, uint64_t bytes) { return offset <= size && bytes <= size - offset; }

bool IsWhole(int file, uint64_t size, const FileHeader& header) {
    if (!EndsWithin(size, header.e_shoff, uint64_t{header.e_shnum} * header.e_shentsize)) return false;
    if (!EndsWithin(size, header.e_phoff, uint64_t{header.e_phnum} * sizeof(ProgramHeader))) return false;
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        ProgramHeader segment;
        if (!ReadAt(file, header.e_phoff + i * sizeof segment, segment)) return false;
        if (segment.p_type == PT_LOAD && !EndsWithin(size, segment.p_offset, segment.p_filesz)) return false;
    }
    return true;
}

/// The system's reason where it could not read, otherwise what was found.
std::string Reason(const char* found) { return errno != 0 ? std::strerror(errno) : found; }

}  // namespace

std::string WhyNoSharedObject(const std::string& path) {
    const CDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "no regular file";
    FileHeader header;
    if (!ReadAt(file.Get(), 0, header) || !IsSharedObject(header)) return Reason("no shared object for this machine");
    if (IsWhole(file.Get(), static_cast<uint64_t>(status.st_size), header)) return "";
    return Reason("cut: shorter than its headers say");
}

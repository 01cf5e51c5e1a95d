// The checksum of the configuration file's bytes: a board that keeps the same one runs the same configuration.
// Invariant: every byte counts, comments and line ends too; a file that is no regular file is never waited for.
#include <cstdio>
#include <memory>
#include <new>

#include "public/file/Descriptor.h"
#include "public/file/RegularFile.h"
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

constexpr long FILE_BYTES_MAX = 64L << 20;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

FilePtr OpenFile(const char* path) {
    CDescriptor descriptor(OpenRegularFile(path));
    if (!descriptor.IsOpen()) return nullptr;
    FilePtr file(fdopen(descriptor.Get(), "r"));
    if (file != nullptr) descriptor.Release();
    return file;
}

}  // namespace

int32_t CVexaShfeMdApiImpl::_GetConfigCrc(uint32_t& crc) {
    const char* path = m_configFileName.data();
    const auto fail = [path](int32_t result, const char* text) {
        VEXA_LOG_AS("_GetConfigCrc", LOG_ERROR, "%s[%s] [%u].", text, path, static_cast<uint32_t>(result));
        return result;
    };
    const FilePtr file = OpenFile(path);
    if (file == nullptr) return fail(-1, "Error opening file ");
    std::fseek(file.get(), 0, SEEK_END);
    const long size = std::ftell(file.get());
    if (size <= 0) return fail(-2, "file is empty ");
    const std::unique_ptr<uint8_t[]> bytes(
        size > FILE_BYTES_MAX ? nullptr : new (std::nothrow) uint8_t[static_cast<std::size_t>(size) + 1]);
    if (bytes == nullptr) return fail(-3, "Error allocating memory for file");
    std::fseek(file.get(), 0, SEEK_SET);
    const std::size_t count = std::fread(bytes.get(), 1, static_cast<std::size_t>(size), file.get());
    if (count != static_cast<std::size_t>(size)) return fail(-4, "error reading certificate file");
    if (m_crc32.calculate_crc32c(crc, bytes.get(), static_cast<int32_t>(size)) != 0) {
        return fail(-5, "calculate_crc32c failed file");
    }
    return 0;
}

// Linked into a program, in front of the register layer, the stream and the log: hashes every access, poll and line in
// their order, and writes the hash into the file that VEXA_BEHAVIOUR names when the program ends.
//
// Of a line its level, its function and its text count; source files, line numbers, addresses, paths, the version's
// build date and the configuration's checksum do not.
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "public/log/CommonLog.h"
#include "public/reg/DriveRegEnyx.h"

namespace {

constexpr uint64_t CONFIG_CHECKSUM = 0x1001;

enum What : uint64_t { WRITE = 1, READ, READ_64, POLL, LINE };

// Plain data, and no allocation: some of the programs count theirs, or let them fail.
uint64_t g_count = 0;
uint64_t g_hash = 0;
pid_t g_process = 0;

void Add(uint64_t value) {
    g_hash = (g_hash ^ value) * 0x9E3779B97F4A7C15ULL;
    g_hash ^= g_hash >> 29;
}

void Add(std::string_view text) {
    for (const char character : text) Add(static_cast<unsigned char>(character));
}

void Note(What what, uint64_t where, uint64_t value, int32_t result) {
    ++g_count;
    Add(what);
    Add(where);
    Add(where == CONFIG_CHECKSUM ? 0 : value);
    Add(static_cast<uint32_t>(result));
}

void Tell() {
    const char* path = std::getenv("VEXA_BEHAVIOUR");
    if (path == nullptr || getpid() != g_process) return;
    std::FILE* file = std::fopen(path, "w");
    if (file == nullptr) return;
    std::fprintf(file, "%" PRIu64 " %016" PRIx64 "\n", g_count, g_hash);
    std::fclose(file);
}

[[gnu::constructor]] void Begin() {
    g_process = getpid();
    std::atexit(Tell);
}

struct Varying {
    std::string_view start;
    std::string_view end;  ///< one of these characters
    std::size_t bytesMin;
};

// Configurations name temporary files and a processor that is there, so that their checksums vary too.
constexpr Varying VARYING[] = {{"/", " ],:'\"", 0},  {"0x", " ],.", 12},   {"_VERSION[", "]", 0},
                               {"frag_buf:", "", 0}, {"Crc is ", ",.", 0}, {"configCrc[", "]", 0},
                               {"cpucore[", "]", 0}, {"CPU[", "]", 0},     {"addr[0x1001] value[", "", 0}};

void AddLine(std::string_view line) {
    line.remove_prefix(std::min(line.find("]["), line.size()));
    while (!line.empty()) {
        std::size_t bytes = 0;
        for (const Varying& varying : VARYING) {
            if (!line.starts_with(varying.start)) continue;
            const std::size_t end = std::min(line.find_first_of(varying.end), line.size());
            if (end >= varying.bytesMin) bytes = end;
        }
        Add(bytes == 0 ? line.substr(0, 1) : "~");
        line.remove_prefix(std::max<std::size_t>(bytes, 1));
    }
}

}  // namespace

// Programs without the library have none of these; nobody calls them there.
extern "C" {
#define WRAPPED(result, name, ...)                           \
    __attribute__((weak)) result __real_##name(__VA_ARGS__); \
    result __wrap_##name(__VA_ARGS__);                       \
    result __wrap_##name(__VA_ARGS__)

WRAPPED(int32_t, _ZNK11CDrvRegEnyx13WriteRegisterEjj, const CDrvRegEnyx* board, uint32_t index, uint32_t value) {
    const int32_t result = __real__ZNK11CDrvRegEnyx13WriteRegisterEjj(board, index, value);
    Note(WRITE, index, value, result);
    return result;
}

WRAPPED(int32_t, _ZNK11CDrvRegEnyx12ReadRegisterEjRj, const CDrvRegEnyx* board, uint32_t index, uint32_t* value) {
    const int32_t result = __real__ZNK11CDrvRegEnyx12ReadRegisterEjRj(board, index, value);
    Note(READ, index, *value, result);
    return result;
}

WRAPPED(int32_t, _ZNK11CDrvRegEnyx12ReadRegisterEjRm, const CDrvRegEnyx* board, uint32_t index, uint64_t* value) {
    const int32_t result = __real__ZNK11CDrvRegEnyx12ReadRegisterEjRm(board, index, value);
    Note(READ_64, index, *value, result);
    return result;
}

WRAPPED(int32_t, _ZN11CDrvDMAEnyx8RecvOnceEPFvPKhjPvES2_, CDrvDMAEnyx* stream, VexaBoardMessageHandler handler,
        void* user) {
    const int32_t result = __real__ZN11CDrvDMAEnyx8RecvOnceEPFvPKhjPvES2_(stream, handler, user);
    Note(POLL, 0, 0, result);
    return result;
}

__attribute__((weak)) void __real__ZN10CCommonLog8WriteLogE9ELOGLEVELPKcz(CCommonLog*, ELOGLEVEL, const char*, ...);
void __wrap__ZN10CCommonLog8WriteLogE9ELOGLEVELPKcz(CCommonLog* log, ELOGLEVEL level, const char* format, ...);
void __wrap__ZN10CCommonLog8WriteLogE9ELOGLEVELPKcz(CCommonLog* log, ELOGLEVEL level, const char* format, ...) {
    if (!log->IsEnabled(level)) return;
    char line[8192];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    __real__ZN10CCommonLog8WriteLogE9ELOGLEVELPKcz(log, level, "%s", line);
    Note(LINE, level, 0, 0);
    AddLine(line);
}
}

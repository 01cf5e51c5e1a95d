#include "tests/support/FailingCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

void FailingCalls::Forget() {
    s_failures.clear();
    s_from.clear();
    s_counts.clear();
    s_made.clear();
    s_happened = 0;
}

int FailingCalls::Note(ECall call, const char* path) {
    if (!s_isWatching) return 0;
    s_isWatching = false;  // what the bookkeeping itself calls is nobody's business
    const uint64_t number = ++s_counts[call];
    s_made.push_back({call, path == nullptr ? "" : path});
    int error = 0;
    if (const auto once = s_failures.find({call, number}); once != s_failures.end()) error = once->second;
    if (const auto from = s_from.find(call); from != s_from.end() && number >= from->second.number) {
        error = from->second.error;
    }
    s_happened += error != 0 ? 1 : 0;
    s_isWatching = true;
    return error;
}

int FailingCalls::Note(ECall call, int file) {
    if (!s_isWatching) return 0;
    char path[512] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    if (readlink(link.c_str(), path, sizeof path - 1) < 0) path[0] = '\0';
    return Note(call, path);
}

namespace {

template <typename Result>
Result Failed(int error, Result result) {
    errno = error;
    return result;
}

int FileOf(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

std::size_t PartOf(std::size_t size) { return size < 2 ? size : size / 2; }

}  // namespace

// Names that the linker makes.
extern "C" {

#define REAL(result, name, ...)        \
    result __real_##name(__VA_ARGS__); \
    result __wrap_##name(__VA_ARGS__)

REAL(ssize_t, read, int file, void* to, std::size_t size) {
    const int error = FailingCalls::Note(ECall::Read, file);
    if (error > 0) return Failed<ssize_t>(error, -1);
    return __real_read(file, to, error == FailingCalls::PART ? PartOf(size < 64 ? size : 64) : size);
}

REAL(ssize_t, pread, int file, void* to, std::size_t size, off_t offset) {
    const int error = FailingCalls::Note(ECall::Pread, file);
    if (error > 0) return Failed<ssize_t>(error, -1);
    return __real_pread(file, to, error == FailingCalls::PART ? PartOf(size) : size, offset);
}

REAL(ssize_t, write, int file, const void* data, std::size_t size) {
    const int error = FailingCalls::Note(ECall::Write, file);
    if (error > 0) return Failed<ssize_t>(error, -1);
    if (error == FailingCalls::NOTHING) return 0;
    return __real_write(file, data, error == FailingCalls::PART ? PartOf(size) : size);
}

// As Linux does, which has closed the file whatever it tells.
REAL(int, close, int file) {
    const int error = FailingCalls::Note(ECall::Close, file);
    const int result = __real_close(file);
    return error > 0 ? Failed(error, -1) : result;
}

REAL(int, fstat, int file, struct stat* status) {
    const int error = FailingCalls::Note(ECall::Fstat, file);
    return error > 0 ? Failed(error, -1) : __real_fstat(file, status);
}

REAL(int, stat, const char* path, struct stat* status) {
    const int error = FailingCalls::Note(ECall::Stat, path);
    return error > 0 ? Failed(error, -1) : __real_stat(path, status);
}

REAL(int, lstat, const char* path, struct stat* status) {
    const int error = FailingCalls::Note(ECall::Lstat, path);
    return error > 0 ? Failed(error, -1) : __real_lstat(path, status);
}

REAL(off_t, lseek, int file, off_t offset, int whence) {
    const int error = FailingCalls::Note(ECall::Lseek, file);
    return error > 0 ? Failed<off_t>(error, -1) : __real_lseek(file, offset, whence);
}

REAL(int, ftruncate, int file, off_t size) {
    const int error = FailingCalls::Note(ECall::Ftruncate, file);
    return error > 0 ? Failed(error, -1) : __real_ftruncate(file, size);
}

REAL(int, rename, const char* from, const char* to) {
    const int error = FailingCalls::Note(ECall::Rename, from);
    return error > 0 ? Failed(error, -1) : __real_rename(from, to);
}

REAL(int, unlink, const char* path) {
    const int error = FailingCalls::Note(ECall::Unlink, path);
    return error > 0 ? Failed(error, -1) : __real_unlink(path);
}

REAL(int, fchmod, int file, mode_t mode) {
    const int error = FailingCalls::Note(ECall::Fchmod, file);
    return error > 0 ? Failed(error, -1) : __real_fchmod(file, mode);
}

REAL(int, dup3, int from, int to, int flags) {
    const int error = FailingCalls::Note(ECall::Dup3, from);
    return error > 0 ? Failed(error, -1) : __real_dup3(from, to, flags);
}

REAL(int, sigaction, int number, const struct sigaction* action, struct sigaction* before) {
    const int error = FailingCalls::Note(ECall::Sigaction, "");
    return error > 0 ? Failed(error, -1) : __real_sigaction(number, action, before);
}

REAL(int, sched_setaffinity, pid_t thread, std::size_t size, const cpu_set_t* set) {
    const int error = FailingCalls::Note(ECall::SetAffinity, "");
    return error > 0 ? Failed(error, -1) : __real_sched_setaffinity(thread, size, set);
}

REAL(ssize_t, getrandom, void* to, std::size_t size, unsigned int flags) {
    const int error = FailingCalls::Note(ECall::Getrandom, "");
    if (error > 0) return Failed<ssize_t>(error, -1);
    return __real_getrandom(to, error == FailingCalls::PART ? PartOf(size) : size, flags);
}

REAL(char*, realpath, const char* path, char* to) {
    const int error = FailingCalls::Note(ECall::Realpath, path);
    return error > 0 ? Failed<char*>(error, nullptr) : __real_realpath(path, to);
}

REAL(void*, dlopen, const char* path, int flags) {
    return FailingCalls::Note(ECall::Dlopen, path) > 0 ? nullptr : __real_dlopen(path, flags);
}

REAL(int, dladdr, const void* address, Dl_info* info) {
    return FailingCalls::Note(ECall::Dladdr, "") > 0 ? 0 : __real_dladdr(address, info);
}

REAL(int, dlinfo, void* handle, int request, void* info) {
    return FailingCalls::Note(ECall::Dlinfo, "") > 0 ? -1 : __real_dlinfo(handle, request, info);
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const int error = FailingCalls::Note(ECall::Open, path);
    return error > 0 ? Failed(error, -1) : __real_open(path, flags, mode);
}

int __real_fcntl(int file, int command, ...);
int __wrap_fcntl(int file, int command, ...);
int __wrap_fcntl(int file, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    const int error = FailingCalls::Note(ECall::Fcntl, file);
    return error > 0 ? Failed(error, -1) : __real_fcntl(file, command, argument);
}

// A stream that reads, seeks and closes by the calls above; those of the C library are out of reach.
REAL(std::FILE*, fdopen, int file, const char* mode) {
    const int error = FailingCalls::Note(ECall::Fdopen, file);
    if (error > 0) return Failed<std::FILE*>(error, nullptr);
    if (!FailingCalls::IsWatching()) return __real_fdopen(file, mode);
    cookie_io_functions_t calls{};
    calls.read = [](void* cookie, char* to, std::size_t size) { return __wrap_read(FileOf(cookie), to, size); };
    calls.seek = [](void* cookie, off64_t* offset, int whence) {
        const off_t reached = __wrap_lseek(FileOf(cookie), *offset, whence);
        if (reached >= 0) *offset = reached;
        return reached < 0 ? -1 : 0;
    };
    calls.close = [](void* cookie) { return __wrap_close(FileOf(cookie)); };
    return fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(file)), mode, calls);
}
}

#include "tests/support/FailingSystem.h"

#include <signal.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

// Names that the linker makes.
extern "C" {
std::size_t __real_fread(void* to, std::size_t size, std::size_t count, std::FILE* file);
int __real_sigaction(int signal, const struct sigaction* action, struct sigaction* before);
int32_t __real__ZN6CCrc3216calculate_crc32cERjPKhi(uint32_t& crc, const uint8_t* data, int32_t length);

std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, std::FILE* file);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* before);
int32_t __wrap__ZN6CCrc3216calculate_crc32cERjPKhi(uint32_t& crc, const uint8_t* data, int32_t length);

std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, std::FILE* file) {
    return __real_fread(to, size, FailingSystem::Get().isReadShort && count > 0 ? count - 1 : count, file);
}

int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* before) {
    if (FailingSystem::Get().refusedSignals.count(signal) == 0) return __real_sigaction(signal, action, before);
    errno = EINVAL;
    return -1;
}

int32_t __wrap__ZN6CCrc3216calculate_crc32cERjPKhi(uint32_t& crc, const uint8_t* data, int32_t length) {
    if (FailingSystem::Get().isChecksumOff) return -9;
    return __real__ZN6CCrc3216calculate_crc32cERjPKhi(crc, data, length);
}
}

FailingSystem& FailingSystem::Get() {
    static FailingSystem system;
    return system;
}

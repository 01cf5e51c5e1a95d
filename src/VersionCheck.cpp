// Do firmware and library fit? The library tells the board its version and holds the board's against the oldest that it
// can work with; the board has the last word. Runs on the receiving thread, once per full start-up.
#include "common/Version.h"

#include <cstdarg>
#include <cstdio>
#include <map>
#include <string>

#include "common/RegisterMap.h"
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

/// Logs a line of the check and keeps its text.
#define CHECK_LOG(level, ...) VEXA_LOG_AS("Chk_SysVersion", level, "%s", Keep(m_VerReocrd, __VA_ARGS__))

__attribute__((format(printf, 2, 3))) const char* Keep(std::vector<std::string>& lines, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return lines.emplace_back(text).c_str();
}

}  // namespace

int32_t CVexaShfeMdApiImpl::Chk_SysVersion() {
    const std::map<std::string, uint32_t> oldestHardware{{VEXA_U50_VERSION_NUMBER, 0x20260420}};
    m_VerReocrd.clear();

    const uint32_t softVersion = PackVersion(VEXA_U50_VERSION_NUMBER);
    CHECK_LOG(LOG_INFO, "master channel addr 0x102, litte Endian  0x%08x.", softVersion);
    const uint32_t networkVersion = __builtin_bswap32(softVersion);
    m_drvRegEnyx.WriteRegister(reg::SOFTWARE_VERSION, networkVersion);
    CHECK_LOG(LOG_INFO, "master channel addr 0x102, big Endian  0x%08x.", networkVersion);

    uint32_t hwVersion = 0;
    m_drvRegEnyx.ReadRegister(reg::HARDWARE_VERSION, hwVersion);
    const auto found = oldestHardware.find(VEXA_U50_VERSION_NUMBER);
    if (found == oldestHardware.end()) {
        CHECK_LOG(LOG_INFO, "soft version is error.");
        return -1;
    }
    CHECK_LOG(LOG_INFO, "str_it->second is %x, hwVersion is %x.", found->second, hwVersion);
    if (found->second > hwVersion) {
        CHECK_LOG(LOG_ERROR, "you will need to update your hardware version.");
        CHECK_LOG(LOG_ERROR, "soft version %s, hwVersion is %x > fpga hwVersion is %x.", VEXA_U50_VERSION_NUMBER,
                  found->second, hwVersion);
        return -1;
    }
    CHECK_LOG(LOG_INFO, "hardware version check is success.");

    uint32_t iCheckRst = 0;
    m_drvRegEnyx.ReadRegister(reg::VERSION_VERDICT, iCheckRst);
    switch (iCheckRst) {
        case 0: CHECK_LOG(LOG_INFO, "soft version write is fail."); return -1;
        case 1: CHECK_LOG(LOG_INFO, "hardware and soft version check is success."); return 0;
        case 2:
            CHECK_LOG(LOG_INFO, "you will need to update your soft version.");
            CHECK_LOG(LOG_INFO, "iCheckRst == %d, soft  error.", static_cast<int>(iCheckRst));
            return -1;
        default: CHECK_LOG(LOG_INFO, "iCheckRst is %d error.", static_cast<int>(iCheckRst)); return -1;
    }
}

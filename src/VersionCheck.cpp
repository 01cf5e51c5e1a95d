// Do firmware and library fit? The library tells the board its version and holds the board's against the oldest that it
// can work with; the board has the last word. Runs on the receiving thread, once per full start-up.
#include "src/Version.h"

#include <cstdio>
#include <map>
#include <string>

#include "public/log/LogLine.h"
#include "src/RegisterMap.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

/// The first number of the text becomes the lowest byte; each is read as hexadecimal, so that "33" is 0x33.
uint32_t PackVersion(const char* text) {
    unsigned int part[4] = {};
    // NOLINTNEXTLINE(cert-err34-c): the text is a constant of this library
    std::sscanf(text, "%x.%x.%x.%x", &part[0], &part[1], &part[2], &part[3]);
    uint32_t word = 0;
    for (int i = 3; i >= 0; --i) word = (word << 8) | (part[i] & 0xFFU);
    return word;
}

}  // namespace

int32_t CVexaShfeMdApiImpl::Chk_SysVersion() {
    const std::map<std::string, uint32_t> oldestHardware{{VEXA_U50_VERSION_NUMBER, 0x20260420}};

    const uint32_t softVersion = PackVersion(VEXA_U50_VERSION_NUMBER);
    VEXA_LOG(LOG_INFO, "master channel addr 0x102, litte Endian  0x%08x.", softVersion);
    const uint32_t networkVersion = __builtin_bswap32(softVersion);
    m_drvRegEnyx.WriteRegister(reg::SOFTWARE_VERSION, networkVersion);
    VEXA_LOG(LOG_INFO, "master channel addr 0x102, big Endian  0x%08x.", networkVersion);

    uint32_t hwVersion = 0;
    m_drvRegEnyx.ReadRegister(reg::HARDWARE_VERSION, hwVersion);
    const auto found = oldestHardware.find(VEXA_U50_VERSION_NUMBER);
    if (found == oldestHardware.end()) {
        VEXA_LOG(LOG_INFO, "soft version is error.");
        return -1;
    }
    VEXA_LOG(LOG_INFO, "str_it->second is %x, hwVersion is %x.", found->second, hwVersion);
    if (found->second > hwVersion) {
        VEXA_LOG(LOG_ERROR, "you will need to update your hardware version.");
        VEXA_LOG(LOG_ERROR, "soft version %s, hwVersion is %x > fpga hwVersion is %x.", VEXA_U50_VERSION_NUMBER,
                 found->second, hwVersion);
        return -1;
    }
    VEXA_LOG(LOG_INFO, "hardware version check is success.");

    uint32_t iCheckRst = 0;
    m_drvRegEnyx.ReadRegister(reg::VERSION_VERDICT, iCheckRst);
    switch (iCheckRst) {
        case 0: VEXA_LOG(LOG_INFO, "soft version write is fail."); return -1;
        case 1: VEXA_LOG(LOG_INFO, "hardware and soft version check is success."); return 0;
        case 2:
            VEXA_LOG(LOG_INFO, "you will need to update your soft version.");
            VEXA_LOG(LOG_INFO, "iCheckRst == %d, soft  error.", static_cast<int>(iCheckRst));
            return -1;
        default: VEXA_LOG(LOG_INFO, "iCheckRst is %d error.", static_cast<int>(iCheckRst)); return -1;
    }
}

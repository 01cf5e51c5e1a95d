// Register and stream access over the loaded provider. Session thread only. In: register indices, a stream name.
// Out: one provider call each. Nothing is touched that is not open.
#include "public/reg/DriveRegEnyx.h"

#include "public/log/LogLine.h"
#include "public/reg/BoardProviderLoader.h"

namespace {

constexpr int32_t NOT_OPEN = -1;

// The arguments are looked at after the level: below LOG_DEBUG_EX an access formats nothing.
#define TRACE(...)                                                                                  \
    do {                                                                                            \
        if (CCommonLog::GetInstance().IsEnabled(LOG_DEBUG_EX)) VEXA_LOG(LOG_DEBUG_EX, __VA_ARGS__); \
    } while (false)

}  // namespace

CDrvRegEnyx& CDrvRegEnyx::GetInstance() {
    static CDrvRegEnyx instance;
    return instance;
}

int32_t CDrvRegEnyx::Init(uint16_t bus, uint16_t core) const {
    Destory();
    const BoardProviderChoice& choice = LoadBoardProvider();
    if (choice.provider == nullptr) return NOT_OPEN;
    VexaBoardRegisters* registers = nullptr;
    const int32_t result = choice.provider->open_registers(choice.argument.c_str(), bus, core, &registers);
    if (result != 0 || registers == nullptr) {
        VEXA_LOG(LOG_ERROR, "board provider %s: the registers of bus %u, core %u cannot be opened (%d)%s",
                 choice.provider->name, bus, core, result, LastErrorOf(*choice.provider).c_str());
        return result < 0 ? result : NOT_OPEN;
    }
    m_provider = choice.provider;
    m_registers = registers;
    return 0;
}

void CDrvRegEnyx::Destory() const {
    if (m_registers != nullptr) m_provider->close_registers(m_registers);
    m_registers = nullptr;
}

int32_t CDrvRegEnyx::WriteRegister(uint32_t addr, uint32_t value) const {
    TRACE("addr[0x%04x] value[0x%08x]", addr, value);
    return m_registers == nullptr ? NOT_OPEN : m_provider->write32(m_registers, addr, value);
}

int32_t CDrvRegEnyx::ReadRegister(uint32_t addr, uint32_t& value) const {
    if (m_registers == nullptr) return NOT_OPEN;
    uint32_t read = value;
    const int32_t result = m_provider->read32(m_registers, addr, &read);
    if (result == 0) value = read;
    TRACE("addr[0x%04x] value[0x%08x] 32 bits, result %d", addr, value, result);
    return result;
}

int32_t CDrvRegEnyx::ReadRegister(uint32_t addr, uint64_t& value) const {
    if (m_registers == nullptr) return NOT_OPEN;
    uint64_t read = value;
    const int32_t result = m_provider->read64(m_registers, addr, &read);
    if (result == 0) value = read;
    TRACE("addr[0x%04x] value[0x%016lx] 64 bits, result %d", addr, value, result);
    return result;
}

CDrvDMAEnyx::~CDrvDMAEnyx() { Close(); }

void CDrvDMAEnyx::Close() {
    if (m_stream != nullptr) m_provider->close_stream(m_stream);
    m_stream = nullptr;
}

int32_t CDrvDMAEnyx::Init(uint16_t bus, const CQelCharArray<64>& name) {
    Close();
    const BoardProviderChoice& choice = LoadBoardProvider();
    if (choice.provider == nullptr) return NOT_OPEN;
    VexaBoardStream* stream = nullptr;
    const int32_t result = choice.provider->open_stream(choice.argument.c_str(), bus, name.data(), &stream);
    if (result != 0 || stream == nullptr) {
        VEXA_LOG(LOG_ERROR, "board provider %s: the stream %s of bus %u cannot be opened (%d)%s", choice.provider->name,
                 name.data(), bus, result, LastErrorOf(*choice.provider).c_str());
        return result < 0 ? result : NOT_OPEN;
    }
    m_provider = choice.provider;
    m_stream = stream;
    return 0;
}

int32_t CDrvDMAEnyx::RecvOnce(VexaBoardMessageHandler handler, void* user) {
    if (m_stream == nullptr) [[unlikely]]
        return NOT_OPEN;
    const int32_t result = m_provider->receive(m_stream, handler, user);
    return result < 0 ? result : 0;
}

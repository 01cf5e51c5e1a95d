// Register and stream access over the loaded provider. Session thread only. In: register indices, a stream name.
// Out: one provider call each. Nothing is touched that is not open.
#include "public/reg/DriveRegEnyx.h"

#include <utility>

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
    m_bus = bus;
    m_hasFailed.store(false, std::memory_order_relaxed);
    return 0;
}

void CDrvRegEnyx::Destory() const {
    if (m_registers != nullptr) m_provider->close_registers(m_registers);
    m_registers = nullptr;
}

int32_t CDrvRegEnyx::WriteRegister(uint32_t addr, uint32_t value) const {
    TRACE("addr[0x%04x] value[0x%08x]", addr, value);
    return m_registers == nullptr ? NOT_OPEN : Note(m_provider->write32(m_registers, addr, value), addr);
}

int32_t CDrvRegEnyx::ReadRegister(uint32_t addr, uint32_t& value) const {
    if (m_registers == nullptr) return NOT_OPEN;
    uint32_t read = value;
    const int32_t result = m_provider->read32(m_registers, addr, &read);
    if (result == 0) value = read;
    TRACE("addr[0x%04x] value[0x%08x] 32 bits, result %d", addr, value, result);
    return Note(result, addr);
}

int32_t CDrvRegEnyx::ReadRegister(uint32_t addr, uint64_t& value) const {
    if (m_registers == nullptr) return NOT_OPEN;
    uint64_t read = value;
    const int32_t result = m_provider->read64(m_registers, addr, &read);
    if (result == 0) value = read;
    TRACE("addr[0x%04x] value[0x%016lx] 64 bits, result %d", addr, value, result);
    return Note(result, addr);
}

inline int32_t CDrvRegEnyx::Note(int32_t result, uint32_t addr) const {
    if (result != 0 || HasFailed()) [[unlikely]]
        TellOutage(result, addr);
    return result;
}

void CDrvRegEnyx::TellOutage(int32_t result, uint32_t addr) const {
    const bool hasFailed = m_hasFailed.exchange(result != 0, std::memory_order_relaxed);
    if (result == 0) {
        VEXA_LOG(LOG_WARNING, "board provider %s: the registers answer again after %lu failed accesses",
                 m_provider->name, FailedAccesses() - m_failedBefore);
        return;
    }
    const uint64_t before = m_failedAccesses.fetch_add(1, std::memory_order_relaxed);
    if (hasFailed) return;
    m_failedBefore = before;
    VEXA_LOG(LOG_ERROR, "board provider %s: register 0x%04x does not answer (%d)%s; failed accesses are counted",
             m_provider->name, addr, result, LastErrorOf(*m_provider).c_str());
}

int32_t CRegisterHold::Take(uint16_t bus, uint16_t core) {
    const CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
    const bool areOthersHolding = registers.m_registers != nullptr && registers.m_holds > (m_isHeld ? 1U : 0U);
    if (areOthersHolding && registers.m_bus != bus) {
        VEXA_LOG(LOG_ERROR,
                 "the board on bus %u is in use by another session of this process, which works with one board; start "
                 "bus %u in a process of its own",
                 registers.m_bus, bus);
        return NOT_OPEN;
    }
    if (!areOthersHolding) {
        if (const int32_t result = registers.Init(bus, core); result != 0) return result;
    }
    if (!m_isHeld) ++registers.m_holds;
    m_isHeld = true;
    return 0;
}

void CRegisterHold::Release() {
    if (!m_isHeld) return;
    m_isHeld = false;
    const CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
    if (--registers.m_holds == 0) registers.Destory();
}

CDrvDMAEnyx::~CDrvDMAEnyx() { Close(); }

void CDrvDMAEnyx::Close() {
    VexaBoardStream* stream = HasFailed() ? m_failed : m_stream;
    if (stream != nullptr) m_provider->close_stream(stream);
    m_stream = nullptr;
    m_failed = nullptr;
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
    m_name = name;
    return 0;
}

int32_t CDrvDMAEnyx::RecvOnce(VexaBoardMessageHandler handler, void* user) {
    if (m_stream == nullptr) [[unlikely]]
        return RecvFailed(handler, user);
    const int32_t result = m_provider->receive(m_stream, handler, user);
    return result < 0 ? BeginOutage(result) : 0;
}

// A handler may poll again: then the outer call finds the outage begun, or ended, by the inner one.
int32_t CDrvDMAEnyx::BeginOutage(int32_t result) {
    ++m_failedPolls;
    if (HasFailed()) return result;
    m_failed = std::exchange(m_stream, nullptr);
    m_failedBefore = m_failedPolls - 1;
    VEXA_LOG(LOG_ERROR, "board provider %s: the stream %s has failed (%d)%s; it is polled until it answers again",
             m_provider->name, m_name.data(), result, LastErrorOf(*m_provider).c_str());
    return result;
}

int32_t CDrvDMAEnyx::RecvFailed(VexaBoardMessageHandler handler, void* user) {
    if (!HasFailed()) return NOT_OPEN;
    const int32_t result = m_provider->receive(m_failed, handler, user);
    if (result < 0) {
        ++m_failedPolls;
        return result;
    }
    if (!HasFailed()) return 0;
    m_stream = std::exchange(m_failed, nullptr);
    VEXA_LOG(LOG_WARNING, "board provider %s: the stream %s answers again after %lu failed polls", m_provider->name,
             m_name.data(), m_failedPolls - m_failedBefore);
    return 0;
}

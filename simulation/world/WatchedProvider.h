/// A board provider that shows everything to a watcher and then calls the software board's. One at a time.
#pragma once

#include <cstdint>

#include "simulation/rules/RegisterRules.h"
#include "testing/ProviderAdapter.h"

namespace simulation {

class IBoardWatcher {
public:
    /// False when the board need not be told.
    virtual bool OnWrite(uint32_t index, uint32_t value) = 0;
    virtual void BeforeRead(EAccess access, uint32_t index) = 0;
    /// May tell the host something else than the board did.
    virtual void AfterRead(EAccess access, uint32_t index, uint64_t& value) = 0;
    virtual void OnStreamOpened(int32_t channel) = 0;
    virtual void BeforeReceive(int32_t channel) = 0;
    virtual void OnMessage(int32_t channel, const unsigned char* data, unsigned int length,
                           VexaBoardMessageHandler handler, void* user) = 0;
    virtual void AfterReceive(int32_t channel) = 0;
    virtual ~IBoardWatcher() = default;
};

class WatchedProvider final : public BoardOperations {
public:
    /// `filler`: what lies in memory behind every message.
    WatchedProvider(IBoardWatcher& watcher, uint8_t filler);
    WatchedProvider(const WatchedProvider&) = delete;
    WatchedProvider& operator=(const WatchedProvider&) = delete;

    /// Register areas and streams that are open.
    static int32_t OpenHandles() { return s_openHandles; }

private:
    struct Stream;
    struct Delivery;

    int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) override;
    void CloseRegisters(VexaBoardRegisters* registers) override;
    int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) override;
    int32_t Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) override;
    int32_t Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) override;
    int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) override;
    void CloseStream(VexaBoardStream* stream) override;
    int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) override;
    const char* LastError() override;

    static void Deliver(const unsigned char* data, unsigned int length, void* user);

    IBoardWatcher& m_watcher;
    uint8_t m_filler;
    inline static int32_t s_openHandles = 0;  // counted between the worlds, too
    ProviderAdapter m_adapter{*this, "simulated"};
};

}  // namespace simulation

/// A board provider that shows everything to a watcher and then calls the software board's. One at a time.
#pragma once

#include <cstdint>

#include "public/reg/BoardProvider.h"
#include "simulation/rules/RegisterRules.h"

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

class WatchedProvider {
public:
    /// `filler`: what lies in memory behind every message.
    WatchedProvider(IBoardWatcher& watcher, uint8_t filler);
    ~WatchedProvider();
    WatchedProvider(const WatchedProvider&) = delete;
    WatchedProvider& operator=(const WatchedProvider&) = delete;

    /// Register areas and streams that are open.
    static int32_t OpenHandles();
};

}  // namespace simulation

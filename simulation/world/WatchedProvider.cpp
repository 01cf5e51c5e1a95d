#include "simulation/world/WatchedProvider.h"

#include <cstdlib>
#include <cstring>

#include "common/FpgaStructCommon.h"
#include "simulation/base/WatchedAllocator.h"

namespace simulation {
namespace {

// What the board and the checks allocate is not the library's.
using Watch = WatchedAllocator::Watch;

/// A message where the library finds it, and what lies behind.
alignas(64) unsigned char g_buffer[2 * DMA_MESSAGE_CAPACITY];

const VexaBoardProvider& Board() { return software_board::Provider(); }

}  // namespace

/// What the library holds as its stream.
struct WatchedProvider::Stream {
    VexaBoardStream* inner;
    int32_t channel;
};

/// What the board hands back with a message.
struct WatchedProvider::Delivery {
    const WatchedProvider& seam;
    int32_t channel;
    VexaBoardMessageHandler handler;
    void* user;
};

WatchedProvider::WatchedProvider(IBoardWatcher& watcher, uint8_t filler) : m_watcher(watcher), m_filler(filler) {
    s_openHandles = 0;
}

int32_t WatchedProvider::OpenRegisters(const char* argument, uint16_t bus, uint16_t core,
                                       VexaBoardRegisters** registers) {
    const Watch unwatched(false);
    const int32_t result = Board().open_registers(argument, bus, core, registers);
    if (result == 0) ++s_openHandles;
    return result;
}

void WatchedProvider::CloseRegisters(VexaBoardRegisters* registers) {
    const Watch unwatched(false);
    --s_openHandles;
    Board().close_registers(registers);
}

int32_t WatchedProvider::Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) {
    if (!m_watcher.OnWrite(index, value)) return 0;
    const Watch unwatched(false);
    return Board().write32(registers, index, value);
}

int32_t WatchedProvider::Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
    const Watch unwatched(false);
    m_watcher.BeforeRead(EAccess::Read32, index);
    const int32_t result = Board().read32(registers, index, value);
    uint64_t told = *value;
    m_watcher.AfterRead(EAccess::Read32, index, told);
    *value = static_cast<uint32_t>(told);
    return result;
}

int32_t WatchedProvider::Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) {
    const Watch unwatched(false);
    m_watcher.BeforeRead(EAccess::Read64, index);
    const int32_t result = Board().read64(registers, index, value);
    m_watcher.AfterRead(EAccess::Read64, index, *value);
    return result;
}

int32_t WatchedProvider::OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) {
    const Watch unwatched(false);
    VexaBoardStream* inner = nullptr;
    const int32_t result = Board().open_stream(argument, bus, name, &inner);
    if (result != 0) return result;
    const int32_t channel = static_cast<int32_t>(std::strtol(name + std::strlen("CUSTOM_CHAN"), nullptr, 10));
    *stream = reinterpret_cast<VexaBoardStream*>(new Stream{inner, channel});
    ++s_openHandles;
    m_watcher.OnStreamOpened(channel);
    return 0;
}

void WatchedProvider::CloseStream(VexaBoardStream* stream) {
    const Watch unwatched(false);
    auto* ours = reinterpret_cast<Stream*>(stream);
    Board().close_stream(ours->inner);
    delete ours;
    --s_openHandles;
}

void WatchedProvider::Deliver(const unsigned char* data, unsigned int length, void* user) {
    const auto& delivery = *static_cast<const Delivery*>(user);
    if (length <= DMA_MESSAGE_CAPACITY) {
        std::memcpy(g_buffer, data, length);
        std::memset(g_buffer + length, delivery.seam.m_filler, sizeof g_buffer - length);
        data = g_buffer;
    }
    delivery.seam.m_watcher.OnMessage(delivery.channel, data, length, delivery.handler, delivery.user);
}

int32_t WatchedProvider::Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) {
    const Watch unwatched(false);
    const auto* ours = reinterpret_cast<const Stream*>(stream);
    m_watcher.BeforeReceive(ours->channel);
    Delivery delivery{*this, ours->channel, handler, user};
    const int32_t result = Board().receive(ours->inner, Deliver, &delivery);
    m_watcher.AfterReceive(ours->channel);
    return result;
}

const char* WatchedProvider::LastError() {
    const Watch unwatched(false);
    return Board().last_error();
}

}  // namespace simulation

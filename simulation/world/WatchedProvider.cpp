#include "simulation/world/WatchedProvider.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "common/FpgaStructCommon.h"
#include "public/reg/BoardProviderLoader.h"
#include "public/reg/DriveRegEnyx.h"
#include "simulation/base/WatchedAllocator.h"
#include "software_board/SoftwareBoard.h"

namespace simulation {
namespace {

// What the board and the checks allocate is not the library's.
using Watch = WatchedAllocator::Watch;

IBoardWatcher* g_watcher = nullptr;
int32_t g_openHandles = 0;

/// A message where the library finds it, and what lies behind.
alignas(64) unsigned char g_buffer[2 * DMA_MESSAGE_CAPACITY];
uint8_t g_filler = 0;

/// What the library holds as its stream.
struct Stream {
    VexaBoardStream* inner;
    int32_t channel;
};

/// What the board hands back with a message.
struct Delivery {
    int32_t channel;
    VexaBoardMessageHandler handler;
    void* user;
};

const VexaBoardProvider& Board() { return software_board::Provider(); }

int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) {
    const Watch unwatched(false);
    const int32_t result = Board().open_registers(argument, bus, core, registers);
    if (result == 0) ++g_openHandles;
    return result;
}

void CloseRegisters(VexaBoardRegisters* registers) {
    const Watch unwatched(false);
    --g_openHandles;
    Board().close_registers(registers);
}

int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) {
    if (!g_watcher->OnWrite(index, value)) return 0;
    const Watch unwatched(false);
    return Board().write32(registers, index, value);
}

int32_t DoRead32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
    const Watch unwatched(false);
    g_watcher->BeforeRead(EAccess::Read32, index);
    const int32_t result = Board().read32(registers, index, value);
    uint64_t told = *value;
    g_watcher->AfterRead(EAccess::Read32, index, told);
    *value = static_cast<uint32_t>(told);
    return result;
}

int32_t DoRead64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) {
    const Watch unwatched(false);
    g_watcher->BeforeRead(EAccess::Read64, index);
    const int32_t result = Board().read64(registers, index, value);
    g_watcher->AfterRead(EAccess::Read64, index, *value);
    return result;
}

int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) {
    const Watch unwatched(false);
    VexaBoardStream* inner = nullptr;
    const int32_t result = Board().open_stream(argument, bus, name, &inner);
    if (result != 0) return result;
    const int32_t channel = static_cast<int32_t>(std::strtol(name + std::strlen("CUSTOM_CHAN"), nullptr, 10));
    *stream = reinterpret_cast<VexaBoardStream*>(new Stream{inner, channel});
    ++g_openHandles;
    g_watcher->OnStreamOpened(channel);
    return 0;
}

void CloseStream(VexaBoardStream* stream) {
    const Watch unwatched(false);
    auto* ours = reinterpret_cast<Stream*>(stream);
    Board().close_stream(ours->inner);
    delete ours;
    --g_openHandles;
}

void Deliver(const unsigned char* data, unsigned int length, void* user) {
    const auto& delivery = *static_cast<const Delivery*>(user);
    if (length <= DMA_MESSAGE_CAPACITY) {
        std::memcpy(g_buffer, data, length);
        std::memset(g_buffer + length, g_filler, sizeof g_buffer - length);
        data = g_buffer;
    }
    g_watcher->OnMessage(delivery.channel, data, length, delivery.handler, delivery.user);
}

int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) {
    const Watch unwatched(false);
    const auto* ours = reinterpret_cast<const Stream*>(stream);
    g_watcher->BeforeReceive(ours->channel);
    Delivery delivery{ours->channel, handler, user};
    const int32_t result = Board().receive(ours->inner, Deliver, &delivery);
    g_watcher->AfterReceive(ours->channel);
    return result;
}

const char* LastError() {
    const Watch unwatched(false);
    return Board().last_error();
}

constexpr VexaBoardProvider PROVIDER{VEXA_BOARD_PROVIDER_VERSION,
                                     sizeof(VexaBoardProvider),
                                     "simulated",
                                     OpenRegisters,
                                     CloseRegisters,
                                     Write32,
                                     DoRead32,
                                     DoRead64,
                                     OpenStream,
                                     CloseStream,
                                     Receive,
                                     LastError};

}  // namespace

WatchedProvider::WatchedProvider(IBoardWatcher& watcher, uint8_t filler) {
    if (g_watcher != nullptr) throw std::logic_error("one WatchedProvider at a time");
    g_watcher = &watcher;
    g_openHandles = 0;
    g_filler = filler;
    UseBoardProvider(&PROVIDER);
}

WatchedProvider::~WatchedProvider() {
    CDrvRegEnyx::GetInstance().Destory();
    UseBoardProvider(nullptr);
    g_watcher = nullptr;
}

int32_t WatchedProvider::OpenHandles() { return g_openHandles; }

}  // namespace simulation

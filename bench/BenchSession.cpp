#include "bench/BenchSession.h"

#include <cstring>

#include "exchange/SnapshotConnection.h"
#include "testing/IniText.h"

namespace {

alignas(64) unsigned char g_message[256];
bool g_isEmpty = false;
int g_handle = 0;

int32_t OpenRegisters(const char*, uint16_t, uint16_t, VexaBoardRegisters** registers) {
    *registers = reinterpret_cast<VexaBoardRegisters*>(&g_handle);
    return 0;
}
void CloseRegisters(VexaBoardRegisters*) {}
int32_t Write32(VexaBoardRegisters*, uint32_t, uint32_t) { return 0; }
int32_t Read32(VexaBoardRegisters*, uint32_t, uint32_t* value) {
    *value = 0;
    return 0;
}
int32_t Read64(VexaBoardRegisters*, uint32_t, uint64_t* value) {
    *value = 0;
    return 0;
}
int32_t OpenStream(const char*, uint16_t, const char*, VexaBoardStream** stream) {
    *stream = reinterpret_cast<VexaBoardStream*>(&g_handle);
    return 0;
}
void CloseStream(VexaBoardStream*) {}
int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler handler, void* user) {
    if (g_isEmpty) return 0;
    handler(g_message, DMA_UDP_RECORD_OFFSET + sizeof(VexaShfeMdType), user);
    return 1;
}

const char* LastError() { return ""; }

constexpr VexaBoardProvider REPLAY{VEXA_BOARD_PROVIDER_VERSION,
                                   sizeof(VexaBoardProvider),
                                   "replay",
                                   OpenRegisters,
                                   CloseRegisters,
                                   Write32,
                                   Read32,
                                   Read64,
                                   OpenStream,
                                   CloseStream,
                                   Receive,
                                   LastError};

}  // namespace

ReplayProvider::ReplayProvider(bool isEmpty) : InstalledProvider(REPLAY) {
    g_isEmpty = isEmpty;
    const U50Event head{DMA_UDP, DMA_UDP_RECORD_OFFSET + sizeof(VexaShfeMdType), 0, 0, 0, 0, 0, 0};
    std::memcpy(g_message, &head, DMA_UDP_RECORD_OFFSET);
}

std::string BenchConfig(const std::string& keys) {
    return IniText().Section("config").Key("log_level", 0).Lines(keys).Channel(0, "all").Text();
}

std::vector<std::vector<uint8_t>> SnapshotDmaMessages(bool isSwapped) {
    exchange::Exchange market{exchange::ExchangeOptions{}};
    const exchange::TcpEndpoints endpoints{0x0A010101, 0x0A140002, 33022, 40000};
    exchange::SnapshotConnection connection(endpoints, 1000, market.SnapshotMessages(SHFE_2PS), exchange::Faults{}, 1);
    std::vector<std::vector<uint8_t>> messages;
    std::vector<uint8_t> frame;
    while (!connection.IsSent() && connection.NextFrame(frame)) messages.push_back(exchange::WrapInDmaTcp(frame));
    if (isSwapped) {
        for (std::size_t i = 50; i + 2 < messages.size(); i += 100) std::swap(messages[i], messages[i + 1]);
    }
    return messages;
}

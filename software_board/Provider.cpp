// The provider table over the boards of this process: one board for each bus, one stream for each channel.
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "software_board/SoftwareBoard.h"

struct VexaBoardRegisters {
    software_board::SoftwareBoard* board;
};

struct VexaBoardStream {
    software_board::SoftwareBoard* board;
    int32_t channel;
};

namespace software_board {

namespace {

constexpr uint32_t UPDATES_PER_SECOND = 1000;  // of a board made from an argument that does not say

std::map<uint16_t, SoftwareBoard*> g_installed;
std::map<uint16_t, std::unique_ptr<SoftwareBoard>> g_made;

SoftwareBoard* BoardOf(const char* argument, uint16_t bus) try {
    if (const auto installed = g_installed.find(bus); installed != g_installed.end()) return installed->second;
    std::unique_ptr<SoftwareBoard>& made = g_made[bus];
    if (made == nullptr) {
        BoardOptions options;
        options.updatesPerSecond = UPDATES_PER_SECOND;
        std::string error;
        if (!ParseArgument(argument, options, error)) {
            std::fprintf(stderr, "software board: %s\n", error.c_str());
            return nullptr;
        }
        made = std::make_unique<SoftwareBoard>(options);
    }
    return made.get();
} catch (const std::bad_alloc&) {  // the caller may be C
    return nullptr;
}

int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t, VexaBoardRegisters** registers) {
    SoftwareBoard* board = BoardOf(argument, bus);
    if (board == nullptr) return -1;
    *registers = new (std::nothrow) VexaBoardRegisters{board};
    return *registers == nullptr ? -1 : 0;
}

void CloseRegisters(VexaBoardRegisters* registers) { delete registers; }

int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) {
    registers->board->Write(index, value);
    return 0;
}

int32_t Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
    *value = registers->board->Read(index);
    return 0;
}

int32_t Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) {
    *value = registers->board->Read64(index);
    return 0;
}

/// "CUSTOM_CHAN3_DATA" is channel 3; negative for any other shape.
int32_t ChannelOf(const char* name) {
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        char ofChannel[32];
        std::snprintf(ofChannel, sizeof ofChannel, "CUSTOM_CHAN%d_DATA", channel);
        if (std::strcmp(ofChannel, name) == 0) return channel;
    }
    return -1;
}

int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) {
    SoftwareBoard* board = BoardOf(argument, bus);
    const int32_t channel = ChannelOf(name);
    if (board == nullptr || channel < 0) return -1;
    *stream = new (std::nothrow) VexaBoardStream{board, channel};
    if (*stream == nullptr) return -1;
    board->OpenStream(channel);
    return 0;
}

void CloseStream(VexaBoardStream* stream) {
    stream->board->CloseStream(stream->channel);
    delete stream;
}

int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) {
    return stream->board->Receive(stream->channel, handler, user) ? 1 : 0;
}

constexpr VexaBoardProvider PROVIDER{VEXA_BOARD_PROVIDER_VERSION,
                                     sizeof(VexaBoardProvider),
                                     "software",
                                     OpenRegisters,
                                     CloseRegisters,
                                     Write32,
                                     Read32,
                                     Read64,
                                     OpenStream,
                                     CloseStream,
                                     Receive};

}  // namespace

const VexaBoardProvider& Provider() { return PROVIDER; }

void InstallBoard(uint16_t bus, SoftwareBoard* board) {
    if (board == nullptr) {
        g_installed.erase(bus);
    } else {
        g_installed[bus] = board;
    }
}

}  // namespace software_board

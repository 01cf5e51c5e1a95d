#include "tests/support/RecordingBoard.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "public/reg/BoardProviderLoader.h"
#include "public/reg/DriveRegEnyx.h"

namespace {

RecordingBoard* g_board = nullptr;
int g_registersHandle = 0;
int g_streamHandle = 0;

constexpr std::size_t READABLE_BYTES = 192;

int32_t OpenRegisters(const char*, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) {
    g_board->bus = bus;
    g_board->core = core;
    if (g_board->registersResult != 0) return g_board->registersResult;
    ++g_board->openRegisters;
    *registers = reinterpret_cast<VexaBoardRegisters*>(&g_registersHandle);
    return 0;
}

void CloseRegisters(VexaBoardRegisters*) {
    if (g_board != nullptr) --g_board->openRegisters;
}

int32_t Write32(VexaBoardRegisters*, uint32_t index, uint32_t value) {
    g_board->accesses.push_back(W(index, value));
    return g_board->accessResult;
}

uint64_t Answer(uint32_t index) {
    uint64_t value = 0;
    if (g_board->onRead && g_board->onRead(index, value)) return value;
    const auto found = g_board->answers.find(index);
    return found == g_board->answers.end() ? 0 : found->second;
}

int32_t RefuseRead(uint32_t index) {
    g_board->accesses.push_back(R(index));
    return g_board->accessResult;
}

int32_t DoRead32(VexaBoardRegisters*, uint32_t index, uint32_t* value) {
    if (g_board->accessResult != 0) return RefuseRead(index);
    *value = static_cast<uint32_t>(Answer(index));
    g_board->accesses.push_back(R(index, *value));
    return 0;
}

int32_t DoRead64(VexaBoardRegisters*, uint32_t index, uint64_t* value) {
    if (g_board->accessResult != 0) return RefuseRead(index);
    *value = Answer(index);
    g_board->accesses.push_back(R64(index, *value));
    return 0;
}

int32_t OpenStream(const char*, uint16_t, const char* name, VexaBoardStream** stream) {
    g_board->streamName = name;
    if (g_board->streamResult != 0) return g_board->streamResult;
    ++g_board->openStreams;
    *stream = reinterpret_cast<VexaBoardStream*>(&g_streamHandle);
    return 0;
}

void CloseStream(VexaBoardStream*) {
    if (g_board != nullptr) --g_board->openStreams;
}

int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler handler, void* user) {
    ++g_board->polls;
    if (g_board->onPoll) g_board->onPoll(*g_board);
    if (g_board->pollResult < 0) return g_board->pollResult;
    if (g_board->messages.empty()) return 0;
    // A heap block of exactly what a provider promises, so that a sanitizer sees any byte read beyond it.
    const std::vector<uint8_t> message = std::move(g_board->messages.front());
    g_board->messages.pop_front();
    std::vector<uint8_t> readable(std::max(message.size(), READABLE_BYTES));
    readable.shrink_to_fit();
    std::copy(message.begin(), message.end(), readable.begin());
    handler(readable.data(), static_cast<unsigned int>(message.size()), user);
    return 1;
}

const char* LastError() { return g_board->lastError.c_str(); }

constexpr VexaBoardProvider PROVIDER{VEXA_BOARD_PROVIDER_VERSION,
                                     sizeof(VexaBoardProvider),
                                     "recording",
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

std::ostream& operator<<(std::ostream& out, const Access& access) {
    constexpr std::array names{"W", "R", "R64"};
    return out << names[access.kind] << "(0x" << std::hex << access.index << ", 0x" << access.value << std::dec << ")";
}

RecordingBoard::RecordingBoard() {
    if (g_board != nullptr) throw std::logic_error("one RecordingBoard at a time");
    g_board = this;
    UseBoardProvider(&PROVIDER);
}

RecordingBoard::~RecordingBoard() {
    CDrvRegEnyx::GetInstance().Destory();
    UseBoardProvider(nullptr);
    g_board = nullptr;
}

std::vector<Access> RecordingBoard::Writes() const {
    std::vector<Access> writes;
    std::copy_if(accesses.begin(), accesses.end(), std::back_inserter(writes),
                 [](const Access& access) { return access.kind == Access::Write; });
    return writes;
}

std::vector<Access> RecordingBoard::AccessesTo(uint32_t first, uint32_t last) const {
    std::vector<Access> found;
    std::copy_if(accesses.begin(), accesses.end(), std::back_inserter(found),
                 [=](const Access& access) { return access.index >= first && access.index <= last; });
    return found;
}

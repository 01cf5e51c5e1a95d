#include "tests/support/RecordingBoard.h"

#include <algorithm>
#include <array>

namespace {
constexpr std::size_t READABLE_BYTES = 192;
}  // namespace

std::ostream& operator<<(std::ostream& out, const Access& access) {
    constexpr std::array names{"W", "R", "R64"};
    return out << names[access.kind] << "(0x" << std::hex << access.index << ", 0x" << access.value << std::dec << ")";
}

int32_t RecordingBoard::OpenRegisters(const char*, uint16_t onBus, uint16_t atCore, VexaBoardRegisters** registers) {
    bus = onBus;
    core = atCore;
    if (registersResult == 0) *registers = RegistersHandle();
    return registersResult;
}

int32_t RecordingBoard::Write32(VexaBoardRegisters*, uint32_t index, uint32_t value) {
    accesses.push_back(W(index, value));
    return accessResult;
}

uint64_t RecordingBoard::Answer(uint32_t index) {
    uint64_t value = 0;
    if (onRead && onRead(index, value)) return value;
    const auto found = answers.find(index);
    return found == answers.end() ? 0 : found->second;
}

int32_t RecordingBoard::RefuseRead(uint32_t index) {
    accesses.push_back(R(index));
    return accessResult;
}

int32_t RecordingBoard::Read32(VexaBoardRegisters*, uint32_t index, uint32_t* value) {
    if (accessResult != 0) return RefuseRead(index);
    *value = static_cast<uint32_t>(Answer(index));
    accesses.push_back(R(index, *value));
    return 0;
}

int32_t RecordingBoard::Read64(VexaBoardRegisters*, uint32_t index, uint64_t* value) {
    if (accessResult != 0) return RefuseRead(index);
    *value = Answer(index);
    accesses.push_back(R64(index, *value));
    return 0;
}

int32_t RecordingBoard::OpenStream(const char*, uint16_t, const char* name, VexaBoardStream** stream) {
    streamName = name;
    if (streamResult == 0) *stream = StreamHandle();
    return streamResult;
}

int32_t RecordingBoard::Receive(VexaBoardStream*, VexaBoardMessageHandler handler, void* user) {
    ++polls;
    if (onPoll) onPoll(*this);
    if (pollResult < 0) return pollResult;
    if (messages.empty()) return 0;
    // A heap block of exactly what a provider promises, so that a sanitizer sees any byte read beyond it.
    const std::vector<uint8_t> message = std::move(messages.front());
    messages.pop_front();
    std::vector<uint8_t> readable(std::max(message.size(), READABLE_BYTES));
    readable.shrink_to_fit();
    std::copy(message.begin(), message.end(), readable.begin());
    handler(readable.data(), static_cast<unsigned int>(message.size()), user);
    return 1;
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

#include "software_board/SharedClient.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>

#include "software_board/RegisterFile.h"

namespace software_board {

namespace {

constexpr int64_t POLL_NS = 50'000;
constexpr int POLLS_PER_LOOK_AT_SERVER = 64;
constexpr int POLLS_MAX = 100'000;  // five seconds

// Real time, whatever clock the session runs on: the server is another process.
void Pause() {
    const timespec pause{0, POLL_NS};
    nanosleep(&pause, nullptr);
}

bool IsServed(const SharedBoard& board) { return Load(board.isClosed) == 0 && IsAlive(board.server); }

/// Waits for `isDone` while the server lives.
template <typename IsDone>
bool WaitFor(const SharedBoard& board, IsDone isDone) {
    for (int poll = 1; poll <= POLLS_MAX; ++poll) {
        if (isDone()) return true;
        if (poll % POLLS_PER_LOOK_AT_SERVER == 0 && !IsServed(board)) return false;
        Pause();
    }
    return false;
}

/// Takes a place that is free, or whose holder has ended. The living holder is left in `holder` otherwise.
bool Claim(uint64_t& place, ProcessId& holder) {
    const std::atomic_ref<uint64_t> atomic(place);
    const ProcessId self = OwnProcessId();
    holder = atomic.load(std::memory_order_acquire);
    while (holder == 0 || !IsAlive(holder)) {
        if (atomic.compare_exchange_weak(holder, self, std::memory_order_acq_rel)) return true;
    }
    return false;
}

void GiveBack(uint64_t& place) {
    ProcessId self = OwnProcessId();
    std::atomic_ref<uint64_t>(place).compare_exchange_strong(self, 0);
}

}  // namespace

bool Ask(SharedBoard& board, RequestBox& box, uint32_t index, uint32_t value, std::string& text) {
    ProcessId holder = 0;
    if (!WaitFor(board, [&] { return Claim(box.claimedBy, holder); })) {
        text = "process " + std::to_string(ProcessNumber(holder)) + " keeps the board busy";
        return false;
    }
    Store(box.index, index);
    Store(box.value, value);
    Store(box.isRefused, 0U);
    const std::size_t length = std::min<std::size_t>(text.size(), REQUEST_TEXT_CAPACITY - 1);
    std::memcpy(box.text, text.c_str(), length);
    box.text[length] = '\0';
    // A request that its asker did not live to see answered is over once the next one is asked.
    const uint32_t request = std::max(Load(box.asked), Load(box.answered)) + 1;
    std::atomic_ref<uint32_t>(box.asked).store(request, std::memory_order_release);
    const bool isAnswered = WaitFor(
        board, [&] { return std::atomic_ref<uint32_t>(box.answered).load(std::memory_order_acquire) == request; });
    text = isAnswered ? std::string(box.text, strnlen(box.text, sizeof box.text)) : "the board does not answer";
    const bool isRefused = Load(box.isRefused) != 0;
    GiveBack(box.claimedBy);
    return isAnswered && !isRefused;
}

// ---- registers ------------------------------------------------------------------------------------------------------

bool SharedRegisters::Open(uint16_t bus, std::string& error) {
    m_bus = bus;
    if (!m_mapping.Attach(bus, false, error)) return false;
    if (!IsBroken(m_mapping->memory, BROKEN_REGISTERS)) return true;
    error = WhyRefused(BROKEN_REGISTERS);
    m_mapping.Close();
    return false;
}

bool SharedRegisters::Write(uint32_t index, uint32_t value) {
    std::string text;
    if (IsCommand(index) && !IsServed(*m_mapping)) {
        SharedMapping anew;
        if (!anew.Attach(m_bus, false, text)) return false;
        m_mapping = std::move(anew);
    }
    if (!WriteRegister(m_mapping->memory, index, value)) return true;
    text.clear();
    return Ask(*m_mapping, m_mapping->command, index, value, text);
}

uint64_t SharedRegisters::Read(uint32_t index) {
    Add(m_mapping->memory.statistics.registerReads, uint64_t{1});
    return ReadRegister(m_mapping->memory, index);
}

// ---- streams --------------------------------------------------------------------------------------------------------

bool SharedStream::Open(uint16_t bus, int32_t channel, std::string& error) {
    SharedMapping mapping;
    if (!mapping.Attach(bus, false, error)) return false;
    if (IsBroken(mapping->memory, BROKEN_STREAMS)) {
        error = WhyRefused(BROKEN_STREAMS);
        return false;
    }
    ChannelMemory& memory = mapping->memory.channels[channel];
    ProcessId holder = 0;
    if (!Claim(memory.holder, holder)) {
        error = "channel " + std::to_string(channel) + " of bus " + std::to_string(bus) + " is held by process " +
                std::to_string(ProcessNumber(holder)) + "; one process reads a channel";
        return false;
    }
    m_bus = bus;
    m_channel = channel;
    m_mapping = std::move(mapping);
    m_ring.emplace(memory.ring, m_mapping->ringLines).Discard();
    return true;
}

void SharedStream::Release() {
    if (m_mapping) GiveBack(m_mapping->memory.channels[m_channel].holder);
}

bool SharedStream::LookAfterServer(VexaBoardMessageHandler handler, void* user) {
    if (IsServed(*m_mapping)) return false;
    std::string error;
    if (!Open(m_bus, m_channel, error)) return false;
    constexpr uint32_t LOST = 1U << 7;
    const U50Event lost{DMA_EVENT, sizeof(U50Event), LOST, 0, 0, 0, 0, 0};
    alignas(CACHE_LINE) unsigned char message[DMA_READABLE_BYTES] = {};
    std::memcpy(message, &lost, sizeof lost);
    handler(message, sizeof lost, user);
    return true;
}

}  // namespace software_board

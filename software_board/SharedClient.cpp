#include "software_board/SharedClient.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
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

/// Waits for `isDone` while the server lives.
template <typename IsDone>
bool WaitFor(const SharedMapping& board, IsDone isDone) {
    for (int poll = 1; poll <= POLLS_MAX; ++poll) {
        if (isDone()) return true;
        if (poll % POLLS_PER_LOOK_AT_SERVER == 0 && !board.IsServed()) return false;
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

bool AskServer(const SharedMapping& board, RequestBox& box, uint32_t index, uint32_t value, std::string& text) {
    if (text.size() >= REQUEST_TEXT_CAPACITY) {
        text = "a request has at most " + std::to_string(REQUEST_TEXT_CAPACITY - 1) + " characters, this one " +
               std::to_string(text.size());
        return false;
    }
    ProcessId holder = 0;
    if (!WaitFor(board, [&] { return Claim(box.claimedBy, holder); })) {
        text = "process " + std::to_string(ProcessNumber(holder)) + " keeps the board busy";
        return false;
    }
    Store(box.index, index);
    Store(box.value, value);
    Store(box.isRefused, 0U);
    std::memcpy(box.text, text.c_str(), text.size() + 1);
    // A request that its asker did not live to see answered is over once the next one is asked. 0 is none.
    const uint32_t request = std::max(std::max(Load(box.asked), Load(box.answered)) + 1, 1U);
    std::atomic_ref<uint32_t>(box.asked).store(request, std::memory_order_release);
    const bool isAnswered = WaitFor(
        board, [&] { return std::atomic_ref<uint32_t>(box.answered).load(std::memory_order_acquire) == request; });
    const bool isDone = isAnswered && Load(box.isRefused) == 0;
    if (isAnswered && !isDone) text = TextOf(box);
    GiveBack(box.claimedBy);
    if (!isAnswered) text = "the board does not answer";
    return isDone;
}

// ---- registers ------------------------------------------------------------------------------------------------------

bool SharedRegisters::Open(uint16_t bus, std::string& error) {
    SharedMapping mapping;
    if (!mapping.Attach(bus, false, error)) return false;
    if (IsBroken(mapping->memory, BROKEN_REGISTERS)) {
        error = WhyRefused(BROKEN_REGISTERS);
        return false;
    }
    m_bus = bus;
    m_mapping = std::move(mapping);
    m_hasEnded = false;
    return true;
}

bool SharedRegisters::IsThere(bool isLookDue) {
    if (m_hasEnded) return false;
    if (++m_accesses % ACCESSES_PER_LOOK == 0) isLookDue = true;
    m_hasEnded = isLookDue ? !m_mapping.IsServed() : m_mapping.HasEnded();
    return !m_hasEnded;
}

bool SharedRegisters::Write(uint32_t index, uint32_t value) {
    std::string text;
    const bool isBringUp = index == reg::BRING_UP_START && value == START_VALUE;
    if (!IsThere(IsCommand(index)) && (!isBringUp || !Open(m_bus, text))) return false;
    if (!WriteRegister(m_mapping->memory, index, value)) return true;
    text.clear();
    if (AskServer(m_mapping, m_mapping->command, index, value, text)) return true;
    IsThere(true);  // the accesses that follow know
    return false;
}

bool SharedRegisters::Read(uint32_t index, uint64_t& value) {
    if (!IsThere(false)) return false;
    Add(m_mapping->memory.statistics.registerReads, uint64_t{1});
    value = ReadRegister(m_mapping->memory, index);
    return true;
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
    m_ring.emplace(memory.ring, m_mapping.RingLines()).Discard();
    m_hasEnded = false;
    return true;
}

void SharedStream::Release() {
    if (m_mapping) GiveBack(m_mapping->memory.channels[m_channel].holder);
}

int32_t SharedStream::LookAfterServer() {
    if (m_mapping.IsServed()) return 0;
    m_hasEnded = true;
    m_nextLookAt.reset();
    m_ring->Discard();  // what came last, behind the last poll
    return BOARD_ENDED;
}

int32_t SharedStream::GoOver(VexaBoardMessageHandler handler, void* user) {
    if (!MayLook() || !OpenAgain()) return BOARD_ENDED;
    alignas(CACHE_LINE) unsigned char message[DMA_READABLE_BYTES] = {};
    std::memcpy(message, &LOST_EVENT, sizeof LOST_EVENT);
    handler(message, sizeof LOST_EVENT, user);
    return 1;
}

bool SharedStream::OpenAgain() {
    try {
        std::string error;
        return Open(m_bus, m_channel, error);
    } catch (const std::bad_alloc&) {
        return false;  // a later look may find memory
    }
}

bool SharedStream::MayLook() {
    const int64_t now = CClock::MonotonicNanoseconds();
    if (m_nextLookAt && now < *m_nextLookAt) return false;
    m_nextLookAt = now + LOOK_EVERY_NS;
    return true;
}

}  // namespace software_board

#include "software_board/BoardServer.h"

#include <algorithm>
#include <cstring>

#include "public/clock/Clock.h"

namespace software_board {

namespace {

constexpr int FRAMES_PER_STEP = 8;  // a host that closes the phase is heard before the next ones
constexpr int UPDATES_PER_STEP = 256;
constexpr uint32_t STEPS_PER_LOOK = 512;  // at the channels' holders; a look costs some system calls

/// The number of a request that waits for its answer; 0 when none does.
uint32_t Waiting(RequestBox& box) {
    const uint32_t asked = std::atomic_ref<uint32_t>(box.asked).load(std::memory_order_acquire);
    return asked != Load(box.answered) ? asked : 0;
}

void Answer(RequestBox& box, uint32_t request) {
    std::atomic_ref<uint32_t>(box.answered).store(request, std::memory_order_release);
}

}  // namespace

bool BoardServer::Open(uint16_t bus, const BoardOptions& options, std::string& error) {
    if (!m_mapping.Create(bus, error)) return false;
    SharedBoard& board = *m_mapping;
    BoardOptions served = options;
    served.acknowledgeEveryMs = ACKNOWLEDGE_EVERY_MS;
    m_engine.emplace(served, board.memory);
    Store(board.ringLines, m_engine->RingLineCount());
    Store(board.servedSince, static_cast<uint64_t>(CClock::WallNanoseconds()));
    Store(board.seed, options.exchange.seed);
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        const auto& listed = m_engine->Market().Instruments(static_cast<EMDQPDataType>(feed));
        Store(board.instruments[feed], static_cast<uint32_t>(listed.size()));
    }
    m_mapping.Publish();
    return true;
}

bool BoardServer::Step() {
    if (m_rounds++ % STEPS_PER_LOOK == 0) TakeChannelsBack();
    bool isBusy = AnswerCommand();
    isBusy |= AnswerInjection();
    isBusy |= m_engine->TellMemoryReady();
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) isBusy |= m_engine->TellOverrun(channel);
    for (int frame = 0; frame < FRAMES_PER_STEP && m_engine->SnapshotStep(); ++frame) isBusy = true;
    for (int update = 0; update < UPDATES_PER_STEP && m_engine->LiveStep(); ++update) isBusy = true;
    return isBusy;
}

bool BoardServer::AnswerCommand() {
    RequestBox& box = m_mapping->command;
    const uint32_t request = Waiting(box);
    if (request == 0) return false;
    m_engine->Execute(Load(box.index), Load(box.value));
    Answer(box, request);
    return true;
}

bool BoardServer::AnswerInjection() {
    RequestBox& box = m_mapping->injection;
    const uint32_t request = Waiting(box);
    if (request == 0) return false;
    std::string error;
    const bool isDone = ExecuteInjection(box, error);
    const std::size_t length = std::min<std::size_t>(error.size(), REQUEST_TEXT_CAPACITY - 1);
    std::memcpy(box.text, error.c_str(), length);
    box.text[length] = '\0';
    Store(box.isRefused, isDone ? 0U : 1U);
    Answer(box, request);
    return true;
}

bool BoardServer::ExecuteInjection(const RequestBox& box, std::string& error) {
    switch (Load(box.index)) {
        case INJECT_FAULTS: return m_engine->Inject(TextOf(box), error);
        case CLEAR_FAULTS: m_engine->ClearFaults(); return true;
        default: error = "the board knows no such request"; return false;
    }
}

void BoardServer::TakeChannelsBack() {
    for (ChannelMemory& channel : m_mapping->memory.channels) {
        ProcessId holder = Load(channel.holder);
        if (holder == 0 || IsAlive(holder)) continue;
        std::atomic_ref<uint64_t>(channel.holder).compare_exchange_strong(holder, 0);
    }
}

}  // namespace software_board

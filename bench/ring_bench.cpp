// A live record from one core to another through the board's ring. Half of a round trip is one way.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

#include "interface/VexaShfeMdStruct.h"
#include "software_board/DmaRing.h"

namespace {

using software_board::DmaRing;
using software_board::RING_LINES;
using software_board::RING_READY;
using software_board::RingConsumer;
using software_board::RingHead;
using software_board::RingLine;
using software_board::RingLinesOf;
using software_board::RingNext;
using software_board::RingProducer;

constexpr unsigned char HEAD[DMA_UDP_RECORD_OFFSET] = {};

void PinTo(std::size_t core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    pthread_setaffinity_np(pthread_self(), sizeof cores, &cores);
}

/// The board's own consumer: asks for all three lines of the next record while it waits.
class AllLinesAtOnce {
public:
    explicit AllLinesAtOnce(DmaRing& ring) : m_consumer(ring, RING_LINES) {}

    bool Take(VexaShfeMdType& record) {
        return m_consumer.HandOver(
            [](const unsigned char* message, unsigned int, void* user) {
                std::memcpy(user, message + DMA_UDP_RECORD_OFFSET, sizeof(VexaShfeMdType));
            },
            &record);
    }

private:
    RingConsumer m_consumer;
};

/// Looks at the head alone while it waits, and at the other lines when the record is there.
class HeadFirst {
public:
    explicit HeadFirst(DmaRing& ring) : m_ring(ring) {}

    bool Take(VexaShfeMdType& record) {
        RingLine& line = m_ring.lines[m_index];
        const uint32_t head = RingHead(line).load(std::memory_order_acquire);
        if ((head & RING_READY) == 0) return false;
        std::memcpy(&record, line.bytes + software_board::RING_HEAD_BYTES + DMA_UDP_RECORD_OFFSET, sizeof record);
        const uint32_t lines = RingLinesOf(head & ~RING_READY);
        m_index = RingNext(m_index, lines, RING_LINES);
        m_consumed += lines;
        if (m_consumed - m_published >= RING_LINES / 8) {
            m_published = m_consumed;
            std::atomic_ref<uint64_t>(m_ring.released).store(m_published, std::memory_order_release);
        }
        return true;
    }

private:
    DmaRing& m_ring;
    uint32_t m_index = 0;
    uint64_t m_consumed = 0;
    uint64_t m_published = 0;
};

bool Send(RingProducer& producer, const VexaShfeMdType& record) {
    return producer.Put(HEAD, sizeof HEAD, &record, sizeof record);
}

void SetOneWay(benchmark::State& state) {
    state.counters["one_way"] = benchmark::Counter(2 * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// Runs `body(isEnding)` on the other core for its lifetime.
template <typename Body>
class OtherCore {
public:
    explicit OtherCore(Body body)
        : m_thread([this, body] {
              PinTo(1);
              body(m_isEnding);
          }) {
        PinTo(0);
    }
    ~OtherCore() {
        m_isEnding.store(true, std::memory_order_relaxed);
        m_thread.join();
    }
    OtherCore(const OtherCore&) = delete;
    OtherCore& operator=(const OtherCore&) = delete;

private:
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

bool HasTwoCores(benchmark::State& state) {
    if (std::thread::hardware_concurrency() >= 2) return true;
    state.SkipWithError("needs two cores");
    return false;
}

// ---- one word, there and back: no record can be faster ----

void LimitOneLineBetweenCores(benchmark::State& state) {
    if (!HasTwoCores(state)) return;
    struct alignas(2 * software_board::RING_LINE_BYTES) Word {
        std::atomic<uint64_t> value{0};
    };
    Word there;
    Word back;
    const OtherCore echo([&](const std::atomic<bool>& isEnding) {
        for (uint64_t last = 0; !isEnding.load(std::memory_order_relaxed);) {
            const uint64_t now = there.value.load(std::memory_order_acquire);
            if (now != last) back.value.store(now, std::memory_order_release);
            last = now;
        }
    });
    uint64_t sent = 0;
    for (auto _ : state) {
        there.value.store(++sent, std::memory_order_release);
        while (back.value.load(std::memory_order_acquire) != sent) continue;
    }
    SetOneWay(state);
}
BENCHMARK(LimitOneLineBetweenCores)->UseRealTime();

// ---- a record ----

template <typename Consumer>
void RecordBetweenCores(benchmark::State& state) {
    if (!HasTwoCores(state)) return;
    const auto there = std::make_unique<DmaRing>();
    const auto back = std::make_unique<DmaRing>();
    const OtherCore echo([&](const std::atomic<bool>& isEnding) {
        Consumer consumer(*there);
        RingProducer producer(*back, RING_LINES);
        VexaShfeMdType record;
        while (!isEnding.load(std::memory_order_relaxed)) {
            if (consumer.Take(record)) Send(producer, record);
        }
    });
    RingProducer producer(*there, RING_LINES);
    Consumer consumer(*back);
    VexaShfeMdType record{};
    for (auto _ : state) {
        ++record.change_no;
        Send(producer, record);
        while (!consumer.Take(record)) continue;
    }
    SetOneWay(state);
}
BENCHMARK_TEMPLATE(RecordBetweenCores, AllLinesAtOnce)->UseRealTime();
BENCHMARK_TEMPLATE(RecordBetweenCores, HeadFirst)->UseRealTime();

}  // namespace

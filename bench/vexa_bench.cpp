// Speeds of the delivery path, the snapshot handler and the start-up, each beside a limit measured in the same run.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "bench/BenchSession.h"
#include "exchange/Exchange.h"
#include "public/log/CommonLog.h"
#include "src/snapshot/SnapshotPhase.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/SnapshotUnits.h"

namespace {

struct CountingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override { benchmark::DoNotOptimize(md.last_px); }
};

// A non-managing channel: nothing but the receive path.
const char* const RECEIVER_KEYS = "device=xilinx0:1\n";

// ---- the delivery path ----------------------------------------------------------------------------------------------

void LimitCopyOf176Bytes(benchmark::State& state) {
    VexaShfeMdType from{};
    VexaShfeMdType to{};
    for (auto _ : state) {
        std::memcpy(&to, &from, sizeof to);
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LimitCopyOf176Bytes);

void EmptyStep(benchmark::State& state) {
    const ReplayProvider provider(true);
    const TemporaryFile config(BenchConfig(RECEIVER_KEYS));
    const auto api = std::make_unique<CVexaShfeMdApiImpl>();
    CountingSpi spi;
    api->VexaStart(spi, config.Path().c_str());
    for (auto _ : state) benchmark::DoNotOptimize(api->VexaRecv());
}
BENCHMARK(EmptyStep);

void DeliveredByCallback(benchmark::State& state) {
    const ReplayProvider provider(false);
    const TemporaryFile config(BenchConfig(RECEIVER_KEYS));
    const auto api = std::make_unique<CVexaShfeMdApiImpl>();
    CountingSpi spi;
    api->VexaStart(spi, config.Path().c_str());
    for (auto _ : state) benchmark::DoNotOptimize(api->VexaRecv());
}
BENCHMARK(DeliveredByCallback);

void DeliveredByPolling(benchmark::State& state) {
    const ReplayProvider provider(false);
    const TemporaryFile config(BenchConfig(RECEIVER_KEYS));
    const auto api = std::make_unique<CVexaShfeMdApiImpl>();
    api->VexaStart(config.Path().c_str());
    VexaShfeMdType md{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(api->VexaRecv(md));
        benchmark::DoNotOptimize(md);
    }
}
BENCHMARK(DeliveredByPolling);

// The whole road on one core: the exchange moves, the board applies and writes the record, the library delivers it.
void DeliveredFromTheSoftwareBoard(benchmark::State& state) {
    ManualClock clock;
    software_board::SoftwareBoard board{software_board::BoardOptions{}};
    const InstalledBoard installed(board);
    const TemporaryFile config(BenchConfig("shfe2ps=enabled\nine2ps=enabled\nSRCIP=10.20.0.2\n"));
    auto api = std::make_unique<CVexaShfeMdApiImpl>();
    CountingSpi spi;
    if (api->VexaStart(spi, config.Path().c_str()) != 0) state.SkipWithError("the start failed");
    for (auto _ : state) benchmark::DoNotOptimize(api->VexaRecv());
}
BENCHMARK(DeliveredFromTheSoftwareBoard);

// ---- the snapshot ---------------------------------------------------------------------------------------------------

std::size_t TotalBytes(const std::vector<std::vector<uint8_t>>& messages) {
    std::size_t total = 0;
    for (const auto& message : messages) total += message.size();
    return total;
}

void SetFrameCounters(benchmark::State& state, const std::vector<std::vector<uint8_t>>& messages) {
    const double runs = static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(runs * static_cast<double>(TotalBytes(messages))));
    state.counters["per_frame"] = benchmark::Counter(runs * static_cast<double>(messages.size()),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// What a snapshot is loaded with; of its two feeds one never comes, so that it is not complete inside the loop.
std::unique_ptr<SnapshotState> SnapshotOfOneFeed() {
    auto state = std::make_unique<SnapshotState>();
    state->config.enabled_mask.enabled_mask = FeedBit(SHFE_2PS) | FeedBit(INE_2PS);
    state->config.topicID.shfe2ps_topic_id = TraitsOf(SHFE_2PS).defaults.topicId;
    state->config.snapTcpPort.shfe2ps_snap_port = TraitsOf(SHFE_2PS).defaults.snapPort;
    state->config.log_level = LOG_NONE;
    return state;
}

struct NoRegisters final : IRegisterWriter {
    void Write(uint32_t index, uint32_t) override { benchmark::DoNotOptimize(index); }
};

bool IsDecoded(benchmark::State& state, const SnapshotState& snapshot) {
    if (snapshot.finished.enabled_mask == FeedBit(SHFE_2PS)) return true;
    state.SkipWithError("the snapshot was not decoded");
    return false;
}

void SnapshotFrames(benchmark::State& state) {
    const auto messages = SnapshotDmaMessages(state.range(0) != 0);
    const auto snapshot = SnapshotOfOneFeed();
    CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    NoRegisters registers;
    SnapshotUnits units(*snapshot, registers);
    CSnapshotPhase phase({snapshot->config, CDrvRegEnyx::GetInstance(), CWriteShot::GetInstance(), snapshot->counters},
                         {units.reassembly, units.store, snapshot->isLoaded, snapshot->priceErrors});
    for (auto _ : state) {
        for (const auto& message : messages) phase.Take(message.data(), static_cast<uint32_t>(message.size()));
        if (!IsDecoded(state, *snapshot)) break;
        phase.Clear();
    }
    SetFrameCounters(state, messages);
}
BENCHMARK(SnapshotFrames)->Arg(0)->ArgName("swapped");
BENCHMARK(SnapshotFrames)->Arg(1)->ArgName("swapped");

/// Takes messages and forgets them.
struct Sink final : IStreamHandler {
    Identity OnConnection(const uint8_t*, uint32_t, uint16_t) override { return {.isKnown = true, .isRefused = false}; }
    bool OnMessage(const uint8_t* message, uint32_t arrived, uint16_t, const tcp_session_t&) override {
        bytes += arrived < MdqpBytes(message) ? 0 : MdqpBytes(message);
        return false;
    }
    uint64_t bytes = 0;
};

void ReassemblyAlone(benchmark::State& state) {
    const auto messages = SnapshotDmaMessages(state.range(0) != 0);
    const auto snapshot = SnapshotOfOneFeed();
    Sink sink;
    CReassembly reassembly(snapshot->sessions, snapshot->counters, sink);
    std::vector<SnapshotFrame> frames(messages.size());
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const auto length = static_cast<uint32_t>(messages[i].size() - DMA_TCP_FRAME_OFFSET);
        snapshot_frame::ReadHeaders(messages[i].data() + DMA_TCP_FRAME_OFFSET, length, frames[i]);
        snapshot_frame::ReadPayload(frames[i]);
    }
    for (auto _ : state) {
        for (const SnapshotFrame& frame : frames) reassembly.Receive(frame);
        reassembly.Clear();
    }
    if (sink.bytes == 0) state.SkipWithError("nothing was handed on");
    SetFrameCounters(state, messages);
}
BENCHMARK(ReassemblyAlone)->Arg(0)->ArgName("swapped");
BENCHMARK(ReassemblyAlone)->Arg(1)->ArgName("swapped");

void DecoderAlone(benchmark::State& state) {
    const auto messages = exchange::Exchange(exchange::ExchangeOptions{}).SnapshotMessages(SHFE_2PS);
    const auto snapshot = SnapshotOfOneFeed();
    CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    NoRegisters registers;
    CInstrumentStore store(snapshot->Instruments());
    CMdqpDecoder decoder(store, registers, snapshot->counters);
    for (auto _ : state) {
        for (const auto& message : messages) decoder.Decode(SHFE_2PS, message.data());
        if (!IsDecoded(state, *snapshot)) break;
        store.Clear();
    }
    SetFrameCounters(state, messages);
}
BENCHMARK(DecoderAlone);

void LimitCopyOfTheFrames(benchmark::State& state) {
    const auto messages = SnapshotDmaMessages(false);
    unsigned char buffer[DMA_MESSAGE_CAPACITY];
    for (auto _ : state) {
        for (const auto& message : messages) {
            std::memcpy(buffer, message.data(), message.size());
            benchmark::DoNotOptimize(buffer);
            benchmark::ClobberMemory();
        }
    }
    SetFrameCounters(state, messages);
}
BENCHMARK(LimitCopyOfTheFrames);

void LimitPlainChecksumOfTheFrames(benchmark::State& state) {
    const auto messages = SnapshotDmaMessages(false);
    for (auto _ : state) {
        for (const auto& message : messages) {
            uint32_t sum = 0;
            for (std::size_t i = 0; i + 1 < message.size(); i += 2) {
                uint16_t word = 0;
                std::memcpy(&word, message.data() + i, sizeof word);
                sum += word;
            }
            benchmark::DoNotOptimize(sum);
        }
    }
    SetFrameCounters(state, messages);
}
BENCHMARK(LimitPlainChecksumOfTheFrames);

// ---- the start-up ---------------------------------------------------------------------------------------------------

void WholeStartUpInVirtualTime(benchmark::State& state) {
    const TemporaryFile config(BenchConfig("shfe2ps=enabled\nine2ps=enabled\nSRCIP=10.20.0.2\n"));
    for (auto _ : state) {
        ManualClock clock;
        software_board::SoftwareBoard board{software_board::BoardOptions{}};
        const InstalledBoard installed(board);
        auto api = std::make_unique<CVexaShfeMdApiImpl>();
        CountingSpi spi;
        if (api->VexaStart(spi, config.Path().c_str()) != 0) state.SkipWithError("the start failed");
    }
}
BENCHMARK(WholeStartUpInVirtualTime)->Unit(benchmark::kMillisecond);

std::string CpuModel() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    }
    return "unknown";
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::AddCustomContext("cpu", CpuModel());
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("flags", VEXA_FLAGS);
    benchmark::AddCustomContext("commit", VEXA_COMMIT);
#ifndef __OPTIMIZE__
    benchmark::AddCustomContext("WARNING", "not optimised: the figures say nothing");
#endif
    const SilentLog log;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

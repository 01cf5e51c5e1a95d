/// The whole snapshot phase on a board that remembers what it was told.
#pragma once

#include "src/board/RegisterWriter.h"
#include "src/snapshot/SnapshotPhase.h"
#include "testing/ManualClock.h"
#include "tests/support/RecordingBoard.h"
#include "tests/unit/SnapshotTest.h"

class SnapshotFixture : public SnapshotTest {
protected:
    /// Without the trace of register accesses: a completed snapshot makes five million.
    static constexpr ELOGLEVEL EVERYDAY_LEVEL = static_cast<ELOGLEVEL>(LOG_ALL - LOG_DEBUG_EX);

    SnapshotFixture() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        state->config.log_level = EVERYDAY_LEVEL;
        board.Forget();
        log.lines.clear();
    }

    /// A block of exactly the bytes that a provider promises, so that sanitizers see any byte read beyond it.
    void Hand(const Bytes& message) override {
        const std::size_t readable = std::max<std::size_t>(message.size(), DMA_READABLE_BYTES);
        const std::unique_ptr<uint8_t[]> block(new uint8_t[readable]());
        std::copy(message.begin(), message.end(), block.get());
        phase.Take(block.get(), static_cast<uint32_t>(message.size()));
    }

    CReassembly& Reassembly() override { return units.reassembly; }

    std::vector<int32_t> Decoded() const override {
        std::vector<int32_t> numbers;
        for (const Access& access : board.AccessesTo(0x11110, 0x11110)) {
            numbers.push_back(static_cast<int32_t>(access.value));
        }
        return numbers;
    }

    /// Writes go nowhere from here on: the five million of a completed snapshot tell most tests nothing.
    static void Unplug() { CDrvRegEnyx::GetInstance().Destory(); }

    ManualClock clock;
    RecordingBoard board;
    CRegisterWriter registers{CDrvRegEnyx::GetInstance()};
    SnapshotUnits units{*state, registers};
    CSnapshotPhase phase{{state->config, CDrvRegEnyx::GetInstance(), CWriteShot::GetInstance(), state->counters},
                         {units.reassembly, units.store, state->isLoaded, state->priceErrors}};
};

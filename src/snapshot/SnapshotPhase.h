/// The snapshot phase: from the board's DMA messages to instrument tables on the board. Called by the channel's poll,
/// on the receiving thread.
///
///     DMA message -> filter -> completion -> reassembly -> feed identification -> decoder -> instrument store
///                                  |
///                      price check, tables to the board
///
/// Invariants: a message is copied once and only the copy is looked at; a frame that is dropped changes nothing but one
/// counter.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "common/FpgaStructCommon.h"
#include "public/reg/DriveRegEnyx.h"
#include "public/write_shot/write_shot.h"
#include "src/Counters.h"
#include "src/snapshot/InstrumentStore.h"
#include "src/snapshot/Reassembly.h"
#include "src/snapshot/SnapshotFrame.h"

class CSnapshotPhase {
public:
    /// What it works with, and what outlives it.
    struct Surroundings {
        const U50ConfigInfo& config;
        const CDrvRegEnyx& board;
        const CWriteShot& captures;
        CCounters& counters;
    };

    /// What a snapshot is loaded into, and what outlives it.
    struct Units {
        CReassembly& reassembly;  ///< its messages end in the store
        CInstrumentStore& store;
        bool& isLoaded;                      ///< all feeds are there, and on the board
        std::set<std::string>& priceErrors;  ///< ids of instruments that failed the price check
    };

    CSnapshotPhase(const Surroundings& surroundings, const Units& units) : m_with(surroundings), m_units(units) {}
    CSnapshotPhase(const CSnapshotPhase&) = delete;
    CSnapshotPhase& operator=(const CSnapshotPhase&) = delete;

    /// One DMA message of any kind and content.
    void Take(const unsigned char* data, uint32_t length);

    /// Clears everything: the next segments begin connections.
    void Clear();

    /// After a loss: connections and counts stay until the next bring-up clears them.
    void Forget();

    /// The board that the snapshot was written to is gone.
    void Unload() { m_units.isLoaded = false; }

private:
    void TakeFrame(const uint8_t* bytes, uint32_t length);
    bool IsChecksumRight(const SnapshotFrame& frame);
    bool TestCompletion();
    bool Finish();
    void WriteTables();
    void TakeSegment(const SnapshotFrame& frame);

    Surroundings m_with;
    Units m_units;
};

/// The units of the snapshot without a session object: what they work on, and how they are put together.
#pragma once

#include <set>
#include <string>

#include "common/FpgaStructCommon.h"
#include "src/Counters.h"
#include "src/snapshot/FeedIdentification.h"
#include "src/snapshot/InstrumentStore.h"
#include "src/snapshot/MdqpDecoder.h"
#include "src/snapshot/Reassembly.h"

/// On the heap: tables and sessions take 13 MB.
struct SnapshotState {
    U50ConfigInfo config;
    U50InstTable tables{};
    U50InstCount counts;
    U50DstPort ports;
    UEnabledMask finished{};
    int32_t tradingDay = 0;
    tcp_session_t sessions[TCP_SESSION_COUNT]{};
    bool isLoaded = false;
    std::set<std::string> priceErrors;
    CCounters counters;

    SnapshotState() { WarnAgain(); }

    CInstrumentStore::State Instruments() { return {tables, counts, ports, finished, tradingDay}; }

    /// Warnings that are given once in a process are given again.
    static void WarnAgain() {
        CInstrumentStore::shfe_cnt_flag = CInstrumentStore::ine_cnt_flag = true;
        CInstrumentStore::shfe_cnt_80_flag = CInstrumentStore::ine_cnt_80_flag = true;
    }
};

/// From checked frames to slots. What it works on outlives it.
struct SnapshotUnits {
    /// `watch` takes what the reassembly hands on, in place of the feeds.
    SnapshotUnits(SnapshotState& state, IRegisterWriter& board, IStreamHandler* watch = nullptr)
        : store(state.Instruments()),
          decoder(store, board, state.counters),
          feeds(state.config, store, decoder, state.counters),
          reassembly(state.sessions, state.counters, watch == nullptr ? feeds : *watch) {}

    CInstrumentStore store;
    CMdqpDecoder decoder;
    CFeedIdentification feeds;
    CReassembly reassembly;
};

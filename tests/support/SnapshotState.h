/// All that the units of the snapshot phase work on. On the heap: tables and sessions take 13 MB.
#pragma once

#include <set>
#include <string>

#include "common/FpgaStructCommon.h"
#include "src/Counters.h"
#include "src/snapshot/InstrumentStore.h"
#include "src/snapshot/TcpSession.h"

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

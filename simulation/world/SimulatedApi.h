/// The session object with the little of its inside shown that no one sees from outside.
#pragma once

#include <string>

#include "src/VexaShfeMdApiImpl.h"

namespace simulation {

class SimulatedApi : public CVexaShfeMdApiImpl {
public:
    uint8_t FinishedMask() const { return m_finishedMask.enabled_mask; }
    uint32_t EarlySegments() const { return m_reassembly.EarlySegments(); }
    uint32_t CarryOvers() const { return m_reassembly.CarryOverBuffers(); }
    const CCounters& Counters() const { return m_counters; }
    uint64_t PriceChecksFailed() const { return m_counters[ECounter::PriceCheckFailed]; }
    /// How often everything was cleared, bring-ups apart.
    uint64_t Clears() const {
        return m_counters[ECounter::ResetByPeer] + m_counters[ECounter::EarlyOverflow] +
               m_counters[ECounter::PriceCheckFailed] + m_counters[ECounter::EventLoss];
    }

    /// What of the reassembly's state contradicts the rest of it; null when nothing does.
    const char* Inconsistency() const;

    /// A process as new: warnings are given again, and no signal has come.
    static void NewProcess(const std::string& indexDirectory) {
        s_indexDirectory = indexDirectory;
        CInstrumentStore::shfe_cnt_flag = CInstrumentStore::ine_cnt_flag = true;
        CInstrumentStore::shfe_cnt_80_flag = CInstrumentStore::ine_cnt_80_flag = true;
        m_isExit = false;
    }
};

}  // namespace simulation

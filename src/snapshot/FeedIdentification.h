/// Which feed a snapshot connection brings: by the topic that its first payload names, later by its local port.
/// Messages of known feeds go to the decoder, others are told and counted. One thread.
#pragma once

#include <cstdint>

#include "src/Counters.h"
#include "src/snapshot/InstrumentStore.h"
#include "src/snapshot/MdqpDecoder.h"
#include "src/snapshot/Reassembly.h"

class CFeedIdentification final : public IStreamHandler {
public:
    /// What it works with outlives it.
    CFeedIdentification(const U50ConfigInfo& config, CInstrumentStore& store, CMdqpDecoder& decoder,
                        CCounters& counters)
        : m_config(config), m_store(store), m_decoder(decoder), m_counters(counters) {}

    /// Binds the port to the feed of each topic in the payload. Refused: a topic that is not configured, and a feed
    /// that is not enabled or has finished. Not known: no topic at all.
    Identity OnConnection(const uint8_t* payload, uint32_t length, uint16_t port) override;

    bool OnMessage(const uint8_t* message, uint32_t arrived, uint16_t port, const tcp_session_t& session) override;

private:
    bool BindTopic(const snap_t& snap, uint16_t port);

    const U50ConfigInfo& m_config;
    CInstrumentStore& m_store;
    CMdqpDecoder& m_decoder;
    CCounters& m_counters;
};

#include "src/snapshot/FeedIdentification.h"

#include <cstring>

#include "common/Mdqp.h"
#include "public/log/LogLine.h"

namespace {

/// With one topic configured for two feeds, the first of these has it.
constexpr std::array<EMDQPDataType, FEED_COUNT> TOPIC_ORDER{INE_2PS, SHFE_2PS, INE_4PS, SHFE_4PS};

bool FindTopic(const U50TopicID& topics, int16_t topicId, EMDQPDataType& feed) {
    for (const EMDQPDataType candidate : TOPIC_ORDER) {
        if (topics.*TraitsOf(candidate).topicId != topicId) continue;
        feed = candidate;
        return true;
    }
    return false;
}

}  // namespace

// The walk goes over message headers as if they were fields; it ends where a field header would pass the payload.
IStreamHandler::Identity CFeedIdentification::OnConnection(const uint8_t* payload, uint32_t length, uint16_t port) {
    Identity identity{};
    field_t field;
    for (std::size_t offset = sizeof(mdqp_t); offset + sizeof(field) <= length;
         offset += sizeof(field) + field.field_size) {
        std::memcpy(&field, payload + offset, sizeof(field));
        if (field.field_id != mdqp::FIELD_SNAP || field.field_size != sizeof(snap_t)) continue;
        if (offset + sizeof(field) + sizeof(snap_t) > length) break;
        snap_t snap;
        std::memcpy(&snap, payload + offset + sizeof(field), sizeof(snap));
        if (!BindTopic(snap, port)) {
            identity.isRefused = true;
            break;
        }
        identity.isKnown = true;
    }
    return identity;
}

// False when the topic's feed has no use for a connection.
bool CFeedIdentification::BindTopic(const snap_t& snap, uint16_t port) {
    VEXA_LOG_AS("_TcpHandler", LOG_DEBUG, "mdqp packet. TCP dst port: %d", port);
    VEXA_LOG_AS("_TcpHandler", LOG_DEBUG, "topic ID: %d, snap No: %d", snap.topic_id, snap.snap_no);
    EMDQPDataType feed{};
    if (!FindTopic(m_config.topicID, snap.topic_id, feed)) {
        VEXA_LOG_AS("_TcpHandler", LOG_WARNING, "invalide topic id[%d]", snap.topic_id);
        return false;
    }
    if (!HasFeed(m_config.enabled_mask, feed) || m_store.HasFinished(feed)) return false;
    m_store.Bind(feed, port);
    return true;
}

// A header that announces more than has arrived would be read past the end; of no feed, nothing behind the header is.
bool CFeedIdentification::OnMessage(const uint8_t* message, uint32_t arrived, uint16_t port,
                                    const tcp_session_t& session) {
    EMDQPDataType feed{};
    if (!m_store.Find(port, feed)) {
        VEXA_LOG_AS("_ParseMdqp", LOG_DEBUG, "src_host[%u] src_port[%d] dst_host[%u] dst_port[%d] unknown.",
                    session.src_host, session.src_port, session.dst_host, session.dst_port);
        m_counters.Add(ECounter::MessageOfNoFeed);
        return false;
    }
    if (MdqpBytes(message) > arrived) {
        m_counters.Add(ECounter::FieldMalformed);
        return false;
    }
    return m_decoder.Decode(feed, message);
}

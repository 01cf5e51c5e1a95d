// Tells the snapshot connections apart: a topic binds a local port to a feed, the port finds the feed of each later
// message. Runs on the receiving thread. In: payloads and instrument numbers as received; out: feeds and slots.
// Invariant: no slot outside a feed's table is ever handed out, whatever the number.
#include <cstring>

#include "src/SnapshotFrame.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

/// With one topic configured for two feeds, the first of these has it.
constexpr std::array<EMDQPDataType, FEED_COUNT> TOPIC_ORDER{INE_2PS, SHFE_2PS, INE_4PS, SHFE_4PS};

bool FeedOfTopic(const U50TopicID& topics, int16_t topicId, EMDQPDataType& feed) {
    for (const EMDQPDataType candidate : TOPIC_ORDER) {
        if (topics.*TraitsOf(candidate).topicId != topicId) continue;
        feed = candidate;
        return true;
    }
    return false;
}

}  // namespace

bool CVexaShfeMdApiImpl::shfe_cnt_flag = true;
bool CVexaShfeMdApiImpl::ine_cnt_flag = true;

// The walk goes over message headers as if they were fields; it ends where a field header would pass the payload.
bool CVexaShfeMdApiImpl::_BindFeed(const uint8_t* payload, uint32_t payloadLength, uint16_t dstport) {
    field_t field;
    for (std::size_t offset = sizeof(mdqp_t); offset + sizeof(field) <= payloadLength;
         offset += sizeof(field) + field.field_size) {
        std::memcpy(&field, payload + offset, sizeof(field));
        if (field.field_id != mdqp::FIELD_SNAP || field.field_size != sizeof(snap_t)) continue;
        if (offset + sizeof(field) + sizeof(snap_t) > payloadLength) break;
        snap_t snap;
        std::memcpy(&snap, payload + offset + sizeof(field), sizeof(snap));
        if (!_BindTopic(snap, dstport)) {
            m_counters.Add(ECounter::SegmentRefused);
            return false;
        }
    }
    return true;
}

bool CVexaShfeMdApiImpl::_BindTopic(const snap_t& snap, uint16_t dstport) {
    SNAPSHOT_LOG(LOG_DEBUG, "mdqp packet. TCP dst port: %d", dstport);
    SNAPSHOT_LOG(LOG_DEBUG, "topic ID: %d, snap No: %d", snap.topic_id, snap.snap_no);
    EMDQPDataType feed{};
    if (!FeedOfTopic(m_u50ConfigInfo.topicID, snap.topic_id, feed)) {
        SNAPSHOT_LOG(LOG_WARNING, "invalide topic id[%d]", snap.topic_id);
        return false;
    }
    if (!HasFeed(m_u50ConfigInfo.enabled_mask, feed) || HasFeed(m_finishedMask, feed)) return false;
    m_u50DstPort.*TraitsOf(feed).dstPort = dstport;
    m_sessions[dstport].init = 1;
    return true;
}

bool CVexaShfeMdApiImpl::_FindFeed(uint16_t dstport, EMDQPDataType& feed) const {
    if (dstport == 0) return false;  // 0 stands for a port that is not known
    for (const EMDQPDataType candidate : ALL_FEEDS) {
        if (m_u50DstPort.*TraitsOf(candidate).dstPort != dstport) continue;
        feed = candidate;
        return true;
    }
    return false;
}

// A negative number passes here; _Slot knows no slot for it.
bool CVexaShfeMdApiImpl::_ProtectInstNo(const EMDQPDataType& refMDQPDataType, int32_t& inst_no) {
    switch (refMDQPDataType) {
        case SHFE_2PS:
        case SHFE_4PS:
            if (inst_no < SHFE_INST_CAPACITY) return true;
            if (shfe_cnt_flag) {
                VEXA_LOG(LOG_WARNING, "shfe inst_no[%d] is out of range [%d]", inst_no, SHFE_INST_CAPACITY);
                shfe_cnt_flag = false;
            }
            return false;
        case INE_2PS:
        case INE_4PS:
            if (inst_no < INE_INST_CAPACITY) return true;
            if (ine_cnt_flag) {
                VEXA_LOG(LOG_WARNING, "ine inst_no[%d] is out of range  [%d]", inst_no, INE_INST_CAPACITY);
                ine_cnt_flag = false;
            }
            return false;
    }
    VEXA_LOG(LOG_INFO, "refMDQPDataType is error, %d.", static_cast<int>(refMDQPDataType));
    return false;
}

SInstTableType* CVexaShfeMdApiImpl::_Slot(EMDQPDataType feed, int32_t inst_no) {
    SInstTableType* table = FeedTable(m_u50InstTable, feed);
    if (table == nullptr || inst_no < 0 || inst_no >= TraitsOf(feed).capacity) return nullptr;
    _MarkSlots(feed, inst_no + 1);  // whoever asks for a slot writes to it
    return table + inst_no;
}

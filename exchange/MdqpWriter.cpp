// Builds MDQP messages for the synthetic exchange and for tests: one message per writer, fields in the order of the
// calls. The header's `length` is filled in by Bytes().
#include "exchange/MdqpWriter.h"

#include <cstring>

namespace exchange {

MdqpWriter::MdqpWriter(uint8_t flag, uint8_t typeId) {
    m_bytes.resize(sizeof(mdqp_t));
    m_bytes[offsetof(mdqp_t, flag)] = flag;
    m_bytes[offsetof(mdqp_t, type_id)] = typeId;
}

MdqpWriter& MdqpWriter::Snap(int16_t topicId, int32_t snapNo) {
    const snap_t record{topicId, snapNo};
    return Field(mdqp::FIELD_SNAP, &record, sizeof(record));
}

MdqpWriter& MdqpWriter::PacketNo(int32_t packetNo) {
    const packet_no_t record{packetNo};
    return Field(mdqp::FIELD_PACKET_NO, &record, sizeof(record));
}

MdqpWriter& MdqpWriter::InstInfo(const inst_info_t& record) {
    return Field(mdqp::FIELD_INST_INFO, &record, sizeof(record));
}

MdqpWriter& MdqpWriter::DealInfo(const deal_info_t& record) {
    return Field(mdqp::FIELD_DEAL_INFO, &record, sizeof(record));
}

MdqpWriter& MdqpWriter::PriceDetail(int32_t instNo, char direction, double price, int32_t volume) {
    const price_detail_t record{instNo, direction, price, volume};
    return Field(mdqp::FIELD_PRICE_DETAIL, &record, sizeof(record));
}

MdqpWriter& MdqpWriter::OrderStatistics(const order_statistics_info_t& record) {
    return Field(mdqp::FIELD_ORDER_STATISTICS, &record, sizeof(record));
}

MdqpWriter& MdqpWriter::Field(uint16_t fieldId, const void* data, uint16_t size) {
    return FieldClaiming(fieldId, size, data, size);
}

MdqpWriter& MdqpWriter::FieldClaiming(uint16_t fieldId, uint16_t claimedSize, const void* data, uint16_t size) {
    const field_t header{fieldId, claimedSize};
    m_lastField = m_bytes.size();
    RawBytes(&header, sizeof(header));
    return RawBytes(data, size);
}

MdqpWriter& MdqpWriter::WithLastFieldClaiming(uint16_t claimedSize) {
    if (m_lastField == 0) return *this;
    std::memcpy(m_bytes.data() + m_lastField + offsetof(field_t, field_size), &claimedSize, sizeof(claimedSize));
    return *this;
}

MdqpWriter& MdqpWriter::RawBytes(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    m_bytes.insert(m_bytes.end(), bytes, bytes + size);
    return *this;
}

MdqpWriter& MdqpWriter::WithLengthOff(int delta) {
    m_lengthOff = delta;
    return *this;
}

std::vector<uint8_t> MdqpWriter::Bytes() const {
    std::vector<uint8_t> message = m_bytes;
    const int bodyLength = static_cast<int>(message.size() - sizeof(mdqp_t));
    const auto length = static_cast<uint16_t>(bodyLength + m_lengthOff);
    std::memcpy(message.data() + offsetof(mdqp_t, length), &length, sizeof(length));
    return message;
}

}  // namespace exchange

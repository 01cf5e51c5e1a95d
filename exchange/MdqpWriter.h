/// Builds MDQP snapshot messages: header, then fields. What is written is well-formed unless a mutator says otherwise.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "common/Mdqp.h"

namespace exchange {

class MdqpWriter {
public:
    explicit MdqpWriter(uint8_t flag = mdqp::FLAG_MORE, uint8_t typeId = mdqp::TYPE_SNAPSHOT);

    MdqpWriter& Snap(int16_t topicId, int32_t snapNo);
    MdqpWriter& PacketNo(int32_t packetNo);
    MdqpWriter& InstInfo(const inst_info_t& record);
    MdqpWriter& DealInfo(const deal_info_t& record);
    MdqpWriter& PriceDetail(int32_t instNo, char direction, double price, int32_t volume);
    MdqpWriter& OrderStatistics(const order_statistics_info_t& record);

    /// Any field; `claimedSize` is what its header says, whatever stands behind it.
    MdqpWriter& Field(uint16_t fieldId, const void* data, uint16_t size);
    MdqpWriter& FieldClaiming(uint16_t fieldId, uint16_t claimedSize, const void* data, uint16_t size);
    /// What the header of the last field says becomes this.
    MdqpWriter& WithLastFieldClaiming(uint16_t claimedSize);
    MdqpWriter& RawBytes(const void* data, std::size_t size);

    /// The message's `length` will differ by `delta` from the true one.
    MdqpWriter& WithLengthOff(int delta);

    std::size_t Size() const { return m_bytes.size(); }
    std::vector<uint8_t> Bytes() const;

private:
    std::vector<uint8_t> m_bytes;
    std::size_t m_lastField = 0;  ///< where its header begins; 0 without a field
    int m_lengthOff = 0;
};

}  // namespace exchange

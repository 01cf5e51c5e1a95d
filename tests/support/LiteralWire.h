/// Wire bytes put together by offset and number alone, so that a test shares no record and no constant with what it
/// checks.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace literal {

using Bytes = std::vector<uint8_t>;

/// A record of `size` zero bytes, filled field by field; little-endian.
class Record {
public:
    explicit Record(std::size_t size) : m_bytes(size) {}

    Record& Text(std::size_t offset, const std::string& text) { return Put(offset, text.data(), text.size()); }
    Record& U16(std::size_t offset, uint16_t value) { return Put(offset, &value, 2); }
    Record& U32(std::size_t offset, uint32_t value) { return Put(offset, &value, 4); }
    Record& F64(std::size_t offset, double value) { return Put(offset, &value, 8); }
    const Bytes& Take() const { return m_bytes; }

private:
    Record& Put(std::size_t offset, const void* data, std::size_t size) {
        std::memcpy(&m_bytes.at(offset + size - 1) - (size - 1), data, size);
        return *this;
    }
    Bytes m_bytes;
};

/// A message of the snapshot stream: eight bytes of header, then fields of a number, a size and a record.
class Message {
public:
    explicit Message(uint8_t flag) : m_bytes{flag, '2', 0, 0, 0, 0, 0, 0} {}

    Message& Field(uint16_t number, const Record& record) {
        const Bytes& data = record.Take();
        Put16(number);
        Put16(static_cast<uint16_t>(data.size()));
        m_bytes.insert(m_bytes.end(), data.begin(), data.end());
        return *this;
    }
    Bytes Take() const {
        Bytes whole = m_bytes;
        whole[2] = static_cast<uint8_t>(whole.size() - 8);
        whole[3] = static_cast<uint8_t>((whole.size() - 8) >> 8);
        return whole;
    }

private:
    void Put16(uint16_t value) {
        m_bytes.push_back(static_cast<uint8_t>(value));
        m_bytes.push_back(static_cast<uint8_t>(value >> 8));
    }
    Bytes m_bytes;
};

/// One segment from 10.1.2.3 to 10.1.2.4 in an Ethernet frame, in a DMA message.
struct Segment {
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;
    uint32_t seq = 0;
    uint8_t flags = 0x10;
    Bytes payload;

    Bytes Take() const {
        Bytes message(12 + 14 + 20 + 20);
        message[0] = 2;
        uint8_t* ip = &message[26];
        ip[0] = 0x45;
        Big16(ip + 2, static_cast<uint32_t>(40 + payload.size()));
        ip[9] = 6;
        Big32(ip + 12, 0x0A010203);
        Big32(ip + 16, 0x0A010204);
        uint8_t* tcp = ip + 20;
        Big16(tcp, srcPort);
        Big16(tcp + 2, dstPort);
        Big32(tcp + 4, seq);
        tcp[12] = 0x50;
        tcp[13] = flags;
        message.insert(message.end(), payload.begin(), payload.end());
        Big16(&message[62], Checksum(message));
        return message;
    }

private:
    static void Big16(uint8_t* to, uint32_t value) {
        to[0] = static_cast<uint8_t>(value >> 8);
        to[1] = static_cast<uint8_t>(value);
    }
    static void Big32(uint8_t* to, uint32_t value) {
        Big16(to, value >> 16);
        Big16(to + 2, value);
    }
    /// Over both addresses and the TCP part, the protocol and the length of that part.
    static uint16_t Checksum(const Bytes& message) {
        uint32_t sum = 6 + static_cast<uint32_t>(message.size() - 46);
        for (std::size_t i = 38; i < message.size(); ++i) sum += uint32_t{message[i]} << (i % 2 == 0 ? 8 : 0);
        while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
        return static_cast<uint16_t>(~sum);
    }
};

/// A board event of six words, as a DMA message.
inline Bytes Event(std::vector<uint32_t> words) {
    Record record(32);
    record.U32(4, 32);
    for (std::size_t i = 0; i < words.size(); ++i) record.U32(8 + 4 * i, words[i]);
    return record.Take();
}

/// A live update of this instrument number, every other byte of the record its own offset.
inline Bytes Update(uint32_t instNo) {
    Record record(8 + 176);
    record.U32(0, 1).U32(4, 184);
    Bytes message = record.Take();
    for (std::size_t i = 8; i < message.size(); ++i) message[i] = static_cast<uint8_t>(i - 8);
    std::memcpy(&message[8], &instNo, sizeof instNo);
    return message;
}

/// CRC-32C bit by bit.
inline uint32_t Crc32c(const std::string& text) {
    uint32_t crc = 0xFFFFFFFF;
    for (const char c : text) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0x82F63B78 : 0);
    }
    return ~crc;
}

}  // namespace literal

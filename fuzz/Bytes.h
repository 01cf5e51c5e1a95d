/// Inputs as numbers and blocks: reading never fails, it runs out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fuzz {

class ByteReader {
public:
    ByteReader(const uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

    bool IsEmpty() const { return m_left == 0; }
    std::size_t Left() const { return m_left; }

    /// What is missing reads as zero.
    template <typename Number>
    Number Take() {
        Number number{};
        const std::size_t size = std::min(sizeof number, m_left);
        if (size > 0) std::memcpy(&number, m_data, size);
        Skip(size);
        return number;
    }

    /// At most `size` bytes.
    std::vector<uint8_t> TakeBlock(std::size_t size) {
        size = std::min(size, m_left);
        std::vector<uint8_t> block(m_data, m_data + size);
        Skip(size);
        return block;
    }

private:
    void Skip(std::size_t size) {
        m_data += size;
        m_left -= size;
    }

    const uint8_t* m_data;
    std::size_t m_left;
};

template <typename Number>
void Put(std::vector<uint8_t>& bytes, Number number) {
    const auto* first = reinterpret_cast<const uint8_t*>(&number);
    bytes.insert(bytes.end(), first, first + sizeof number);
}

}  // namespace fuzz

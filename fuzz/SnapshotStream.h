/// The stream of one snapshot connection: the bytes that its server sends, and how far a receiver has got in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/Mdqp.h"
#include "exchange/FrameWriter.h"
#include "fuzz/SnapshotScript.h"

namespace fuzz {

constexpr uint16_t SNAP_PORT = 33022;
constexpr uint16_t FIRST_PORT = 40000;  ///< the streams' local ports
constexpr uint32_t SERVER_HOST = 0x0A140001;
constexpr uint32_t LOCAL_HOST = 0x0A140002;
constexpr std::size_t STREAM_BYTES_MAX = 300000;

class Stream {
public:
    uint16_t port = 0;
    uint32_t initialSeq = 1000;
    std::vector<uint8_t> bytes;
    std::size_t cursor = 0;  ///< where the next segment begins

    std::size_t at = 0;       ///< where the next message to be decoded begins
    bool isFollowed = false;  ///< what is decoded must be the stream's bytes from `at` on

    void Open(uint32_t seq);
    void Add(const std::vector<uint8_t>& message);

    /// Bytes of the message that begins there; 0 when none does or what begins is none.
    std::size_t MessageAt(std::size_t position) const;

    /// One to seven bytes into a message: receivers keep the wrong bytes of such a tail.
    bool CutsHeader(std::size_t position) const;

    /// Every byte before it belongs to a message.
    bool IsWhole(std::size_t position) const { return position <= m_wholeEnd; }

    uint32_t SeqAt(std::size_t position) const { return initialSeq + static_cast<uint32_t>(position); }

    /// The DMA message that brings bytes `begin` to `end`. Of one that no receiver may take the payload is not the
    /// stream's.
    std::vector<uint8_t> Message(std::size_t begin, std::size_t end, EWrong wrong) const;

private:
    std::vector<std::size_t> m_begins;  ///< of whole messages, behind which every byte belongs to one
    std::size_t m_wholeEnd = 0;         ///< where that ends
};

}  // namespace fuzz

/// The input of fuzz_snapshot: what a few snapshot servers send, step by step. Any bytes are a script; what is missing
/// at the end counts as zero.
///
///     options   enabled feeds (low four bits), EOption
///     step      kind, stream, fault, number (four bytes), of Message and Raw two bytes of size and the block
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

constexpr uint8_t STREAM_COUNT = 8;
constexpr std::size_t STEPS_MAX = 3000;

enum EOption : uint8_t {
    OPTION_SHIELD = 0x10,    ///< shield_price_check
    OPTION_DEBUG = 0x20,     ///< debug_flag; error_case and error_instno come from the second byte
    OPTION_TALK = 0x40,      ///< every line of the log is formatted
    OPTION_PLAY_OUT = 0x80,  ///< behind the last step every stream is sent to its end
};

enum class EStep : uint8_t {
    Open,       ///< a new connection: the stream is empty and begins at the sequence number `number`
    Message,    ///< the block is put at the stream's end
    Oversized,  ///< a message of one unknown field, `number` bytes long
    Segment,    ///< the next `number` bytes of the stream go out
    Jump,       ///< the next segment begins `number` bytes from where it would
    Raw,        ///< the block is a DMA message; with a fault its checksum is put right
    Scan,       ///< `number` other ports get one segment each: a bare one, or with a fault the stream's first
    PlayOut,    ///< the rest of the stream goes out
    Count_,
};

/// What is wrong with a segment.
enum class EWrong : uint8_t {
    Nothing,
    Checksum,
    LengthBeyond,
    NoIpHeader,
    ShortTcpHeader,
    ForeignPort,
    NotTcp,
    NoSegment,
    TooLong,
    Cut,
    OtherHost,
    Reset,
    ResetWithoutAck,
    Padded,
    OddIpHeader,
    Count_,
};

struct Step {
    EStep kind = EStep::Open;
    uint8_t stream = 0;
    uint8_t fault = 0;
    int32_t number = 0;
    std::vector<uint8_t> block;
};

struct Script {
    uint8_t options = 0;
    uint8_t debugCase = 0;
    std::vector<Step> steps;
};

Script ReadScript(const uint8_t* data, std::size_t size);
std::vector<uint8_t> WriteScript(const Script& script);

}  // namespace fuzz

// Mutates scripts of fuzz_snapshot as scripts, and messages as chains of fields: a byte changed anywhere would hardly
// ever leave a message that is decoded. Lengths are put right behind most changes, and not behind all.
#include <algorithm>
#include <cfloat>
#include <cstring>
#include <iterator>
#include <limits>

#include "common/Mdqp.h"
#include "exchange/Random.h"
#include "fuzz/SnapshotScript.h"

extern "C" std::size_t LLVMFuzzerMutate(uint8_t* data, std::size_t size, std::size_t maxSize);

namespace fuzz {
namespace {

using exchange::Random;
using Block = std::vector<uint8_t>;

constexpr uint32_t LEFT_BROKEN_ONE_IN = 8;
constexpr uint32_t BYTES_ONE_IN = 32;

uint32_t Size32(std::size_t size) { return static_cast<uint32_t>(size); }

// ---- a message ------------------------------------------------------------------------------------------------------

void MendLength(Block& message) {
    if (message.size() < sizeof(mdqp_t)) message.resize(sizeof(mdqp_t));
    if (message[0] != mdqp::FLAG_LAST) message[0] = mdqp::FLAG_MORE;
    message[1] = mdqp::TYPE_SNAPSHOT;
    const auto length = static_cast<uint16_t>(message.size() - sizeof(mdqp_t));
    std::memcpy(&message[offsetof(mdqp_t, length)], &length, sizeof length);
}

/// Where each field's header begins.
std::vector<std::size_t> Fields(const Block& message) {
    std::vector<std::size_t> fields;
    for (std::size_t at = sizeof(mdqp_t); at + sizeof(field_t) <= message.size();) {
        field_t field;
        std::memcpy(&field, &message[at], sizeof field);
        fields.push_back(at);
        at += sizeof field + field.field_size;
    }
    return fields;
}

std::size_t EndOf(const Block& message, std::size_t at) {
    field_t field;
    std::memcpy(&field, &message[at], sizeof field);
    return std::min(message.size(), at + sizeof field + field.field_size);
}

template <typename Value>
void Store(Block& message, std::size_t at, Value value) {
    if (at + sizeof value <= message.size()) std::memcpy(&message[at], &value, sizeof value);
}

void ChangeField(Block& message, std::size_t at, Random& random) {
    constexpr int32_t NUMBERS[] = {-1, 0, 1, 15, 16, 63, 64, 16384, INT32_MAX, INT32_MIN};
    constexpr double PRICES[] = {0.0,
                                 -1.0,
                                 1.0,
                                 123.45,
                                 1e9,
                                 3e7,
                                 -1e300,
                                 DBL_MAX,
                                 std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::infinity()};
    constexpr uint16_t IDS[] = {0x0101, 0x0102, 0x0103, 0x0104, 0x1001, 0x1002, 0x1003, 0x1004, 0x0031, 0x0032, 0x0777};
    const std::size_t body = at + sizeof(field_t);
    const std::size_t end = EndOf(message, at);
    const std::size_t inside = body + random.Below(Size32(end - std::min(body, end)) + 1);
    switch (random.Below(6)) {
        case 0: return Store(message, body, NUMBERS[random.Below(std::size(NUMBERS))]);
        case 1: return Store(message, end - std::min<std::size_t>(end, 4), NUMBERS[random.Below(std::size(NUMBERS))]);
        case 2: return Store(message, inside, PRICES[random.Below(std::size(PRICES))]);
        case 3: return Store(message, inside, static_cast<uint8_t>(random.Next()));
        case 4: return Store(message, at, IDS[random.Below(std::size(IDS))]);
        default: return Store(message, at + offsetof(field_t, field_size), static_cast<uint16_t>(random.Below(200)));
    }
}

void MoveField(Block& message, std::size_t at, std::size_t to, bool isCopied) {
    const std::size_t end = EndOf(message, at);
    const Block field(message.begin() + static_cast<std::ptrdiff_t>(at),
                      message.begin() + static_cast<std::ptrdiff_t>(end));
    message.insert(message.begin() + static_cast<std::ptrdiff_t>(to), field.begin(), field.end());
    if (isCopied) return;
    const std::size_t from = to <= at ? at + field.size() : at;
    const auto first = message.begin() + static_cast<std::ptrdiff_t>(from);
    message.erase(first, first + static_cast<std::ptrdiff_t>(field.size()));
}

void ChangeBytes(Block& block, std::size_t maxSize) {
    const std::size_t size = block.size();
    block.resize(std::max<std::size_t>(maxSize, 1));
    block.resize(LLVMFuzzerMutate(block.data(), size, block.size()));
}

void ChangeMessage(Block& message, Random& random) {
    const std::vector<std::size_t> fields = Fields(message);
    const uint32_t kind = fields.empty() ? 0 : random.Below(9);
    if (kind == 0) {
        ChangeBytes(message, message.size() + 64);
    } else if (kind == 8) {
        message.resize(message.size() - std::min<std::size_t>(message.size(), 1 + random.Below(9)));
    } else if (kind < 5) {
        ChangeField(message, fields[random.Below(Size32(fields.size()))], random);
    } else if (kind == 5) {
        message[0] = message[0] == mdqp::FLAG_LAST ? mdqp::FLAG_MORE : mdqp::FLAG_LAST;
    } else {
        MoveField(message, fields[random.Below(Size32(fields.size()))], fields[random.Below(Size32(fields.size()))],
                  kind == 6);
    }
    if (!random.OneIn(LEFT_BROKEN_ONE_IN)) MendLength(message);
}

// ---- a script -------------------------------------------------------------------------------------------------------

Step AnyStep(Random& random) {
    constexpr int32_t LENGTHS[] = {0, 1, 2, 7, 8, 45, 200, 700, 1400, 1990};
    Step step;
    step.kind = static_cast<EStep>(random.Below(static_cast<uint32_t>(EStep::Count_)));
    step.stream = static_cast<uint8_t>(random.Below(STREAM_COUNT / 2));
    step.fault = static_cast<uint8_t>(random.Below(static_cast<uint32_t>(EWrong::Count_)));
    step.number = LENGTHS[random.Below(std::size(LENGTHS))];
    if (step.kind == EStep::Jump && random.OneIn(2)) step.number = -step.number;
    if (step.kind == EStep::Scan) step.number = random.Between(1, 600);
    if (step.kind == EStep::Oversized) step.number = random.Between(0, UINT16_MAX);
    return step;
}

void ChangeStep(Step& step, Random& random) {
    if (!step.block.empty()) {
        if (step.kind == EStep::Message) return ChangeMessage(step.block, random);
        return ChangeBytes(step.block, step.block.size() + 16);
    }
    switch (random.Below(3)) {
        case 0: step.fault = static_cast<uint8_t>(random.Below(static_cast<uint32_t>(EWrong::Count_))); return;
        case 1: step.stream = static_cast<uint8_t>(random.Below(STREAM_COUNT / 2)); return;
        default: step.number += random.Between(-9, 9); return;
    }
}

void ChangeOrder(std::vector<Step>& steps, Random& random) {
    const std::size_t at = random.Below(Size32(steps.size()));
    const std::size_t with = random.Below(Size32(steps.size()));
    const auto place = steps.begin() + static_cast<std::ptrdiff_t>(at);
    switch (random.Below(4)) {
        case 0: std::swap(steps[at], steps[with]); return;
        case 1: steps.erase(place); return;
        case 2: steps.insert(place, Step(steps[with])); return;
        default:
            // A segment in two.
            if (steps[at].kind != EStep::Segment || steps[at].number < 2) return;
            const int32_t first = random.Between(1, steps[at].number - 1);
            Step rest = steps[at];
            rest.number -= first;
            steps[at].number = first;
            steps.insert(place + 1, rest);
    }
}

void ChangeScript(Script& script, Random& random) {
    const uint32_t kind = script.steps.empty() ? 0 : random.Below(8);
    if (kind == 0) {
        const auto place = static_cast<std::ptrdiff_t>(random.Below(Size32(script.steps.size()) + 1));
        script.steps.insert(script.steps.begin() + place, AnyStep(random));
    } else if (kind < 5) {
        ChangeStep(script.steps[random.Below(Size32(script.steps.size()))], random);
    } else if (kind < 7) {
        ChangeOrder(script.steps, random);
    } else if (random.OneIn(2)) {
        script.options ^= static_cast<uint8_t>(1U << random.Below(8));
    } else {
        script.debugCase = static_cast<uint8_t>(random.Next());
    }
}

std::size_t Give(const Script& script, uint8_t* data, std::size_t maxSize) {
    const Block bytes = WriteScript(script);
    const std::size_t size = std::min(bytes.size(), maxSize);
    std::copy_n(bytes.begin(), size, data);
    return size;
}

}  // namespace
}  // namespace fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    exchange::Random random(seed, "mutation");
    if (random.OneIn(fuzz::BYTES_ONE_IN)) return LLVMFuzzerMutate(data, size, maxSize);
    fuzz::Script script = fuzz::ReadScript(data, size);
    for (uint32_t changes = 1 + random.Below(3); changes > 0; --changes) fuzz::ChangeScript(script, random);
    return fuzz::Give(script, data, maxSize);
}

/// The first steps of the one and the last steps of the other.
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const uint8_t* data1, std::size_t size1, const uint8_t* data2,
                                                 std::size_t size2, uint8_t* out, std::size_t maxSize,
                                                 unsigned int seed) {
    exchange::Random random(seed, "crossing");
    fuzz::Script script = fuzz::ReadScript(data1, size1);
    const fuzz::Script other = fuzz::ReadScript(data2, size2);
    script.steps.resize(random.Below(fuzz::Size32(script.steps.size()) + 1));
    const auto from = static_cast<std::ptrdiff_t>(random.Below(fuzz::Size32(other.steps.size()) + 1));
    script.steps.insert(script.steps.end(), other.steps.begin() + from, other.steps.end());
    return fuzz::Give(script, out, maxSize);
}

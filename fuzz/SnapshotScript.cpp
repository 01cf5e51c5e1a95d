// Scripts of fuzz_snapshot <-> bytes.
#include "fuzz/SnapshotScript.h"

#include <algorithm>

#include "fuzz/Bytes.h"

namespace fuzz {
namespace {

bool HasBlock(EStep kind) { return kind == EStep::Message || kind == EStep::Raw; }

}  // namespace

Script ReadScript(const uint8_t* data, std::size_t size) {
    ByteReader reader(data, size);
    Script script{reader.Take<uint8_t>(), reader.Take<uint8_t>(), {}};
    while (!reader.IsEmpty() && script.steps.size() < STEPS_MAX) {
        Step step;
        step.kind = static_cast<EStep>(reader.Take<uint8_t>() % static_cast<uint8_t>(EStep::Count_));
        step.stream = reader.Take<uint8_t>() % STREAM_COUNT;
        step.fault = reader.Take<uint8_t>() % static_cast<uint8_t>(EWrong::Count_);
        step.number = reader.Take<int32_t>();
        if (HasBlock(step.kind)) step.block = reader.TakeBlock(reader.Take<uint16_t>());
        script.steps.push_back(std::move(step));
    }
    return script;
}

std::vector<uint8_t> WriteScript(const Script& script) {
    std::vector<uint8_t> bytes{script.options, script.debugCase};
    for (const Step& step : script.steps) {
        Put(bytes, step.kind);
        Put(bytes, step.stream);
        Put(bytes, step.fault);
        Put(bytes, step.number);
        if (!HasBlock(step.kind)) continue;
        const auto size = static_cast<uint16_t>(std::min<std::size_t>(step.block.size(), UINT16_MAX));
        Put(bytes, size);
        bytes.insert(bytes.end(), step.block.begin(), step.block.begin() + size);
    }
    return bytes;
}

}  // namespace fuzz

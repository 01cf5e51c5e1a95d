/// The registers that a decoder writes, in order.
#pragma once

#include <vector>

#include "src/snapshot/MdqpDecoder.h"
#include "tests/support/RecordingBoard.h"

struct RecordedWrites final : IRegisterWriter {
    void Write(uint32_t index, uint32_t value) override { accesses.push_back(W(index, value)); }
    void Forget() { accesses.clear(); }

    std::vector<Access> accesses;
};

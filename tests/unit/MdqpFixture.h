/// The decoder, a port whose feed is known, and messages for it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "exchange/MdqpWriter.h"
#include "testing/LogCapture.h"
#include "testing/SnapshotUnits.h"
#include "tests/support/FilledSlot.h"
#include "tests/support/RecordedWrites.h"

class MdqpFixture : public testing::Test {
protected:
    static constexpr uint16_t PORT = 40000;

    MdqpFixture() { state->ports.port_shfe_2ps = PORT; }

    /// The message in a heap block of its exact size. True when it was its feed's last.
    bool Parse(const exchange::MdqpWriter& message, uint16_t port = PORT) {
        const std::vector<uint8_t> bytes = message.Bytes();
        const std::unique_ptr<uint8_t[]> block(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), block.get());
        return units.feeds.OnMessage(block.get(), static_cast<uint32_t>(bytes.size()), port, state->sessions[port]);
    }
    /// Eight bytes behind the last field, so that it does not begin in the message's last eight bytes.
    static exchange::MdqpWriter Padded(exchange::MdqpWriter message) {
        const uint8_t zeros[8] = {};
        return message.Field(0x0031, zeros, sizeof zeros);
    }
    SInstTableType& Slot(int32_t instNo) { return state->tables.shfe2psInstTable[instNo]; }
    static inst_info_t Info(int32_t instNo) {
        inst_info_t info{};
        info.inst_no = instNo;
        std::memcpy(info.inst_id, "cu2612", 7);
        return info;
    }
    static deal_info_t Deal(int32_t instNo) {
        deal_info_t deal{};
        deal.inst_no = instNo;
        return deal;
    }
    RecordedWrites board;
    LogCapture log;
    std::unique_ptr<SnapshotState> state = std::make_unique<SnapshotState>();
    SnapshotUnits units{*state, board};
    CMdqpDecoder& decoder = units.decoder;
};

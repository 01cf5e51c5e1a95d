#include "tests/support/SessionWorld.h"

#include <gtest/gtest.h>

#include <cstring>

#include "testing/IniText.h"

namespace {
constexpr int EMPTY_STEPS_MAX = 20000;
constexpr uint32_t CONFIGURED_MAX_INST_NO[] = {81000, 81101, 85000, 85101};
}  // namespace

software_board::BoardOptions WithFaults(const std::string& names, uint64_t seed) {
    software_board::BoardOptions options;
    options.exchange.seed = seed;
    options.lostPacketAfter = 500;
    std::string error;
    EXPECT_TRUE(exchange::ParseFaults(names, options.faults, error)) << error;
    return options;
}

SessionWorld::SessionWorld(const software_board::BoardOptions& options) : board(options), api(MakeApi()) {
    TestableApi::s_indexDirectory = directory.Path();
}

std::string SessionWorld::ConfigPath() {
    IniText text;
    text.Section("config").Device(0, 0).Key("log_level", 7).Key("log_path", directory.Prefix());
    text.Key("SRCIP", "10.20.0.2").Key("SRCPORT", 40000).Lines(configKeys).Lines(channelSections);
    return directory.Write("session.ini", text.Text());
}

int32_t SessionWorld::Start(Delivery delivery) {
    m_delivery = delivery;
    const std::string path = ConfigPath();
    return delivery == Delivery::Callback ? api->VexaStart(*this, path.c_str()) : api->VexaStart(path.c_str());
}

int32_t SessionWorld::Step() {
    if (m_delivery == Delivery::Callback) return api->VexaRecv();
    const int32_t result = api->VexaRecv(m_record);
    if (result == 1) Remember(m_record);
    return result;
}

bool SessionWorld::Receive(uint64_t wanted) {
    const uint64_t target = updates + wanted;
    for (int empty = 0; updates < target && empty < EMPTY_STEPS_MAX;) {
        const int32_t result = Step();
        if (result == -1) return false;
        empty = result == 1 ? 0 : empty + 1;
    }
    return updates >= target;
}

bool SessionWorld::ReceiveTheRest() {
    board.FinishAfterOneMoreOfEach();
    for (int empty = 0; empty < EMPTY_STEPS_MAX;) {
        const int32_t result = Step();
        if (result == -1) return false;
        if (result == 0 && board.IsDrained()) return true;
        empty = result == 1 ? 0 : empty + 1;
    }
    return false;
}

std::vector<std::string> SessionWorld::DifferencesFromTruth(const std::vector<EMDQPDataType>& feeds) {
    std::vector<std::string> different;
    for (const EMDQPDataType feed : feeds) {
        for (const exchange::Instrument& instrument : board.Market().Instruments(feed)) {
            VexaShfeMdType expected = board.Market().Truth(feed, instrument.instNo);
            expected.max_inst_no = CONFIGURED_MAX_INST_NO[feed];
            const auto found = last.find(instrument.id);
            if (found == last.end() || std::memcmp(&found->second, &expected, sizeof expected) != 0) {
                different.push_back(instrument.id);
            }
        }
    }
    return different;
}

void SessionWorld::Remember(const VexaShfeMdType& md) {
    last[std::string(md.inst_id, strnlen(md.inst_id, sizeof md.inst_id))] = md;
    ++updates;
}

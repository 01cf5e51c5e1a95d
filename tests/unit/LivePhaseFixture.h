/// A session in the live phase and the messages that its board hands over.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

/// The addresses that it was called with.
struct RememberingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override { seen.push_back(&md); }
    std::vector<const VexaShfeMdType*> seen;
};

class LivePhaseFixture : public testing::Test {
protected:
    LivePhaseFixture() {
        setenv("TZ", "UTC", 1);
        tzset();
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api->m_u50ConfigInfo.log_level = LOG_ALL;
        api->m_u50UserData.lpMdApi = api.get();
        api->m_vexaShfeMdSpiOptional = spi;
        api->m_isHBM2InitFinished = true;
        api->m_isAllInitFinished = true;
    }

    /// Exactly the bytes that a provider promises, so that a sanitizer sees any byte read beyond them.
    void Hand(const void* message, std::size_t length) {
        block.reset(new unsigned char[std::max<std::size_t>(length, DMA_READABLE_BYTES)]());
        std::memcpy(block.get(), message, length);
        api->_MdHandler(block.get(), static_cast<unsigned int>(length), &api->m_u50UserData);
    }
    void HandEvent(const U50Event& event) { Hand(&event, sizeof event); }
    /// A record whose bytes all differ from the ones beside them.
    static std::vector<unsigned char> UpdateMessage(unsigned char start) {
        std::vector<unsigned char> message(8 + 176);
        for (unsigned char& byte : message) byte = start++;
        std::fill(message.begin(), message.begin() + 8, static_cast<unsigned char>(0));
        message[0] = 1;  // an update
        return message;
    }
    void HandUpdate(unsigned char start = 40) {
        const std::vector<unsigned char> message = UpdateMessage(start);
        Hand(message.data(), message.size());
    }
    static U50Event Event(uint32_t data0, uint32_t data1 = 0, uint32_t data2 = 0, uint32_t data3 = 0) {
        return {DMA_EVENT, sizeof(U50Event), data0, data1, data2, data3, 0, 0};
    }
    static constexpr uint64_t MIDNIGHT = 1777507200;  ///< 30 April 2026, UTC
    /// The latest of the four feeds.
    void LastUpdateAt(int hour, int minute, uint32_t feed = 2) {
        board.answers[0x2040 + feed] = MIDNIGHT + static_cast<uint64_t>(hour * 3600 + minute * 60);
    }

    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    RememberingSpi spi;
    std::unique_ptr<TestableApi> api = MakeApi();
    std::unique_ptr<unsigned char[]> block;
};

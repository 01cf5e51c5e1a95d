// The interface as a compiled application knows it: operations by their place in the table, objects by their address;
// and what a refused call must leave as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/LiteralWire.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"
#include "tests/support/WrittenAtOnce.h"

using testing::ElementsAre;

namespace {

/// Calls whatever stands at `place` of the object's table.
template <typename... Arguments>
__attribute__((no_sanitize("undefined"))) int32_t CallSlot(std::size_t place, void* object, Arguments... arguments) {
    using Operation = int32_t (*)(void*, Arguments...);
    Operation* table = *static_cast<Operation**>(object);
    return table[place](object, arguments...);
}

struct RememberingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override {
        std::memcpy(record, &md, sizeof record);
        ++updates;
    }
    uint8_t record[176] = {};
    int updates = 0;
};

class LiteralInterface : public testing::Test {
protected:
    LiteralInterface() { TestableApi::ForgetWarnings(); }
    void* Object() { return static_cast<CVexaShfeMdApi*>(api.get()); }
    CVexaShfeMdSpi* Spi() { return &spi; }
    const char* Path() const { return file.Path().c_str(); }
    void PutUpdate(uint32_t instNo) { board.messages.push_back(literal::Update(instNo)); }

    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    TemporaryFile file{"[config]\ndevice=xilinx2:3\n"};
    RememberingSpi spi;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(LiteralInterface, Slot0ReceivesUntilTheEnd) {
    PutUpdate(7);
    PutUpdate(8);
    board.onPoll = [this](RecordingBoard& self) {
        if (self.polls == 5) api->VexaStop();
    };
    EXPECT_EQ(CallSlot(0, Object(), Spi(), Path()), 0);
    EXPECT_EQ(spi.updates, 2);
    testing::internal::CaptureStdout();
    EXPECT_EQ(CallSlot(0, Object(), Spi(), "/nonexistent/x.ini"), -1);
    testing::internal::GetCapturedStdout();
}

TEST_F(LiteralInterface, Slot1StartsInTheCallbackForm) {
    EXPECT_EQ(CallSlot(1, Object(), Spi(), Path()), 0);
    EXPECT_EQ(board.polls, 0U);
    PutUpdate(7);
    EXPECT_EQ(api->VexaRecv(), 1);
    EXPECT_EQ(spi.updates, 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(CallSlot(1, Object(), Spi(), "/nonexistent/x.ini"), -2);
    testing::internal::GetCapturedStdout();
}

TEST_F(LiteralInterface, Slot2IsAStepOfTheCallbackForm) {
    ASSERT_EQ(api->VexaStart(spi, Path()), 0);
    PutUpdate(7);
    EXPECT_EQ(CallSlot(2, Object()), 1);
    EXPECT_EQ(CallSlot(2, Object()), 0);
    EXPECT_EQ(board.polls, 2U);
}

TEST_F(LiteralInterface, Slot3StartsInThePollingForm) {
    EXPECT_EQ(CallSlot(3, Object(), static_cast<const char*>(nullptr)), -1);
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("lpConfig is nullptr"));
    EXPECT_EQ(CallSlot(3, Object(), Path()), 0);
    VexaShfeMdType md{};
    PutUpdate(7);
    EXPECT_EQ(api->VexaRecv(md), 1);
    EXPECT_EQ(md.inst_no, 7U);
}

TEST_F(LiteralInterface, Slot4IsAStepOfThePollingForm) {
    ASSERT_EQ(api->VexaStart(Path()), 0);
    const literal::Bytes update = literal::Update(0x01020304);
    board.messages.push_back(update);
    literal::Bytes record(176 + 1, 0xEE);
    EXPECT_EQ(CallSlot(4, Object(), reinterpret_cast<VexaShfeMdType*>(record.data())), 1);
    EXPECT_EQ(literal::Bytes(record.begin(), record.end() - 1), literal::Bytes(update.begin() + 8, update.end()));
    EXPECT_EQ(record.back(), 0xEE);
}

TEST_F(LiteralInterface, Slot5Stops) {
    ASSERT_EQ(api->VexaStart(spi, Path()), 0);
    EXPECT_EQ(CallSlot(5, Object()), 0);
    EXPECT_EQ(api->VexaRecv(), -1);
    EXPECT_EQ(board.polls, 0U);
}

TEST_F(LiteralInterface, Slot0OfTheApplicationsObjectTakesTheRecord) {
    literal::Bytes update = literal::Update(0x01020304);
    using Operation = void (*)(CVexaShfeMdSpi*, void*);
    const auto call =
        [](Operation * table, CVexaShfeMdSpi * object, void* md) __attribute__((no_sanitize("undefined"))) {
        table[0](object, md);
    };
    call(*reinterpret_cast<Operation**>(Spi()), Spi(), &update[8]);
    EXPECT_EQ(literal::Bytes(spi.record, spi.record + 176), literal::Bytes(update.begin() + 8, update.end()));
}

TEST_F(LiteralInterface, ObjectBeginsWithItsInterface) {
    EXPECT_EQ(Object(), static_cast<void*>(static_cast<CVexaShfeMdApiImpl*>(api.get())));
}

TEST_F(LiteralInterface, DestroyingNothingDoesNothing) {
    using Destroy = void (*)(CVexaShfeMdApi*);
    const auto call = [](Destroy destroy) __attribute__((no_sanitize("undefined"))) { destroy(nullptr); };
    void (*destroy)(CVexaShfeMdApi&) = &CVexaShfeMdApi::DestroyVexaShfeMdApi;
    Destroy raw = nullptr;
    std::memcpy(&raw, &destroy, sizeof raw);
    call(raw);
    EXPECT_TRUE(log.lines.empty());
    EXPECT_TRUE(board.accesses.empty());
}

// ---- the endless form by the table --------------------------------------------------------------------------------

/// Answers in place of the two operations that the endless form calls.
class ScriptedApi : public TestableApi {
public:
    int32_t VexaStart(CVexaShfeMdSpi& spi, const char* lpConfig) override {
        started = &spi;
        config = lpConfig;
        return startResult;
    }
    int32_t VexaRecv() override {
        const int32_t result = results.front();
        results.pop_front();
        return result;
    }
    std::deque<int32_t> results;
    int32_t startResult = 0;
    CVexaShfeMdSpi* started = nullptr;
    std::string config;
};

TEST_F(LiteralInterface, EndlessFormGoesThroughTheTableAndEndsOnMinusOneAlone) {
    const auto scripted = std::make_unique<ScriptedApi>();
    scripted->results = {1, 0, -2, 7, -3, 0, -1, 1};
    EXPECT_EQ(scripted->VexaRecvStart(spi, "x.ini"), 0);
    EXPECT_THAT(scripted->results, ElementsAre(1));
    EXPECT_EQ(scripted->started, &spi);
    EXPECT_EQ(scripted->config, "x.ini");
}

TEST_F(LiteralInterface, EndlessFormIsMinusOneWhateverTheStartGives) {
    const auto scripted = std::make_unique<ScriptedApi>();
    scripted->results = {1};
    for (const int32_t result : {-1, -2, -4, 3}) {
        scripted->startResult = result;
        EXPECT_EQ(scripted->VexaRecvStart(spi, "x.ini"), -1) << result;
    }
    EXPECT_THAT(scripted->results, ElementsAre(1));
}

// ---- what a refused call leaves -------------------------------------------------------------------------------------

class RefusedCall : public LiteralInterface {
protected:
    /// What an application gave before.
    void SetUp() override {
        ASSERT_EQ(api->VexaStart(spi, Path()), 0);
        ASSERT_EQ(api->VexaRecv(md), 0);
    }
    void ExpectKept(int32_t delivery) {
        EXPECT_STREQ(api->m_configFileName.data(), Path());
        bool isValid = false;
        EXPECT_EQ(&api->m_vexaShfeMdSpiOptional.GetData(isValid), &spi);
        EXPECT_TRUE(isValid);
        EXPECT_EQ(api->m_u50UserData.userDataType, delivery);
        EXPECT_EQ(api->m_u50UserData.lpMdData, &md);
    }
    VexaShfeMdType md{};
    VexaShfeMdType other{};
    RememberingSpi otherSpi;
};

TEST_F(RefusedCall, CallbackStartWithoutAPathKeepsNeitherSpiNorStop) {
    api->VexaStop();
    int32_t result = 0;
    EXPECT_EQ(WrittenAtOnce([&] { result = api->VexaStart(otherSpi, nullptr); }),
              "VexaStart error, lpConfig is nullptr");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(api->m_isStopflag);
    ExpectKept(0);
}

TEST_F(RefusedCall, PollingStartWithoutAPathChangesNoDelivery) {
    EXPECT_EQ(api->VexaStart(nullptr), -1);
    ExpectKept(0);
    PutUpdate(7);
    EXPECT_EQ(api->VexaRecv(), 1);
    EXPECT_EQ(spi.updates, 1);
}

TEST_F(RefusedCall, PollingStartLeavesTheSpi) {
    ASSERT_EQ(api->VexaStart(Path()), 0);
    ExpectKept(1);
}

TEST_F(RefusedCall, StepOfAStoppedSessionKeepsNoRecord) {
    api->VexaStop();
    EXPECT_EQ(api->VexaRecv(other), -1);
    ExpectKept(0);
}

TEST_F(RefusedCall, StepOfASessionThatCannotBeRebuiltKeepsNoRecord) {
    api->m_u50ConfigInfo.channel_id = 0;
    api->m_u50ConfigInfo.init_tcpcnt = 0;
    api->m_isAllInitFinished = false;
    EXPECT_EQ(api->VexaRecv(other), -1);
    ExpectKept(0);
}

TEST_F(RefusedCall, StartWhoseFileCannotBeReadKeepsItsPathAndSpi) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(api->VexaStart(otherSpi, "/nonexistent/x.ini"), -2);
    testing::internal::GetCapturedStdout();
    EXPECT_STREQ(api->m_configFileName.data(), "/nonexistent/x.ini");
    bool isValid = false;
    EXPECT_EQ(&api->m_vexaShfeMdSpiOptional.GetData(isValid), &otherSpi);
}

}  // namespace

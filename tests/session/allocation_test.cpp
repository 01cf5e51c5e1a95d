// Memory that runs out at any point of a start or a rebuild, and the delivery that asks for none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <new>
#include <string>

#include "public/config/IniReader.h"
#include "simulation/base/WatchedAllocator.h"
#include "testing/ProviderAdapter.h"
#include "tests/support/SessionWorld.h"

using simulation::WatchedAllocator;
using testing::IsEmpty;
using Failure = WatchedAllocator::Failure;
using Watch = WatchedAllocator::Watch;

namespace {

// ---- a board whose own memory never runs out ----

class UnlimitedBoard : public BoardOperations {
public:
    int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) override {
        const Watch pause(false);
        return m_inner.open_registers(argument, bus, core, registers);
    }
    void CloseRegisters(VexaBoardRegisters* registers) override { m_inner.close_registers(registers); }
    int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) override {
        const Watch pause(false);
        return m_inner.write32(registers, index, value);
    }
    int32_t Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) override {
        const Watch pause(false);
        return m_inner.read32(registers, index, value);
    }
    int32_t Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) override {
        const Watch pause(false);
        return m_inner.read64(registers, index, value);
    }
    int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) override {
        const Watch pause(false);
        return m_inner.open_stream(argument, bus, name, stream);
    }
    void CloseStream(VexaBoardStream* stream) override { m_inner.close_stream(stream); }
    int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) override {
        const Watch pause(false);
        WatchedHandler watched{handler, user};
        return m_inner.receive(stream, HandOver, &watched);
    }
    const char* LastError() override { return m_inner.last_error(); }

private:
    struct WatchedHandler {
        VexaBoardMessageHandler handler;
        void* user;
    };

    static void HandOver(const unsigned char* data, unsigned int length, void* user) {
        const Watch watch(true);
        const auto* watched = static_cast<const WatchedHandler*>(user);
        watched->handler(data, length, watched->user);
    }

    const VexaBoardProvider& m_inner = software_board::Provider();
};

software_board::BoardOptions FewInstruments() {
    software_board::BoardOptions options = WithFaults("reorder");
    options.exchange.shfeInstruments = 12;
    options.exchange.ineInstruments = 8;
    return options;
}

/// A whole session whose board is that one.
struct UnlimitedWorld : SessionWorld {
    UnlimitedWorld() : SessionWorld(FewInstruments()) {}
    ~UnlimitedWorld() override { api.reset(); }

    UnlimitedBoard unlimited;
    ProviderAdapter adapter{unlimited, "unlimited"};
};

/// A session with a log file and captures, whose library runs out of memory.
class OutOfMemory : public testing::TestWithParam<Failure> {
protected:
    OutOfMemory() {
        CCommonLog::GetInstance().SetSink(nullptr);
        world.configKeys = "ine2ps=enabled\nshfe2ps=disabled\nbind_cpu=-1\ndma_data_flag=1\nwait_snap_timeout=5\n";
        path = world.ConfigPath();
    }

    int32_t StartWithFailureAt(uint64_t number) {
        WatchedAllocator::FailAt(number, GetParam());
        const Watch watch(true);
        return world.api->VexaStart(world, path.c_str());
    }

    void ExpectTheTruth() {
        world.last.clear();
        ASSERT_TRUE(world.ReceiveTheRest());
        EXPECT_THAT(world.DifferencesFromTruth({INE_2PS}), IsEmpty());
    }

    UnlimitedWorld world;
    std::string path;
};

INSTANTIATE_TEST_SUITE_P(BothKinds, OutOfMemory, testing::Values(Failure::Once, Failure::FromThenOn),
                         [](const auto& failure) { return failure.param == Failure::Once ? "Once" : "FromThenOn"; });

TEST_P(OutOfMemory, AtAnyAllocationOfAStartIsRefusedOrSurvived) {
    ASSERT_EQ(StartWithFailureAt(0), 0);
    const uint64_t allocations = WatchedAllocator::Count();
    ASSERT_GT(allocations, 50U);
    for (uint64_t number = 1; number <= allocations; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number) + " of " + std::to_string(allocations));
        world.api = MakeApi();
        const int32_t result = StartWithFailureAt(number);
        WatchedAllocator::FailAt(0);
        ASSERT_THAT(result, testing::AnyOf(0, -2));
        ASSERT_EQ(world.api->m_isAllInitFinished, result == 0);
        ASSERT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_DEBUG_EX)) << "the log level was left raised";
        if (result == 0) {
            ASSERT_TRUE(world.Receive(1));
        }
    }
    world.api = MakeApi();
    ASSERT_EQ(StartWithFailureAt(0), 0);
    ExpectTheTruth();
}

TEST_P(OutOfMemory, AtAnyAllocationOfARebuildEndsTheStepOrIsSurvived) {
    ASSERT_EQ(StartWithFailureAt(0), 0);
    uint64_t failed = 0;
    for (bool isReached = true; isReached;) {
        world.board.LosePackets(1);
        while (world.api->m_isAllInitFinished) ASSERT_NE(world.Step(), -1);
        WatchedAllocator::FailAt(failed + 1, GetParam());
        {
            const Watch watch(true);
            world.api->VexaRecv();
        }
        isReached = WatchedAllocator::Count() > failed;
        ASSERT_FALSE(CCommonLog::GetInstance().IsEnabled(LOG_DEBUG_EX)) << "the log level was left raised";
        WatchedAllocator::FailAt(0);
        ASSERT_TRUE(world.Receive(1)) << "after the failure of allocation " << failed + 1;
        failed += isReached ? 1 : 0;
    }
    EXPECT_GT(failed, 20U);
    ExpectTheTruth();
}

TEST_P(OutOfMemory, LeavesNoFileOpen) {
    const auto openFiles = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = openFiles();
    CIniReader reader;
    bool isReached = true;
    for (uint64_t number = 1; isReached; ++number) {
        WatchedAllocator::FailAt(number, GetParam());
        try {
            const Watch watch(true);
            reader.ReadConfig(path);
        } catch (const std::bad_alloc&) {
        }
        isReached = WatchedAllocator::Count() >= number;
        WatchedAllocator::FailAt(0);
        ASSERT_EQ(openFiles(), before) << "allocation " << number;
    }
}

TEST(Delivery, AllocatesNothingInEitherForm) {
    UnlimitedWorld world;
    struct Counting : CVexaShfeMdSpi {
        void OnVexaShfeMd(VexaShfeMdType&) override { ++count; }
        int count = 0;
    } spi;
    const std::string path = world.ConfigPath();
    ASSERT_EQ(world.api->VexaStart(spi, path.c_str()), 0);
    WatchedAllocator::FailAt(0);
    {
        const Watch watch(true);
        while (spi.count < 1000) ASSERT_NE(world.api->VexaRecv(), -1);
    }
    EXPECT_EQ(WatchedAllocator::Count(), 0U);

    ASSERT_EQ(world.api->VexaStart(path.c_str()), 0);
    VexaShfeMdType md{};
    WatchedAllocator::FailAt(0);
    {
        const Watch watch(true);
        for (int updates = 0; updates < 1000;) updates += world.api->VexaRecv(md) == 1 ? 1 : 0;
    }
    EXPECT_EQ(WatchedAllocator::Count(), 0U);
}

}  // namespace

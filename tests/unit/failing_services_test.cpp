// Services by themselves under calls that fail: those that no session makes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <string>

#include "interface/VexaShfeMdApi.h"
#include "public/config/IniReader.h"
#include "public/log/LogLine.h"
#include "public/reg/BoardProviderLoader.h"
#include "public/reg/SharedObject.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/SessionWorld.h"
#include "tests/unit/FailingServices.h"

using testing::ElementsAre;

namespace {

// ---- the configuration ----------------------------------------------------------------------------------------------

class FailingIni : public FailingServices {
protected:
    bool Read(const std::string& text) {
        const TemporaryFile file(text);
        const FailingCalls::Watch watch;
        return reader.ReadConfig(file.Path());
    }
    static std::ptrdiff_t Made(ECall call) {
        return std::count_if(FailingCalls::Made().begin(), FailingCalls::Made().end(),
                             [call](const MadeCall& made) { return made.call == call; });
    }

    CIniReader reader;
};

TEST_F(FailingIni, ReadThatIsInterruptedForEverIsGivenUpAtTheSixteenth) {
    FailingCalls::FailFrom(ECall::Read, 1, EINTR);
    EXPECT_FALSE(Read("[config]\ncpucore=3\n"));
    EXPECT_EQ(Made(ECall::Read), 16);
    FailingCalls::Forget();
    EXPECT_TRUE(Read("[config]\ncpucore=3\n"));
    EXPECT_EQ(reader.ReadInt32("config", "cpucore", -1), 3);
}

TEST_F(FailingIni, ReadsThatAreInterruptedFifteenTimesEachAreAllTaken) {
    std::string text = "[config]\n";
    for (int key = 0; key < 200; ++key) text += "key" + std::to_string(key) + "=" + std::to_string(key + 7) + "\n";
    for (uint64_t number = 1; number < 1'600; ++number) {
        FailingCalls::FailAt(ECall::Read, number, number % 16 == 0 ? FailingCalls::PART : EINTR);
    }
    EXPECT_TRUE(Read(text));
    EXPECT_GT(FailingCalls::Happened(), 1'000U);
    for (int key = 0; key < 200; ++key) {
        EXPECT_EQ(reader.ReadInt32("config", ("key" + std::to_string(key)).c_str(), -1), key + 7);
    }
}

TEST_F(FailingIni, EndOfTheFileIsReadOnceWhateverFailedBefore) {
    FailingCalls::FailAt(ECall::Read, 1, EINTR);
    EXPECT_TRUE(Read("[config]\ncpucore=3\n"));
    EXPECT_EQ(Made(ECall::Read), 3);
}

TEST_F(FailingIni, ReadThatFailsOtherwiseIsNotTriedAgain) {
    FailingCalls::FailAt(ECall::Read, 2, EIO);
    EXPECT_FALSE(Read("[config]\ncpucore=3\n"));
    EXPECT_EQ(Made(ECall::Read), 2);
    EXPECT_EQ(reader.ReadInt32("config", "cpucore", -1), -1);
}

TEST_F(FailingIni, NamesAreSpreadByChanceThatTheFileDoesNotKnow) {
    EXPECT_TRUE(Read("[config]\ncpucore=3\n"));
    EXPECT_EQ(Made(ECall::Getrandom), 2);  // of the sections, of the keys
    FailingCalls::Forget();
    FailingCalls::FailFrom(ECall::Getrandom, 1, ENOSYS);
    EXPECT_TRUE(Read("[config]\ncpucore=4\n"));
    EXPECT_EQ(reader.ReadInt32("config", "cpucore", -1), 4);
}

// ---- the provider ---------------------------------------------------------------------------------------------------

class FailingProvider : public FailingServices {
protected:
    FailingProvider() {
        UseBoardProvider(nullptr);
        setenv("VEXA_BOARD_PROVIDER", SOFTWARE_BOARD_LIBRARY, 1);
    }
    ~FailingProvider() override {
        UseBoardProvider(nullptr);
        unsetenv("VEXA_BOARD_PROVIDER");
    }

    /// The lines of a load, which is as it ought to be once nothing fails.
    Lines Load(bool isLoaded) {
        log.lines.clear();
        {
            const FailingCalls::Watch watch;
            EXPECT_EQ(LoadBoardProvider().provider != nullptr, isLoaded);
        }
        const Lines lines = log.Texts();
        FailingCalls::Forget();
        EXPECT_NE(LoadBoardProvider().provider, nullptr);
        UseBoardProvider(nullptr);
        return lines;
    }

    static std::string NotLoaded(const std::string& reason) {
        return "board provider " SOFTWARE_BOARD_LIBRARY " cannot be loaded (" + reason +
               "); set VEXA_BOARD_PROVIDER to \"software\" or to the path of a provider";
    }

    LogCapture log;
};

TEST_F(FailingProvider, ThatCannotBeLookedAtIsRefusedWithTheReason) {
    for (const ECall call : {ECall::Open, ECall::Fstat}) {
        for (const int error : {EACCES, EMFILE, EIO, EINTR}) {
            FailingCalls::FailAt(call, 1, error);
            EXPECT_THAT(Load(false), ElementsAre(NotLoaded(std::strerror(error))));
        }
    }
    for (const uint64_t number : {1U, 2U, 4U}) {  // the head, and what it tells of
        for (const int error : {EIO, EINTR}) {
            FailingCalls::FailAt(ECall::Pread, number, error);
            EXPECT_THAT(Load(false), ElementsAre(NotLoaded(std::strerror(error)))) << number;
        }
    }
}

TEST_F(FailingProvider, ThatIsReadInPartIsTakenForCut) {
    FailingCalls::FailAt(ECall::Pread, 1, FailingCalls::PART);
    EXPECT_THAT(Load(false), ElementsAre(NotLoaded("no shared object for this machine")));
    FailingCalls::FailAt(ECall::Pread, 3, FailingCalls::PART);
    EXPECT_THAT(Load(false), ElementsAre(NotLoaded("cut: shorter than its headers say")));
}

TEST_F(FailingProvider, ThatTheLoaderRefusesWithoutAWordIsRefused) {
    FailingCalls::FailAt(ECall::Dlopen, 1, ENOMEM);
    EXPECT_THAT(Load(false), ElementsAre(NotLoaded("no reason given")));
}

TEST_F(FailingProvider, WhosePathCannotBeAskedForIsLoadedAndNamedAsItWasGiven) {
    for (const ECall call : {ECall::Realpath, ECall::Dlinfo, ECall::Close}) {
        FailingCalls::FailAt(call, 1, EIO);
        EXPECT_THAT(Load(true), ElementsAre("board provider software loaded from " SOFTWARE_BOARD_LIBRARY));
    }
}

TEST_F(FailingProvider, IsLookedForByTheLoaderWhereThisLibrarysPlaceIsUnknown) {
    setenv("VEXA_BOARD_PROVIDER", "software", 1);
    UseBoardProvider(nullptr);
    FailingCalls::FailAt(ECall::Dladdr, 1, EIO);
    {
        const FailingCalls::Watch watch;
        LoadBoardProvider();
    }
    Lines looked;
    for (const MadeCall& made : FailingCalls::Made()) {
        if (made.call == ECall::Dlopen) looked.push_back(made.path);
    }
    EXPECT_THAT(looked, ElementsAre("libvexa_software_board.so"));
}

TEST_F(FailingProvider, IsLookedForBesideThisLibraryAndThenByTheLoader) {
    setenv("VEXA_BOARD_PROVIDER", "software", 1);
    UseBoardProvider(nullptr);
    FailingCalls::FailAt(ECall::Dlopen, 1, ENOENT);
    {
        const FailingCalls::Watch watch;
        EXPECT_EQ(LoadBoardProvider().provider, nullptr);
    }
    Lines looked;
    for (const MadeCall& made : FailingCalls::Made()) {
        if (made.call == ECall::Open || made.call == ECall::Dlopen) looked.push_back(made.path);
    }
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    ASSERT_FALSE(looked.empty());
    looked[0] = fs::weakly_canonical(looked[0]);
    EXPECT_THAT(looked, ElementsAre(here / "libvexa_software_board.so", "libvexa_software_board.so"));
    EXPECT_THAT(log.Texts(),
                ElementsAre("board provider libvexa_software_board.so cannot be loaded (no reason given); set "
                            "VEXA_BOARD_PROVIDER to \"software\" or to the path of a provider"));
}

// ---- the factory ----------------------------------------------------------------------------------------------------

CVexaShfeMdApi& WithoutMemory() {
    const FailingMemory memory(sizeof(CVexaShfeMdApiImpl) - 1);
    return CVexaShfeMdApi::CreateVexaShfeMdApi();
}

TEST(FailingFactory, WithoutMemoryGivesAnObjectThatRefusesAndTheNextIsWhole) {
    SessionWorld world;
    const std::string path = world.ConfigPath();
    CVexaShfeMdApi& none = WithoutMemory();
    EXPECT_THAT(world.log.Texts(LOG_ERROR),
                ElementsAre("no memory for a session object of " + std::to_string(sizeof(CVexaShfeMdApiImpl)) +
                            " bytes; every start will fail"));
    world.log.lines.clear();
    VexaShfeMdType md{};
    EXPECT_EQ(none.VexaStart(world, path.c_str()), -2);
    EXPECT_EQ(none.VexaStart(path.c_str()), -2);
    EXPECT_EQ(none.VexaRecvStart(world, path.c_str()), -1);
    EXPECT_EQ(none.VexaRecv(), -1);
    EXPECT_EQ(none.VexaRecv(md), -1);
    EXPECT_EQ(none.VexaStop(), 0);
    EXPECT_THAT(world.log.Texts(LOG_ERROR), ElementsAre("_Init error", "_Init error", "_Init error"));
    world.log.lines.clear();
    testing::internal::CaptureStdout();
    EXPECT_EQ(none.VexaStart(world, nullptr), -1);
    EXPECT_GT(lseek(STDOUT_FILENO, 0, SEEK_CUR), 0) << "told at once";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "VexaStart error, lpConfig is nullptr");
    EXPECT_EQ(none.VexaStart(nullptr), -1);
    EXPECT_THAT(world.log.Texts(LOG_ERROR), ElementsAre("lpConfig is nullptr"));
    CVexaShfeMdApi::DestroyVexaShfeMdApi(none);

    CVexaShfeMdApi& whole = CVexaShfeMdApi::CreateVexaShfeMdApi();
    EXPECT_EQ(whole.VexaStart(world, path.c_str()), 0);
    for (int step = 0; step < 10000 && world.updates == 0; ++step) ASSERT_NE(whole.VexaRecv(), -1);
    EXPECT_GT(world.updates, 0U);
    CVexaShfeMdApi::DestroyVexaShfeMdApi(whole);
}

}  // namespace

// Services by themselves under calls that fail: those that no session makes, and two failures that meet.
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
#include "public/write_shot/write_shot.h"
#include "tests/support/FailingCalls.h"
#include "tests/support/IniText.h"
#include "tests/support/SessionWorld.h"

using testing::ElementsAre;
using testing::EndsWith;

namespace {

constexpr std::size_t NO_LIMIT = SIZE_MAX;
std::size_t g_bytesAtOnceMax = NO_LIMIT;

}  // namespace

// In front of the C++ library's: memory that has no room for large objects.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (size > g_bytesAtOnceMax) return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::string Content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class FailingServices : public testing::Test {
protected:
    FailingServices() {
        FailingCalls::Forget();
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ~FailingServices() override { FailingCalls::Forget(); }

    fs::path OnlyFile() const {
        const fs::directory_iterator entries(directory.Path());
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
        return fs::directory_iterator(directory.Path())->path();
    }

    TempDirectory directory;
    VirtualClock clock;
};

// ---- the log --------------------------------------------------------------------------------------------------------

class FailingLog : public FailingServices {
protected:
    FailingLog() { UsePath(directory.Path().string() + "/"); }
    ~FailingLog() override { UsePath(""); }

    static void UsePath(const std::string& path) { CCommonLog::GetInstance().SetLogPath(path.c_str()); }

    static std::string Write(const std::string& text) {
        testing::internal::CaptureStderr();
        {
            const FailingCalls::Watch watch;
            CCommonLog::GetInstance().WriteLog(LOG_INFO, "%s", text.c_str());
        }
        return testing::internal::GetCapturedStderr();
    }

    /// What follows the times in front.
    static Lines Texts(const fs::path& path) {
        Lines lines;
        std::ifstream in(path);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line.size() < 27 ? "cut: " + line : line.substr(27));
        }
        return lines;
    }

    std::string NoLog(const std::string& what) const {
        return "vexa_shfe_md: the log file " + directory.Path().string() + "/" + what +
               "; the session goes on without it\n";
    }
};

TEST_F(FailingLog, CutLineIsTakenBack) {
    Write("first");
    FailingCalls::FailAt(ECall::Write, 2, FailingCalls::PART);
    FailingCalls::FailAt(ECall::Write, 3, ENOSPC);
    EXPECT_EQ(Write("second"), NoLog(" cannot be written (No space left on device)"));
    EXPECT_EQ(Write("third"), "");
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first", "[INFO] third"));
}

TEST_F(FailingLog, LineBehindACutOneThatCannotBeTakenBackBeginsALine) {
    for (const ECall call : {ECall::Ftruncate, ECall::Lseek}) {
        FailingCalls::Forget();
        fs::remove_all(directory.Path());
        fs::create_directory(directory.Path());
        UsePath(directory.Path().string() + "/");
        Write("first");
        FailingCalls::FailAt(ECall::Write, 2, FailingCalls::PART);
        FailingCalls::FailAt(ECall::Write, 3, ENOSPC);
        FailingCalls::FailAt(call, 1, EPERM);
        FailingCalls::FailAt(ECall::Write, 5, ENOSPC);  // behind the one to standard error
        Write("second");
        Write("third");  // no room for it either
        Write("fourth");
        Write("fifth");
        EXPECT_THAT(Texts(OnlyFile()),
                    ElementsAre("[INFO] first", "cut: 2026-04-29 22:00:00.", "[INFO] fourth", "[INFO] fifth"));
    }
}

TEST_F(FailingLog, FileThatStaysClosedUnderAUmaskTakesLines) {
    const mode_t before = umask(0777);
    FailingCalls::FailAt(ECall::Fchmod, 1, EPERM);
    EXPECT_EQ(Write("a line"), "");
    umask(before);
    EXPECT_EQ(FailingCalls::Happened(), 1U);
    struct stat status {};
    EXPECT_EQ(stat(OnlyFile().c_str(), &status), 0);
    EXPECT_GT(status.st_size, 0);
}

TEST_F(FailingLog, WithoutADescriptorAboveTheStandardOnesIsToldAndNoneIsLeftOpen) {
    const int input = dup(STDIN_FILENO);
    testing::internal::CaptureStderr();
    close(STDIN_FILENO);
    FailingCalls::FailAt(ECall::Fcntl, 1, EMFILE);
    {
        const FailingCalls::Watch watch;
        CCommonLog::GetInstance().WriteLog(LOG_INFO, "a line");
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              NoLog("vexa_shfe_md_20260429.log cannot be opened (Too many open files)"));
}

TEST_F(FailingLog, DirectoryThatCannotBeLookedAtIsTakenAsTheBeginningOfTheName) {
    UsePath(directory.Path().string());
    FailingCalls::FailAt(ECall::Stat, 1, EIO);
    EXPECT_EQ(Write("a line"), "");
    const fs::path beside = directory.Path().string() + "vexa_shfe_md_20260429.log";
    EXPECT_THAT(Texts(beside), ElementsAre("[INFO] a line"));
    fs::remove(beside);
}

// ---- the captures ---------------------------------------------------------------------------------------------------

class FailingCapture : public FailingServices {
protected:
    FailingCapture() { EXPECT_EQ(shot.CreateShotBinLog((directory.Path().string() + "/").c_str(), 3), 0); }
    ~FailingCapture() override { shot.CloseShotBinLog(); }

    void Write(const std::string& message) const {
        const FailingCalls::Watch watch;
        shot.WriteShotBinLog(reinterpret_cast<const unsigned char*>(message.data()), message.size());
    }

    /// The messages in the file, up to its end.
    Lines Messages() const {
        const std::string content = Content(OnlyFile());
        Lines messages;
        for (std::size_t at = 16; at < content.size();) {
            uint32_t length = 0;
            if (at + 16 <= content.size()) std::memcpy(&length, content.data() + at + 8, sizeof length);
            const bool isWhole = length > 0 && at + 16 + length <= content.size();
            messages.push_back(isWhole ? content.substr(at + 16, length) : "cut");
            at = isWhole ? at + 16 + length : content.size();
        }
        return messages;
    }

    const CWriteShot& shot = CWriteShot::GetInstance();
    const uint64_t before = shot.GetDroppedCnt();
    LogCapture log;
};

TEST_F(FailingCapture, CutRecordIsTakenBack) {
    for (const uint64_t cutWrite : {3U, 4U}) {  // of the head, of the message
        FailingCalls::Forget();
        ASSERT_EQ(truncate(OnlyFile().c_str(), 16), 0);
        Write("first");
        FailingCalls::FailAt(ECall::Write, cutWrite, FailingCalls::PART);
        FailingCalls::FailAt(ECall::Write, cutWrite + 1, EDQUOT);
        Write("second");
        Write("third");
        EXPECT_THAT(Messages(), ElementsAre("first", "third"));
    }
    EXPECT_EQ(shot.GetDroppedCnt() - before, 2U);
    EXPECT_THAT(log.Texts(),
                ElementsAre("a capture record cannot be written (Disk quota exceeded); records are counted "
                            "as dropped"));
}

TEST_F(FailingCapture, RecordThatCannotBeTakenBackIsTheLast) {
    Write("first");
    FailingCalls::FailAt(ECall::Write, 4, FailingCalls::PART);
    FailingCalls::FailAt(ECall::Write, 5, ENOSPC);
    FailingCalls::FailAt(ECall::Ftruncate, 1, EPERM);
    Write("second");
    Write("third");
    Write("fourth");
    EXPECT_THAT(Messages(), ElementsAre("first", "cut"));
    EXPECT_EQ(shot.GetBinShotCnt(), 1U);
    EXPECT_EQ(shot.GetDroppedCnt() - before, 3U);
    EXPECT_EQ(log.Texts().size(), 1U);

    ASSERT_EQ(shot.CreateShotBinLog((directory.Path().string() + "/").c_str(), 4), 0);
    Write("fifth");
    EXPECT_EQ(shot.GetBinShotCnt(), 1U);
    EXPECT_EQ(shot.GetDroppedCnt() - before, 3U);
}

// ---- the configuration ----------------------------------------------------------------------------------------------

class FailingIni : public FailingServices {
protected:
    bool Read(const std::string& text) {
        const TempFile file(text);
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

// ---- the factory ----------------------------------------------------------------------------------------------------

TEST(FailingFactory, WithoutMemoryGivesAnObjectThatRefusesAndTheNextIsWhole) {
    SessionWorld world;
    const std::string path = world.ConfigPath();
    g_bytesAtOnceMax = sizeof(CVexaShfeMdApiImpl) - 1;
    CVexaShfeMdApi& none = CVexaShfeMdApi::CreateVexaShfeMdApi();
    g_bytesAtOnceMax = NO_LIMIT;
    EXPECT_THAT(world.log.Texts(),
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
    EXPECT_THAT(world.log.Texts(), ElementsAre("_Init error", "_Init error", "_Init error"));
    CVexaShfeMdApi::DestroyVexaShfeMdApi(none);

    CVexaShfeMdApi& whole = CVexaShfeMdApi::CreateVexaShfeMdApi();
    EXPECT_EQ(whole.VexaStart(world, path.c_str()), 0);
    for (int step = 0; step < 10000 && world.updates == 0; ++step) ASSERT_NE(whole.VexaRecv(), -1);
    EXPECT_GT(world.updates, 0U);
    CVexaShfeMdApi::DestroyVexaShfeMdApi(whole);
}

}  // namespace

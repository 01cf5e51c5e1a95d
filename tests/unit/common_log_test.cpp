#include "public/log/CommonLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "public/file/WriteWhole.h"
#include "public/log/LogFile.h"
#include "public/log/LogLine.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr int64_t SECONDS_PER_DAY = 86400;

CCommonLog& Log() { return CCommonLog::GetInstance(); }

/// Writes beyond this size of any file fail for its lifetime.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
};

class CommonLog : public testing::Test {
protected:
    CommonLog() {
        setenv("TZ", "UTC", 1);
        tzset();
        clock.step = 0;
        clock.wall = 1'777'541'400 * NANOSECONDS_PER_SECOND + 123'456'789;  // 2026-04-30 09:30:00.123456789
    }
    ~CommonLog() override {
        Log().SetLogPath("");
        Log().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
        Log().WriteLog(LOG_DEBUG, "end of test");
    }

    fs::path Today() const { return directory / "vexa_shfe_md_20260430.log"; }

    static std::string Content(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    /// What standard error says about opening a log at `path`, and that a line to it is counted as dropped.
    std::string Refusal(const std::string& path) {
        const uint64_t before = Log().DroppedLines();
        testing::internal::CaptureStderr();
        Log().SetLogPath(path.c_str());
        Log().WriteLog(LOG_INFO, "first");
        Log().WriteLog(LOG_INFO, "second");
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(Log().DroppedLines() - before, 2U);
        EXPECT_EQ(said.find("cannot be opened"), said.rfind("cannot be opened")) << "told once";
        return said;
    }

    ManualClock clock;
    const TemporaryDirectory home;
    const fs::path& directory = home.Path();
};

class LogLevels : public CommonLog, public testing::WithParamInterface<std::pair<ELOGLEVEL, const char*>> {};

}  // namespace

// The first of its program: nothing has been set yet.
TEST(LogOfANewProcess, GoesToStandardErrorInUtcWithoutTraces) {
    for (const ELOGLEVEL level : {LOG_ERROR, LOG_WARNING, LOG_INFO, LOG_DEBUG}) EXPECT_TRUE(Log().IsEnabled(level));
    EXPECT_FALSE(Log().IsEnabled(LOG_DEBUG_EX));
    EXPECT_EQ(Log().DroppedLines(), 0U);
    ManualClock clock;
    clock.step = 0;
    testing::internal::CaptureStderr();
    Log().WriteText(LOG_INFO, "first", 5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "2026-04-29 22:00:00.000000 [INFO] first\n");
}

TEST_F(CommonLog, PutsTimeWithMicrosecondsAndLevelInFrontOfALine) {
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "[a.cpp:%d][Init]text", 7);
    EXPECT_EQ(Content(Today()), "2026-04-30 09:30:00.123456 [INFO] [a.cpp:7][Init]text\n");
}

TEST_P(LogLevels, AreNamedInTheLine) {
    Log().SetLogLevel(LOG_ALL);
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(GetParam().first, "x");
    EXPECT_THAT(Content(Today()), EndsWith(std::string(" [") + GetParam().second + "] x\n"));
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, LogLevels,
                         testing::Values(std::pair{LOG_ERROR, "ERROR"}, std::pair{LOG_WARNING, "WARNING"},
                                         std::pair{LOG_INFO, "INFO"}, std::pair{LOG_DEBUG, "DEBUG"},
                                         std::pair{LOG_DEBUG_EX, "TRACE"}));

TEST_F(CommonLog, TimeIsLocal) {
    setenv("TZ", "CST-8", 1);
    tzset();
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_THAT(Content(Today()), testing::StartsWith("2026-04-30 17:30:00.123456 "));
}

TEST_F(CommonLog, EmptyPathWritesToStandardError) {
    testing::internal::CaptureStderr();
    Log().SetLogPath("");
    Log().WriteLog(LOG_WARNING, "to the terminal");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "2026-04-30 09:30:00.123456 [WARNING] to the terminal\n");
}

TEST_F(CommonLog, NullPathIsTheEmptyPath) {
    testing::internal::CaptureStderr();
    Log().SetLogPath(nullptr);
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("x\n"));
}

TEST_F(CommonLog, TextEndingInASlashIsADirectory) {
    Log().SetLogPath((directory.string() + "/").c_str());
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_TRUE(fs::exists(Today()));
}

TEST_F(CommonLog, OtherTextIsPutBeforeTheName) {
    Log().SetLogPath((directory / "desk7_").c_str());
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_TRUE(fs::exists(directory / "desk7_vexa_shfe_md_20260430.log"));
}

TEST_F(CommonLog, AppendsToTheFileOfTheDay) {
    std::ofstream(Today()) << "before\n";
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_THAT(Content(Today()), MatchesRegex("before\n2026.*x\n"));
}

TEST_F(CommonLog, DayChangeOpensTheNextFile) {
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "today");
    clock.Advance(SECONDS_PER_DAY * NANOSECONDS_PER_SECOND);
    Log().WriteLog(LOG_INFO, "tomorrow");
    EXPECT_THAT(Content(Today()), EndsWith("today\n"));
    EXPECT_THAT(Content(directory / "vexa_shfe_md_20260501.log"), EndsWith("tomorrow\n"));
}

TEST_F(CommonLog, DayChangeAtAQuarterOfAnHourIsSeenAtOnce) {
    setenv("TZ", "NPT-5:45", 1);  // midnight is at 18:15 UTC
    tzset();
    clock.wall = 1'777'572'899 * NANOSECONDS_PER_SECOND;  // 18:14:59 UTC
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "last");
    clock.Advance(NANOSECONDS_PER_SECOND);
    Log().WriteLog(LOG_INFO, "first");
    EXPECT_EQ(Content(directory / "vexa_shfe_md_20260501.log"), "2026-05-01 00:00:00.000000 [INFO] first\n");
}

TEST_F(CommonLog, LevelOutsideTheMaskWritesNothing) {
    Log().SetLogPath(directory.c_str());
    Log().SetLogLevel(LOG_ERROR | LOG_INFO);
    Log().WriteLog(LOG_WARNING, "unseen");
    Log().WriteLog(LOG_INFO, "seen");
    EXPECT_THAT(Content(Today()), Not(HasSubstr("unseen")));
    EXPECT_THAT(Content(Today()), HasSubstr("seen"));
}

TEST_F(CommonLog, LevelOutsideTheMaskFormatsNothing) {
    Log().SetLogLevel(LOG_ERROR);
    int formatted = 0;
    Log().WriteLog(LOG_INFO, "text%n", &formatted);
    VEXA_LOG(LOG_INFO, "text%n", &formatted);
    EXPECT_EQ(formatted, 0);
}

TEST_F(CommonLog, FormatCharactersInAnArgumentStayText) {
    Log().SetLogPath(directory.c_str());
    VEXA_LOG(LOG_INFO, "%s", "%n%s%x");
    EXPECT_THAT(Content(Today()), EndsWith("]%n%s%x\n"));
}

TEST_F(CommonLog, ControlBytesDoNotReachTheFile) {
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "%s", "one\ntwo\x1b[2J\x7f");
    EXPECT_THAT(Content(Today()), EndsWith("] one?two?[2J?\n"));
}

TEST_F(CommonLog, TooLongTextIsCutAndStaysOneLine) {
    Log().SetLogPath(directory.c_str());
    VEXA_LOG(LOG_INFO, "%s", std::string(20'000, 'x').c_str());
    const std::string content = Content(Today());
    EXPECT_EQ(std::count(content.begin(), content.end(), 'x'), static_cast<long>(LOG_TEXT_CAPACITY) - 1);
    EXPECT_THAT(content, EndsWith("x\n"));
}

TEST_F(CommonLog, FinishedTextBeyondTheCapacityIsCut) {
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "opens the file");
    const std::string text(100'000, 'y');
    Log().WriteText(LOG_ERROR, text.data(), text.size());
    EXPECT_LT(fs::file_size(Today()), 5'000U);
}

TEST_F(CommonLog, FinishedTextGoesToTheOpenFile) {
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "opens the file");
    Log().WriteText(LOG_ERROR, "signal", 6);
    EXPECT_THAT(Content(Today()), EndsWith(" [ERROR] signal\n"));
}

TEST_F(CommonLog, FinishedTextNeverOpensAFile) {
    testing::internal::CaptureStderr();
    Log().SetLogPath(directory.c_str());
    Log().WriteText(LOG_ERROR, "signal", 6);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(" [ERROR] signal\n"));
    EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(CommonLog, SinkGetsTheTextWithoutTimeAndLevel) {
    LogCapture capture;
    VEXA_LOG(LOG_WARNING, "value %d", 5);
    ASSERT_EQ(capture.lines.size(), 1U);
    EXPECT_EQ(capture.lines[0].level, LOG_WARNING);
    EXPECT_THAT(capture.lines[0].whole, MatchesRegex("\\[common_log_test.cpp:[0-9]+\\]\\[TestBody\\]value 5"));
}

TEST_F(CommonLog, FileIsOwnerOnlyWhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const fs::path place = directory / std::to_string(mask);
        fs::create_directory(place);
        const mode_t before = umask(mask);
        Log().SetLogPath(place.c_str());
        Log().WriteLog(LOG_INFO, "x");
        umask(before);
        EXPECT_EQ(fs::status(place / "vexa_shfe_md_20260430.log").permissions(),
                  fs::perms::owner_read | fs::perms::owner_write);
    }
}

TEST_F(CommonLog, RightsThatAFileHasAreKept) {
    std::ofstream(Today()) << "before\n";
    const auto rights = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(Today(), rights);
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_EQ(fs::status(Today()).permissions(), rights);
    EXPECT_THAT(Content(Today()), EndsWith("x\n"));
}

TEST_F(CommonLog, MissingDirectoryIsToldOnce) {
    EXPECT_THAT(Refusal(directory.string() + "/missing/"), HasSubstr("No such file or directory"));
}

TEST_F(CommonLog, PathOfFiveThousandCharactersIsToldOnce) {
    EXPECT_THAT(Refusal(std::string(5'000, 'p')), HasSubstr("File name too long"));
}

TEST_F(CommonLog, SymbolicLinkIsRefusedAndItsTargetUntouched) {
    const fs::path target = directory / "target";
    std::ofstream(target) << "precious";
    fs::create_symlink(target, Today());
    EXPECT_THAT(Refusal(directory), HasSubstr("cannot be opened"));
    EXPECT_EQ(Content(target), "precious");
}

TEST_F(CommonLog, HardLinkIsRefusedAndItsTargetUntouched) {
    const fs::path target = directory / "target";
    std::ofstream(target) << "precious";
    fs::create_hard_link(target, Today());
    EXPECT_THAT(Refusal(directory), HasSubstr("cannot be opened"));
    EXPECT_EQ(Content(target), "precious");
}

TEST_F(CommonLog, FifoIsRefusedWithoutWaiting) {
    ASSERT_EQ(mkfifo(Today().c_str(), 0600), 0);
    EXPECT_THAT(Refusal(directory), HasSubstr("cannot be opened"));
}

TEST_F(CommonLog, DirectoryInPlaceOfTheFileIsRefused) {
    fs::create_directory(Today());
    EXPECT_THAT(Refusal(directory), HasSubstr("Is a directory"));
}

// Rather than a device, which a library that is broken on purpose could take away.
TEST_F(CommonLog, FifoThatSomebodyReadsIsRefused) {
    ASSERT_EQ(mkfifo(Today().c_str(), 0600), 0);
    const int reader = open(Today().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    errno = 0;
    EXPECT_EQ(log_file::OpenAppend(Today(), false), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(fs::is_fifo(Today()));
    close(reader);
}

TEST_F(CommonLog, GoodPathAfterABadOneIsUsed) {
    Refusal(directory.string() + "/missing/");
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "back");
    EXPECT_THAT(Content(Today()), EndsWith("back\n"));
}

TEST_F(CommonLog, FullFileKeepsWholeLinesIsToldOnceAndResumes) {
    Log().SetLogPath(directory.c_str());
    for (int i = 0; i < 100; ++i) Log().WriteLog(LOG_INFO, "a line that fits, number %02d", i);
    const std::string whole = Content(Today());
    const uint64_t before = Log().DroppedLines();
    testing::internal::CaptureStderr();
    {
        const FileSizeLimit limit(whole.size() + 10);
        Log().WriteLog(LOG_INFO, "a line that does not fit");
        Log().WriteLog(LOG_INFO, "another");
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_THAT(said, HasSubstr("cannot be written"));
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
    EXPECT_EQ(Log().DroppedLines() - before, 2U);
    EXPECT_EQ(Content(Today()), whole);
    Log().WriteLog(LOG_INFO, "resumed");
    EXPECT_THAT(Content(Today()), MatchesRegex("(.|\n)*number 99\n2026[^\n]*resumed\n"));
}

TEST_F(CommonLog, FullDeviceFailsTheWrite) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    EXPECT_EQ(WriteWhole(full, "abc", 3), 0U);
    close(full);
}

TEST_F(CommonLog, DeletedFileGoesOnTakingLines) {
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "x");
    fs::remove(Today());
    const uint64_t before = Log().DroppedLines();
    Log().WriteLog(LOG_INFO, "y");
    EXPECT_EQ(Log().DroppedLines(), before);
}

TEST_F(CommonLog, FileNeverTakesAStandardDescriptor) {
    for (const std::vector<int>& closed : {std::vector<int>{0}, {1}, {2}, {0, 1, 2}}) {
        std::vector<int> kept;
        for (const int standard : closed) kept.push_back(fcntl(standard, F_DUPFD_CLOEXEC, 10));
        for (const int standard : closed) close(standard);
        const int file = log_file::OpenAppend(Today(), false);
        const bool isClosed = fcntl(closed[0], F_GETFD) == -1;
        for (std::size_t i = 0; i < closed.size(); ++i) {
            if (kept[i] >= 0) dup2(kept[i], closed[i]);
            close(kept[i]);
        }
        EXPECT_GT(file, STDERR_FILENO);
        EXPECT_TRUE(isClosed);
        close(file);
    }
}

TEST_F(CommonLog, FileIsNotInheritedAcrossExec) {
    const int file = log_file::OpenAppend(Today(), false);
    EXPECT_EQ(fcntl(file, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    close(file);
}

// In a process of its own, whose first free descriptor is 3.
TEST_F(CommonLog, FileOfTheLowestDescriptorIsClosedAsAnyOther) {
    const auto body = [this] {
        close_range(STDERR_FILENO + 1, ~0U, 0);
        Log().SetLogPath(directory.c_str());
        Log().WriteLog(LOG_INFO, "x");
        const bool wasOpen = fcntl(3, F_GETFD) != -1;
        Log().SetLogPath("");
        Log().WriteLog(LOG_INFO, "behind it");
        _exit(wasOpen && fcntl(3, F_GETFD) == -1 ? 0 : 1);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "behind it");
}

TEST_F(CommonLog, NewPathLeavesNoDescriptorBehind) {
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    Log().SetLogPath(directory.c_str());
    Log().WriteLog(LOG_INFO, "x");
    const auto before = descriptors();
    for (int day = 0; day < 5; ++day) {
        clock.Advance(SECONDS_PER_DAY * NANOSECONDS_PER_SECOND);
        Log().SetLogPath((directory / std::to_string(day)).c_str());
        Log().WriteLog(LOG_INFO, "x");
    }
    EXPECT_EQ(descriptors(), before);
}

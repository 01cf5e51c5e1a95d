// Whole lines of the log's files: times and days, capacities, what is kept of a text, where lines go.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "public/log/LogFile.h"
#include "public/log/LogLine.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

constexpr int64_t SECOND = 1'000'000'000;
constexpr const char* HEAD = "2026-04-30 09:30:00.123456 [INFO] ";

CCommonLog& Log() { return CCommonLog::GetInstance(); }

std::string Content(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class LogLine : public testing::Test {
protected:
    LogLine() {
        UseZone("UTC");
        clock.step = 0;
        clock.wall = 1'777'541'400 * SECOND + 123'456'789;  // 2026-04-30 09:30:00.123456789
        Log().SetLogPath(directory.Path().c_str());
    }
    ~LogLine() override {
        Log().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
        Log().SetLogPath("");
        Log().WriteLog(LOG_DEBUG, "end of test");
    }

    static void UseZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    fs::path FileOf(const std::string& day) const { return directory.Path() / ("vexa_shfe_md_" + day + ".log"); }
    std::string Today() const { return Content(FileOf("20260430")); }

    /// What `body` says on standard error.
    template <typename Body>
    static std::string Said(const Body& body) {
        testing::internal::CaptureStderr();
        body();
        return testing::internal::GetCapturedStderr();
    }
    static std::ptrdiff_t Descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

    TemporaryDirectory directory;
    ManualClock clock;
};

struct Moment {
    int64_t seconds;
    const char* zone;
    const char* day;
    const char* time;
};

class LogMoment : public LogLine, public testing::WithParamInterface<Moment> {};

TEST_P(LogMoment, IsInTheNameAndInFront) {
    const auto& [seconds, zone, day, time] = GetParam();
    UseZone(zone);
    clock.wall = seconds * SECOND + 7'654'321;
    Log().WriteLog(LOG_INFO, "x");
    EXPECT_EQ(Content(FileOf(day)), std::string(time) + ".007654 [INFO] x\n");
}

INSTANTIATE_TEST_SUITE_P(Of, LogMoment,
                         testing::Values(Moment{951'827'696, "UTC", "20000229", "2000-02-29 12:34:56"},
                                         Moment{951'868'800, "UTC", "20000301", "2000-03-01 00:00:00"},
                                         Moment{1'798'761'599, "UTC", "20261231", "2026-12-31 23:59:59"},
                                         Moment{1'798'761'600, "UTC", "20270101", "2027-01-01 00:00:00"},
                                         Moment{1'835'395'200, "UTC", "20280229", "2028-02-29 00:00:00"},
                                         Moment{4'107'542'399, "UTC", "21000228", "2100-02-28 23:59:59"},
                                         Moment{4'107'542'400, "UTC", "21000301", "2100-03-01 00:00:00"},
                                         Moment{9'214'646'399, "UTC", "22611231", "2261-12-31 23:59:59"},
                                         Moment{0, "UTC", "19700101", "1970-01-01 00:00:00"},
                                         Moment{-1, "UTC", "19691231", "1969-12-31 23:59:59"},
                                         Moment{14'399, "EST5", "19691231", "1969-12-31 22:59:59"},
                                         Moment{1'777'541'400, "CST-8", "20260430", "2026-04-30 17:30:00"},
                                         Moment{1'777'541'400, "NST3:30", "20260430", "2026-04-30 06:00:00"},
                                         Moment{1'777'507'199, "UTC", "20260429", "2026-04-29 23:59:59"},
                                         Moment{1'777'565'160, "CST-8", "20260501", "2026-05-01 00:06:00"}));

TEST_F(LogLine, ZoneIsLookedUpAgainWithEveryQuarterOfAnHour) {
    Log().WriteLog(LOG_INFO, "first");
    UseZone("CST-8");
    clock.Advance(899 * SECOND);
    Log().WriteLog(LOG_INFO, "the quarter's last");
    clock.Advance(1 * SECOND);
    Log().WriteLog(LOG_INFO, "next");
    UseZone("UTC");
    clock.wall -= 1 * SECOND;
    Log().WriteLog(LOG_INFO, "set back");
    EXPECT_EQ(Today(),
              "2026-04-30 09:30:00.123456 [INFO] first\n"
              "2026-04-30 09:44:59.123456 [INFO] the quarter's last\n"
              "2026-04-30 17:45:00.123456 [INFO] next\n"
              "2026-04-30 09:44:59.123456 [INFO] set back\n");
}

TEST_F(LogLine, ClockThatIsSetBackADayWritesToThatDaysFile) {
    Log().WriteLog(LOG_INFO, "today");
    clock.wall -= 86'400 * SECOND;
    Log().WriteLog(LOG_INFO, "yesterday");
    EXPECT_EQ(Today(), std::string(HEAD) + "today\n");
    EXPECT_EQ(Content(FileOf("20260429")), "2026-04-29 09:30:00.123456 [INFO] yesterday\n");
}

TEST_F(LogLine, HoldsATextOf4607Characters) {
    for (const std::size_t length : std::initializer_list<std::size_t>{4606, 4607, 4608, 9000}) {
        fs::remove(FileOf("20260430"));
        Log().SetLogPath(directory.Path().c_str());
        Log().WriteLog(LOG_INFO, "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(Today(), HEAD + std::string(std::min<std::size_t>(length, 4607), 'x') + "\n") << length;
    }
}

TEST_F(LogLine, HoldsAFinishedTextOf4608Characters) {
    const std::string text(9000, 'y');
    for (const std::size_t length : std::initializer_list<std::size_t>{4607, 4608, 4609, 9000}) {
        fs::remove(FileOf("20260430"));
        Log().SetLogPath(directory.Path().c_str());
        Log().WriteLog(LOG_INFO, "opens the file");
        Log().WriteText(LOG_WARNING, text.data(), length);
        EXPECT_EQ(Today(), std::string(HEAD) + "opens the file\n2026-04-30 09:30:00.123456 [WARNING] " +
                               text.substr(0, std::min<std::size_t>(length, 4608)) + "\n")
            << length;
    }
}

TEST_F(LogLine, KeepsEveryByteThatNeitherEndsItNorDrivesATerminal) {
    Log().WriteLog(LOG_INFO, "%s", "\x01\x1f\x20~\x7f\x80\xff");
    EXPECT_EQ(Today(), std::string(HEAD) + "?? ~?\x80\xff\n");
}

TEST_F(LogLine, ThatCannotBeFormattedIsCountedAsDropped) {
    Log().WriteLog(LOG_INFO, "first");
    const uint64_t before = Log().DroppedLines();
    const wchar_t noCharacter[] = {static_cast<wchar_t>(0xD800), 0};
    Log().WriteLog(LOG_INFO, "%ls", noCharacter);
    EXPECT_EQ(Log().DroppedLines() - before, 1U);
    EXPECT_EQ(Today(), std::string(HEAD) + "first\n");
}

TEST_F(LogLine, OfNoTextAndOfOneCharacterIsALine) {
    Log().WriteLog(LOG_INFO, "%s", "");
    Log().WriteLog(LOG_INFO, "%s", "x");
    EXPECT_EQ(Today(), std::string(HEAD) + "\n" + HEAD + "x\n");
}

TEST_F(LogLine, GoesToTheSameFileForTheWholeDay) {
    Log().WriteLog(LOG_INFO, "first");
    fs::remove(FileOf("20260430"));
    clock.Advance(900 * SECOND);
    Log().WriteLog(LOG_INFO, "a quarter of an hour later");
    EXPECT_TRUE(fs::is_empty(directory.Path()));
}

TEST_F(LogLine, FinishedTextOfALevelThatIsSwitchedOffIsLeftOut) {
    Log().WriteLog(LOG_INFO, "first");
    Log().SetLogLevel(LOG_ALL & ~LOG_WARNING);
    Log().WriteText(LOG_WARNING, "unseen", 6);
    Log().WriteText(LOG_ERROR, "seen", 4);
    EXPECT_EQ(Today(), std::string(HEAD) + "first\n2026-04-30 09:30:00.123456 [ERROR] seen\n");
}

TEST_F(LogLine, OfASinkLooksAtTheClockOnlyWhereTheLimitAsks) {
    clock.step = 1;
    const int64_t before = clock.wall;
    const LogCapture capture;
    VEXA_LOG(LOG_INFO, "information");
    EXPECT_EQ(clock.wall, before);
    VEXA_LOG(LOG_WARNING, "a warning");
    EXPECT_EQ(clock.wall, before + 1);
}

TEST_F(LogLine, GoesToStandardErrorAgainWithTheEmptyPath) {
    Log().WriteLog(LOG_INFO, "file");
    const auto open = Descriptors();
    EXPECT_EQ(Said([] {
                  Log().SetLogPath("");
                  Log().WriteLog(LOG_INFO, "terminal");
              }),
              std::string(HEAD) + "terminal\n");
    EXPECT_EQ(Descriptors(), open - 1);
    EXPECT_EQ(Said([this] {
                  Log().SetLogPath(directory.Path().c_str());
                  Log().WriteLog(LOG_INFO, "file again");
                  EXPECT_EQ(write(STDERR_FILENO, "x", 1), 1);
              }),
              "x");
    EXPECT_EQ(Today(), std::string(HEAD) + "file\n" + HEAD + "file again\n");
    EXPECT_EQ(Descriptors(), open);
}

TEST_F(LogLine, OfAPathThatCannotBeUsedIsToldOnceForEachPath) {
    Log().WriteLog(LOG_INFO, "file");
    const auto open = Descriptors();
    const uint64_t before = Log().DroppedLines();
    for (const char* name : {"missing", "gone"}) {
        const std::string place = directory.Path().string() + "/" + name + "/";
        EXPECT_EQ(Said([&] {
                      Log().SetLogPath(place.c_str());
                      Log().WriteLog(LOG_INFO, "first");
                      Log().WriteLog(LOG_INFO, "second");
                  }),
                  "vexa_shfe_md: the log file " + place +
                      "vexa_shfe_md_20260430.log cannot be opened (No such file or directory); the session goes on "
                      "without it\n");
        EXPECT_EQ(Descriptors(), open - 1);
    }
    EXPECT_EQ(Log().DroppedLines() - before, 4U);
    EXPECT_EQ(Today(), std::string(HEAD) + "file\n");
}

TEST_F(LogLine, OfAPathTooLongIsToldWithTheFirst512Characters) {
    EXPECT_EQ(Said([] {
                  Log().SetLogPath(std::string(700, 'p').c_str());
                  Log().WriteLog(LOG_INFO, "x");
              }),
              "vexa_shfe_md: the log file " + std::string(512, 'p') +
                  " cannot be opened (File name too long); the session goes on without it\n");
}

TEST_F(LogLine, OfTheNextDaysFileHasTheDescriptorOfTheFileBeforeAndNoExecutedProgramHasIt) {
    const auto descriptorOf = [](const fs::path& file) {
        char path[512] = {};
        int found = -1;
        for (int descriptor = 0; descriptor < 64; ++descriptor) {
            std::memset(path, 0, sizeof path);
            const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
            if (readlink(link.c_str(), path, sizeof path - 1) > 0 && file == path) found = descriptor;
        }
        return found;
    };
    Log().WriteLog(LOG_INFO, "today");
    const int before = descriptorOf(FileOf("20260430"));
    clock.Advance(86'400 * SECOND);
    Log().WriteLog(LOG_INFO, "tomorrow");
    EXPECT_GT(before, STDERR_FILENO);
    EXPECT_EQ(descriptorOf(FileOf("20260501")), before);
    EXPECT_EQ(descriptorOf(FileOf("20260430")), -1);
    EXPECT_EQ(fcntl(before, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(LogLine, FilesAreToldApartAndADescriptorOfNoneFromNothing) {
    const int one = log_file::OpenAppend(FileOf("one"), false);
    const int same = log_file::OpenAppend(FileOf("one"), false);
    const int other = log_file::OpenAppend(FileOf("other"), true);
    const int elsewhere = open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
    EXPECT_FALSE(log_file::AreDifferent(one, same));
    EXPECT_TRUE(log_file::AreDifferent(one, other));
    EXPECT_TRUE(log_file::AreDifferent(other, elsewhere));
    EXPECT_FALSE(log_file::AreDifferent(one, -1));
    EXPECT_FALSE(log_file::AreDifferent(-1, one));
    for (const int file : {one, same, other, elsewhere}) close(file);
}

TEST_F(LogLine, FileNamesAreJoinedToThePathAsItIsMeant) {
    const std::string place = directory.Path().string();
    EXPECT_EQ(log_file::Place("", "name.log"), "name.log");
    EXPECT_EQ(log_file::Place("missing/", "name.log"), "missing/name.log");
    EXPECT_EQ(log_file::Place("desk7_", "name.log"), "desk7_name.log");
    EXPECT_EQ(log_file::Place(place, "name.log"), place + "/name.log");
    EXPECT_EQ(log_file::Place(place + "/", "name.log"), place + "/name.log");
    std::ofstream(place + "/plain") << "x";
    EXPECT_EQ(log_file::Place(place + "/plain", "name.log"), place + "/plainname.log");
}

TEST(LogBaseName, IsWhatFollowsTheLastSlash) {
    EXPECT_STREQ(LogBaseName("/a/b/Gap.cpp"), "Gap.cpp");
    EXPECT_STREQ(LogBaseName("Gap.cpp"), "Gap.cpp");
    EXPECT_STREQ(LogBaseName("/Gap.cpp"), "Gap.cpp");
}

}  // namespace

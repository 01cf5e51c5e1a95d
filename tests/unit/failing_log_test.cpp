// The log under calls that fail.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "public/log/LogLine.h"
#include "tests/support/FailingMemory.h"
#include "tests/unit/FailingServices.h"

using testing::ElementsAre;

namespace {

constexpr int64_t SECOND = 1'000'000'000;

std::ptrdiff_t Descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

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

    static void WriteCut(const std::string& text);

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

/// Leaves the beginning of a line at the file's end.
void FailingLog::WriteCut(const std::string& text) {
    FailingCalls::Forget();
    FailingCalls::FailAt(ECall::Write, 1, FailingCalls::PART);
    FailingCalls::FailAt(ECall::Write, 2, ENOSPC);
    FailingCalls::FailAt(ECall::Ftruncate, 1, EPERM);
    Write(text);
    EXPECT_EQ(FailingCalls::Happened(), 3U);
    FailingCalls::Forget();
}

TEST_F(FailingLog, FirstLineOfAnotherFileIsItsFirst) {
    Write("first");
    WriteCut("second");
    clock.Advance(86'400 * SECOND);
    Write("next day");
    EXPECT_EQ(Content(directory.Path() / "vexa_shfe_md_20260430.log"), "2026-04-30 22:00:00.003000 [INFO] next day\n");
    WriteCut("third");
    UsePath(directory.Path().string() + "/other_");
    Write("elsewhere");
    EXPECT_EQ(Content(directory.Path() / "other_vexa_shfe_md_20260430.log"),
              "2026-04-30 22:00:00.005000 [INFO] elsewhere\n");
    WriteCut("fourth");
    UsePath("");
    EXPECT_EQ(Write("terminal"), "2026-04-30 22:00:00.007000 [INFO] terminal\n");
}

TEST_F(FailingLog, FileThatIsOpenedAgainBehindACutLineGoesOnWithALineOfItsOwn) {
    Write("first");
    WriteCut("second");
    UsePath(directory.Path().string());
    Write("third");
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first", "cut: 2026-04-29 22:00:00.", "[INFO] third"));
    WriteCut("fourth");
    UsePath(directory.Path().string() + "/missing/");
    Write("fifth");
    UsePath(directory.Path().string());
    Write("sixth");
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first", "cut: 2026-04-29 22:00:00.", "[INFO] third",
                                               "cut: 2026-04-29 22:00:00.", "[INFO] sixth"));
}

TEST_F(FailingLog, LineOfWhichNothingStandsNeedsNothingTakenBack) {
    Write("first");
    FailingCalls::FailAt(ECall::Write, 2, ENOSPC);
    FailingCalls::FailAt(ECall::Lseek, 1, EIO);
    Write("second");
    Write("third");
    EXPECT_EQ(MadeCalls(ECall::Lseek) + MadeCalls(ECall::Ftruncate), 0);
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first", "[INFO] third"));
}

TEST_F(FailingLog, NothingIsTakenBackFromStandardError) {
    UsePath("");
    FailingCalls::FailAt(ECall::Write, 1, FailingCalls::PART);
    FailingCalls::FailAt(ECall::Write, 2, EIO);
    const std::string said = Write("first");
    EXPECT_EQ(said.substr(0, 20), "2026-04-29 22:00:00.");
    EXPECT_THAT(said, testing::EndsWith("the log file  cannot be written (Input/output error); the session goes on "
                                        "without it\n"));
    EXPECT_EQ(MadeCalls(ECall::Lseek) + MadeCalls(ECall::Ftruncate), 0);
    EXPECT_EQ(Write("second"), "2026-04-29 22:00:00.002000 [INFO] second\n");
}

TEST_F(FailingLog, FinishedTextThatCannotBeWrittenIsCountedAndNotTold) {
    Write("first");
    const uint64_t before = CCommonLog::GetInstance().DroppedLines();
    FailingCalls::FailFrom(ECall::Write, 2, ENOSPC);
    testing::internal::CaptureStderr();
    {
        const FailingCalls::Watch watch;
        CCommonLog::GetInstance().WriteText(LOG_ERROR, "second", 6);
        CCommonLog::GetInstance().WriteText(LOG_ERROR, "third", 5);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(MadeCalls(ECall::Write), 3);
    EXPECT_EQ(CCommonLog::GetInstance().DroppedLines() - before, 2U);
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first"));
}

TEST_F(FailingLog, LineIsCompletedWhereTheSystemTakesItByParts) {
    Write("first");
    for (const uint64_t number : {2U, 3U, 4U}) FailingCalls::FailAt(ECall::Write, number, FailingCalls::PART);
    EXPECT_EQ(Write("second, in four parts"), "");
    EXPECT_EQ(MadeCalls(ECall::Write), 5);
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first", "[INFO] second, in four parts"));
}

TEST_F(FailingLog, WriteThatTakesNothingIsAFailure) {
    Write("first");
    const uint64_t before = CCommonLog::GetInstance().DroppedLines();
    FailingCalls::FailAt(ECall::Write, 2, EINTR);
    FailingCalls::FailAt(ECall::Write, 3, FailingCalls::NOTHING);
    Write("second");
    EXPECT_EQ(CCommonLog::GetInstance().DroppedLines() - before, 1U);
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first"));
}

TEST_F(FailingLog, WriteThatIsInterruptedSixteenTimesIsGivenUp) {
    Write("first");
    FailingCalls::Forget();
    for (uint64_t number = 1; number <= 15; ++number) FailingCalls::FailAt(ECall::Write, number, EINTR);
    EXPECT_EQ(Write("second"), "");
    EXPECT_EQ(MadeCalls(ECall::Write), 16);
    FailingCalls::FailAt(ECall::Write, 17, FailingCalls::PART);
    for (uint64_t number = 18; number <= 33; ++number) FailingCalls::FailAt(ECall::Write, number, EINTR);
    EXPECT_EQ(Write("third"), NoLog(" cannot be written (Interrupted system call)"));
    EXPECT_EQ(MadeCalls(ECall::Write), 16 + 17 + 1);
    EXPECT_THAT(Texts(OnlyFile()), ElementsAre("[INFO] first", "[INFO] second"));
}

TEST_F(FailingLog, WithoutMemoryForTheFilesNameIsTold) {
    UsePath(directory.Path().string() + "/" + std::string(200, 'p'));
    const uint64_t before = CCommonLog::GetInstance().DroppedLines();
    testing::internal::CaptureStderr();
    {
        const FailingMemory memory(200);
        CCommonLog::GetInstance().WriteLog(LOG_INFO, "first");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              NoLog(std::string(200, 'p') + " cannot be opened (Cannot allocate memory)"));
    EXPECT_EQ(CCommonLog::GetInstance().DroppedLines() - before, 1U);
}

TEST_F(FailingLog, FileThatDoesNotOpenIsNotWrittenTo) {
    FailingCalls::FailAt(ECall::Open, 1, EACCES);
    EXPECT_EQ(Write("first"), NoLog("vexa_shfe_md_20260429.log cannot be opened (Permission denied)"));
    EXPECT_EQ(Write("second"), "");
    EXPECT_EQ(MadeCalls(ECall::Write), 1) << "to standard error";
}

TEST_F(FailingLog, FileThatIsNotOursIsLeftAndNoDescriptorOfItStaysOpen) {
    const auto open = Descriptors();
    FailingCalls::FailAt(ECall::Fstat, 1, EIO);
    EXPECT_EQ(Write("a line"), NoLog("vexa_shfe_md_20260429.log cannot be opened (Input/output error)"));
    EXPECT_EQ(Descriptors(), open);
    EXPECT_EQ(Content(OnlyFile()), "");
}

TEST_F(FailingLog, DescriptorOfTheFileBeforeIsGivenBackWhereItCannotBeTakenOver) {
    Write("first");
    const auto open = Descriptors();
    for (int day = 0; day < 3; ++day) {
        FailingCalls::Forget();
        FailingCalls::FailAt(ECall::Dup3, 1, EBUSY);
        clock.Advance(86'400 * SECOND);
        EXPECT_EQ(Write("next"), "");
        EXPECT_EQ(FailingCalls::Happened(), 1U);
    }
    EXPECT_EQ(Descriptors(), open);
    EXPECT_THAT(Texts(directory.Path() / "vexa_shfe_md_20260502.log"), ElementsAre("[INFO] next"));
}

}  // namespace

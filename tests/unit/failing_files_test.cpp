// The library's files under calls that fail: the captures, and a file that takes another one's place.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "public/file/Descriptor.h"
#include "public/file/ReplacedFile.h"
#include "public/file/WriteWhole.h"
#include "public/write_shot/write_shot.h"
#include "testing/LogCapture.h"
#include "tests/unit/FailingServices.h"

using testing::ElementsAre;
using testing::SizeIs;

namespace {

std::ptrdiff_t Descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

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

TEST_F(FailingCapture, RecordOfWhichNothingStandsNeedsNothingTakenBack) {
    Write("first");
    FailingCalls::FailAt(ECall::Write, 3, ENOSPC);
    FailingCalls::FailAt(ECall::Lseek, 1, EIO);
    Write("second");
    Write("third");
    EXPECT_THAT(Messages(), ElementsAre("first", "third"));
    EXPECT_EQ(shot.GetBinShotCnt(), 2U);
}

TEST_F(FailingCapture, EveryFileTellsItsOwnFailure) {
    for (int file = 0; file < 2; ++file) {
        ASSERT_EQ(shot.CreateShotBinLog((directory.Path().string() + "/").c_str(), 3), 0);
        FailingCalls::Forget();
        FailingCalls::FailFrom(ECall::Write, 1, ENOSPC);
        Write("first");
        Write("second");
    }
    const std::string told =
        "a capture record cannot be written (No space left on device); records are counted as "
        "dropped";
    EXPECT_THAT(log.Texts(), ElementsAre(told, told));
    EXPECT_EQ(shot.GetDroppedCnt() - before, 4U);
}

TEST_F(FailingCapture, FileWhoseHeadIsCutIsTakenAwayAndNoneIsOpen) {
    const auto open = Descriptors();
    FailingCalls::FailAt(ECall::Write, 1, FailingCalls::PART);
    FailingCalls::FailAt(ECall::Write, 2, ENOSPC);
    {
        const FailingCalls::Watch watch;
        EXPECT_EQ(shot.CreateShotBinLog((directory.Path().string() + "/").c_str(), 3), -1);
    }
    EXPECT_EQ(Descriptors(), open - 1);
    EXPECT_EQ(OnlyFile().extension(), ".bin");  // the one before
    Write("first");
    EXPECT_EQ(shot.GetBinShotCnt(), 0U);
    EXPECT_EQ(shot.GetDroppedCnt() - before, 1U);
}

TEST_F(FailingCapture, NewFileThatCannotBeLookedAtIsTakenAwayAgain) {
    FailingCalls::FailAt(ECall::Fstat, 1, EIO);
    {
        const FailingCalls::Watch watch;
        EXPECT_EQ(shot.CreateShotPcapLog((directory.Path().string() + "/").c_str(), 3), -1);
    }
    EXPECT_EQ(OnlyFile().extension(), ".bin");
    EXPECT_THAT(log.Texts(),
                ElementsAre("the capture file " + directory.Path().string() + "/vexa_shfe_md_chan3_20260429_220000_" +
                            std::to_string(getpid()) + ".pcap cannot be created (Input/output error); check log_path"));
}

// ---- the file in another one's place --------------------------------------------------------------------------------

class FailingReplacement : public FailingServices {
protected:
    bool Replace(const std::string& text, std::size_t atOnce = 1'000'000) {
        const FailingCalls::Watch watch;
        CReplacedFile file(path);
        wasOpen = file.IsOpen();
        for (std::size_t at = 0; at < text.size() && file.IsOpen(); at += atOnce) file.Add(text.substr(at, atOnce));
        return file.IsOpen() && file.PutInPlace();
    }
    /// Names tried beside the place.
    std::set<std::string> Tried() const {
        std::set<std::string> names;
        for (const MadeCall& made : FailingCalls::Made()) {
            if (made.call == ECall::Open) names.insert(made.path.substr(path.size()));
        }
        return names;
    }
    bool IsAlone() const { return OnlyFile() == path; }

    const std::string path = directory.Path().string() + "/index";
    bool wasOpen = false;
};

std::string Numbered(std::size_t size) {
    std::string text;
    for (std::size_t number = 0; text.size() < size; ++number) text += std::to_string(number) + "\n";
    return text.substr(0, size);
}

TEST_F(FailingReplacement, HoldsTheTextWhateverItsSizeAndItsPieces) {
    for (const std::size_t size : std::initializer_list<std::size_t>{0, 1, 16'383, 16'384, 16'385, 32'768, 50'000}) {
        for (const std::size_t atOnce : std::initializer_list<std::size_t>{7, 16'383, 16'384, 16'385, 60'000}) {
            const std::string text = Numbered(size);
            EXPECT_TRUE(Replace(text, atOnce));
            EXPECT_EQ(Content(path), text) << size << " in pieces of " << atOnce;
            EXPECT_TRUE(IsAlone());
        }
    }
}

TEST_F(FailingReplacement, IsWrittenBySixteenKilobytes) {
    EXPECT_TRUE(Replace(Numbered(16'384)));
    EXPECT_EQ(MadeCalls(ECall::Write), 1);
    EXPECT_TRUE(Replace(Numbered(16'385)));
    EXPECT_EQ(MadeCalls(ECall::Write), 1 + 2);
    EXPECT_EQ(MadeCalls(ECall::Unlink), 0) << "what is in place has no name beside any more";
}

TEST_F(FailingReplacement, NameThatIsTakenIsFollowedByAnother) {
    FailingCalls::FailAt(ECall::Open, 1, EEXIST);
    FailingCalls::FailAt(ECall::Open, 2, EEXIST);
    EXPECT_TRUE(Replace("text"));
    EXPECT_THAT(Tried(), SizeIs(3));
    EXPECT_THAT(Tried(), testing::Each(testing::MatchesRegex("\\.[a-z][a-z][a-z][a-z][a-z][a-z]")));
    EXPECT_EQ(Content(path), "text");
    EXPECT_TRUE(IsAlone());
}

TEST_F(FailingReplacement, AHundredNamesAreTried) {
    FailingCalls::FailFrom(ECall::Open, 1, EEXIST);
    EXPECT_FALSE(Replace("text"));
    EXPECT_FALSE(wasOpen);
    EXPECT_EQ(MadeCalls(ECall::Open), 100);
    EXPECT_GT(Tried().size(), 90U);
    std::set<char> letters;
    for (const std::string& name : Tried()) letters.insert(name.begin() + 1, name.end());
    EXPECT_EQ(std::string(letters.begin(), letters.end()), "abcdefghijklmnopqrstuvwxyz");
    EXPECT_TRUE(fs::is_empty(directory.Path()));
}

TEST_F(FailingReplacement, OtherFailureOfTheOpeningIsFinal) {
    FailingCalls::FailAt(ECall::Open, 1, EACCES);
    EXPECT_FALSE(Replace("text"));
    EXPECT_EQ(MadeCalls(ECall::Open), 1);
    EXPECT_TRUE(fs::is_empty(directory.Path()));
}

// As in a process that closed its standard input.
TEST_F(FailingReplacement, DescriptorZeroIsOneAsAnyOther) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    FailingCalls::FailAt(ECall::Open, 1, EEXIST);
    EXPECT_TRUE(Replace("text"));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "closed";
    CDescriptor zero(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(zero.IsOpen());
    EXPECT_EQ(zero.Get(), STDIN_FILENO);
    EXPECT_EQ(zero.Release(), STDIN_FILENO);
    EXPECT_FALSE(zero.IsOpen());
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(MadeCalls(ECall::Open), 2);
    EXPECT_EQ(Content(path), "text");
    EXPECT_TRUE(IsAlone());
}

TEST_F(FailingReplacement, IsNotInheritedAcrossExec) {
    const CReplacedFile replaced(path);
    int found = 0;
    for (int file = 0; file < 64; ++file) {
        char name[512] = {};
        if (readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), name, sizeof name - 1) < 0) continue;
        if (!std::string(name).starts_with(path)) continue;
        ++found;
        EXPECT_EQ(fcntl(file, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_EQ(found, 1);
}

TEST_F(FailingReplacement, WithoutNoiseHasANameAllTheSame) {
    FailingCalls::FailAt(ECall::Getrandom, 1, EAGAIN);
    EXPECT_TRUE(Replace("text"));
    EXPECT_THAT(Tried(), ElementsAre(".aaaaaa"));
    EXPECT_EQ(Content(path), "text");
}

TEST_F(FailingReplacement, PlaceThatCannotBeLookedAtIsNotTaken) {
    for (const uint64_t look : {1U, 2U}) {  // at the beginning, and before the file is put in place
        FailingCalls::Forget();
        std::ofstream(path) << "old";
        FailingCalls::FailAt(ECall::Lstat, look, EACCES);
        EXPECT_FALSE(Replace("text"));
        EXPECT_EQ(MadeCalls(ECall::Open), static_cast<std::ptrdiff_t>(look) - 1);
        EXPECT_EQ(wasOpen, look == 2);
        EXPECT_EQ(Content(path), "old");
        EXPECT_TRUE(IsAlone());
    }
}

TEST_F(FailingReplacement, FailureOfAnyPartLeavesTheOldOneAlone) {
    const auto open = Descriptors();
    for (const uint64_t number : {1U, 2U, 3U}) {
        FailingCalls::Forget();
        std::ofstream(path) << "old";
        FailingCalls::FailAt(ECall::Write, number, ENOSPC);
        EXPECT_FALSE(Replace(Numbered(40'000)));
        EXPECT_EQ(MadeCalls(ECall::Write), static_cast<std::ptrdiff_t>(number)) << "nothing is written behind a gap";
        EXPECT_EQ(Content(path), "old");
        EXPECT_TRUE(IsAlone());
    }
    for (const ECall call : {ECall::Close, ECall::Rename}) {
        FailingCalls::Forget();
        FailingCalls::FailAt(call, 1, EIO);
        EXPECT_FALSE(Replace("text"));
        EXPECT_EQ(FailingCalls::Happened(), 1U);
        EXPECT_EQ(Content(path), "old");
        EXPECT_TRUE(IsAlone());
    }
    EXPECT_EQ(Descriptors(), open);
}

TEST_F(FailingReplacement, ThatIsGivenUpLeavesNothing) {
    const auto open = Descriptors();
    {
        CReplacedFile file(path);
        file.Add("text");
        EXPECT_FALSE(fs::is_empty(directory.Path()));
    }
    EXPECT_TRUE(fs::is_empty(directory.Path()));
    EXPECT_EQ(Descriptors(), open);
}

// ---- what was written in part
// -----------------------------------------------------------------------------------------

TEST_F(FailingServices, PartIsTakenBackToTheByte) {
    const TemporaryFile file("0123456789");
    const int descriptor = open(file.Path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    EXPECT_TRUE(TakeBack(descriptor, 0));
    EXPECT_EQ(Content(file.Path()), "0123456789");
    EXPECT_TRUE(TakeBack(descriptor, 3));
    EXPECT_EQ(Content(file.Path()), "0123456");
    EXPECT_FALSE(TakeBack(descriptor, 8)) << "more than there is";
    EXPECT_EQ(Content(file.Path()), "0123456");
    EXPECT_TRUE(TakeBack(descriptor, 7));
    EXPECT_EQ(Content(file.Path()), "");
    close(descriptor);
    EXPECT_FALSE(TakeBack(-1, 1));
}

}  // namespace

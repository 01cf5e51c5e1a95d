#include "public/write_shot/write_shot.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr std::size_t BIN_HEAD_BYTES = 16;
constexpr std::size_t PCAP_HEAD_BYTES = 24;
constexpr std::size_t RECORD_HEAD_BYTES = 16;
constexpr uint32_t PCAP_NANOSECONDS = 0xA1B23C4D;
constexpr uint32_t LINK_TYPE_ETHERNET = 1;

const CWriteShot& Shot() { return CWriteShot::GetInstance(); }

uint64_t Dropped() { return Shot().GetDroppedCnt(); }

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

template <typename T>
T At(const std::string& bytes, std::size_t offset) {
    T value{};
    EXPECT_LE(offset + sizeof value, bytes.size());
    if (offset + sizeof value <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

class Capture : public testing::Test {
protected:
    Capture() {
        setenv("TZ", "UTC", 1);
        tzset();
        clock.step = 0;
        clock.wall = 1'777'541'400 * NANOSECONDS_PER_SECOND + 123'456'789;  // 2026-04-30 09:30:00.123456789
    }
    ~Capture() override {
        Shot().CloseShotBinLog();
        Shot().CloseShotPcapLog();
    }

    static void Write(const std::string& message) {
        Shot().WriteShotBinLog(reinterpret_cast<const unsigned char*>(message.data()), message.size());
    }
    static void WriteFrame(const std::string& frame) {
        Shot().WriteShotPcapLog(reinterpret_cast<const unsigned char*>(frame.data()), frame.size());
    }
    std::vector<fs::path> Files() const { return {fs::directory_iterator(directory), {}}; }

    /// The content of the only file there is.
    std::string Content() const {
        EXPECT_THAT(Files(), SizeIs(1));
        std::ifstream in(Files().at(0), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    ManualClock clock;
    LogCapture log;
    const TemporaryDirectory home;
    const fs::path& directory = home.Path();
    const std::string frame = std::string(60, 'f');
};

}  // namespace

TEST_F(Capture, NameCarriesChannelDateTimeAndProcess) {
    ASSERT_EQ(Shot().CreateShotBinLog(directory.c_str(), 5), 0);
    ASSERT_THAT(Files(), SizeIs(1));
    EXPECT_EQ(Files()[0].filename(), "vexa_shfe_md_chan5_20260430_093000_" + std::to_string(getpid()) + ".bin");
}

TEST_F(Capture, LiesUnderTheLogsPrefix) {
    ASSERT_EQ(Shot().CreateShotPcapLog((directory / "desk7_").c_str(), 0), 0);
    ASSERT_THAT(Files(), SizeIs(1));
    EXPECT_THAT(Files()[0].filename().string(), StartsWith("desk7_vexa_shfe_md_chan0_"));
    EXPECT_THAT(Files()[0].filename().string(), EndsWith(".pcap"));
}

TEST_F(Capture, AHundredFilesOfTheSameSecondHaveNamesOfTheirOwn) {
    const std::string name = "vexa_shfe_md_chan11_20260430_093000_" + std::to_string(getpid());
    std::set<std::string> expected{name + ".bin"};
    for (int number = 1; number < 100; ++number) expected.insert(name + "_" + std::to_string(number) + ".bin");
    for (int number = 0; number < 100; ++number) ASSERT_EQ(Shot().CreateShotBinLog(directory.c_str(), 11), 0);
    std::set<std::string> found;
    for (const fs::path& file : Files()) found.insert(file.filename());
    EXPECT_EQ(found, expected);
    EXPECT_EQ(Shot().CreateShotBinLog(directory.c_str(), 11), -1);
    EXPECT_THAT(log.Texts(), ElementsAre("the capture file " + directory.string() + "/" + name +
                                         "_99.bin cannot be created (File exists); check log_path"));
}

TEST_F(Capture, NameIsOfTheLocalTime) {
    setenv("TZ", "CST-8", 1);
    tzset();
    clock.wall = 1'767'229'389 * NANOSECONDS_PER_SECOND;  // 2026-01-01 09:03:09 there
    ASSERT_EQ(Shot().CreateShotPcapLog(directory.c_str(), 7), 0);
    EXPECT_EQ(Files().at(0).filename(), "vexa_shfe_md_chan7_20260101_090309_" + std::to_string(getpid()) + ".pcap");
}

TEST_F(Capture, NullAndEmptyPathsAreTheWorkingDirectory) {
    const fs::path before = fs::current_path();
    fs::current_path(directory);
    EXPECT_EQ(Shot().CreateShotBinLog(nullptr, 5), 0);
    EXPECT_EQ(Shot().CreateShotBinLog("", 6), 0);
    fs::current_path(before);
    EXPECT_THAT(Files(), SizeIs(2));
}

TEST_F(Capture, FilesThatAreClosedLeaveNoDescriptorBehind) {
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    for (int i = 0; i < 3; ++i) {
        Shot().CreateShotBinLog(directory.c_str(), 0);
        Shot().CreateShotPcapLog(directory.c_str(), 0);
    }
    EXPECT_EQ(descriptors(), before + 2);
    Shot().CloseShotBinLog();
    EXPECT_EQ(descriptors(), before + 1);
    Shot().CloseShotPcapLog();
    EXPECT_EQ(descriptors(), before);
}

TEST_F(Capture, FilesAreOwnerOnly) {
    ASSERT_EQ(Shot().CreateShotBinLog(directory.c_str(), 0), 0);
    ASSERT_EQ(Shot().CreateShotPcapLog(directory.c_str(), 0), 0);
    for (const fs::path& file : Files()) {
        EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    }
}

TEST_F(Capture, BinaryFileBeginsWithMagicAndVersion) {
    Shot().CreateShotBinLog(directory.c_str(), 0);
    EXPECT_EQ(Content(), std::string("VEXASHOT\1\0\0\0\0\0\0\0", BIN_HEAD_BYTES));
}

TEST_F(Capture, BinaryRecordHasTimeLengthAndBytes) {
    Shot().CreateShotBinLog(directory.c_str(), 0);
    Write("message");
    const std::string content = Content();
    EXPECT_EQ(At<int64_t>(content, BIN_HEAD_BYTES), clock.wall);
    EXPECT_EQ(At<uint32_t>(content, BIN_HEAD_BYTES + 8), 7U);
    EXPECT_EQ(At<uint32_t>(content, BIN_HEAD_BYTES + 12), 0U);
    EXPECT_EQ(content.substr(BIN_HEAD_BYTES + RECORD_HEAD_BYTES), "message");
}

TEST_F(Capture, PcapFileIsEthernetWithNanoseconds) {
    Shot().CreateShotPcapLog(directory.c_str(), 0);
    const std::string content = Content();
    EXPECT_EQ(content.substr(4, 16), std::string("\2\0\4\0\0\0\0\0\0\0\0\0\xff\xff\0\0", 16));
    EXPECT_THAT(content, SizeIs(PCAP_HEAD_BYTES));
    EXPECT_EQ(At<uint32_t>(content, 0), PCAP_NANOSECONDS);
    EXPECT_EQ(At<uint32_t>(content, 20), LINK_TYPE_ETHERNET);
}

TEST_F(Capture, PcapRecordCarriesTheTimeOfTheBinaryRecordOfItsMessage) {
    Shot().CreateShotPcapLog(directory.c_str(), 0);
    clock.step = 1'000;
    Write("head" + frame);
    const int64_t stamp = clock.wall;
    WriteFrame(frame);
    const std::string content = Content();
    EXPECT_EQ(At<uint32_t>(content, PCAP_HEAD_BYTES), stamp / NANOSECONDS_PER_SECOND);
    EXPECT_EQ(At<uint32_t>(content, PCAP_HEAD_BYTES + 4), stamp % NANOSECONDS_PER_SECOND);
    EXPECT_EQ(At<uint32_t>(content, PCAP_HEAD_BYTES + 8), frame.size());
    EXPECT_EQ(At<uint32_t>(content, PCAP_HEAD_BYTES + 12), frame.size());
    EXPECT_EQ(content.substr(PCAP_HEAD_BYTES + RECORD_HEAD_BYTES), frame);
}

TEST_F(Capture, WhatIsTooShortForAFrameIsLeftOutOfThePcap) {
    Shot().CreateShotPcapLog(directory.c_str(), 0);
    WriteFrame(std::string(13, 'x'));
    EXPECT_THAT(Content(), SizeIs(PCAP_HEAD_BYTES));
    WriteFrame(std::string(14, 'x'));
    EXPECT_THAT(Content(), SizeIs(PCAP_HEAD_BYTES + RECORD_HEAD_BYTES + 14));
}

TEST_F(Capture, CountsTheRecordsOfTheBinaryFile) {
    Shot().CreateShotBinLog(directory.c_str(), 0);
    EXPECT_EQ(Shot().GetBinShotCnt(), 0U);
    Write("one");
    Write("two");
    EXPECT_EQ(Shot().GetBinShotCnt(), 2U);
    Shot().CreateShotBinLog(directory.c_str(), 0);
    EXPECT_EQ(Shot().GetBinShotCnt(), 0U);
    Write("three");
    EXPECT_EQ(Shot().CreateShotBinLog((directory / "missing/").c_str(), 0), -1);
    EXPECT_EQ(Shot().GetBinShotCnt(), 0U);
}

TEST_F(Capture, FramesAreNotCounted) {
    Shot().CreateShotBinLog(directory.c_str(), 0);
    Shot().CreateShotPcapLog(directory.c_str(), 0);
    WriteFrame(frame);
    EXPECT_EQ(Shot().GetBinShotCnt(), 0U);
}

TEST_F(Capture, NothingIsNoRecord) {
    Shot().CreateShotBinLog(directory.c_str(), 0);
    Shot().WriteShotBinLog(nullptr, 60);
    EXPECT_THAT(Content(), SizeIs(BIN_HEAD_BYTES));
    EXPECT_EQ(Shot().GetBinShotCnt(), 0U);
    Shot().CloseShotBinLog();
    fs::remove(Files().at(0));
    Shot().CreateShotPcapLog(directory.c_str(), 0);
    Shot().WriteShotPcapLog(nullptr, 60);
    EXPECT_THAT(Content(), SizeIs(PCAP_HEAD_BYTES));
}

TEST_F(Capture, NothingIsWrittenWithoutAFile) {
    Shot().CloseShotBinLog();
    Shot().CloseShotPcapLog();
    const uint64_t before = Dropped();
    Write("x");
    WriteFrame(frame);
    EXPECT_EQ(Dropped(), before);
}

TEST_F(Capture, PlaceThatCannotBeWrittenIsOneErrorLine) {
    EXPECT_EQ(Shot().CreateShotBinLog((directory / "missing/").c_str(), 0), -1);
    EXPECT_THAT(log.Texts(), ElementsAre("the capture file " + directory.string() +
                                         "/missing/vexa_shfe_md_chan0_20260430_093000_" + std::to_string(getpid()) +
                                         ".bin cannot be created (No such file or directory); check log_path"));
}

TEST_F(Capture, PlantedLinkIsLeftAlone) {
    const std::string name = "vexa_shfe_md_chan0_20260430_093000_" + std::to_string(getpid()) + ".bin";
    fs::create_symlink(directory / "victim", directory / name);
    EXPECT_EQ(Shot().CreateShotBinLog(directory.c_str(), 0), 0);
    Write("x");
    EXPECT_FALSE(fs::exists(directory / "victim"));
    EXPECT_THAT(Files(), SizeIs(2));
}

TEST_F(Capture, FullDiskKeepsWholeRecordsIsToldOnceAndResumes) {
    Shot().CreateShotPcapLog(directory.c_str(), 0);
    WriteFrame(frame);
    const std::string whole = Content();
    const uint64_t before = Dropped();
    {
        const FileSizeLimit limit(whole.size() + RECORD_HEAD_BYTES + 5);
        WriteFrame(frame);
        WriteFrame(frame);
    }
    EXPECT_EQ(Content(), whole);
    EXPECT_EQ(Dropped() - before, 2U);
    EXPECT_THAT(log.Texts(), ElementsAre("a capture record cannot be written (File too large); records are counted as "
                                         "dropped"));
    WriteFrame(frame);
    EXPECT_THAT(Content(), SizeIs(whole.size() + RECORD_HEAD_BYTES + frame.size()));
}

TEST_F(Capture, RecordsThatCannotBeWrittenAreNotCounted) {
    Shot().CreateShotBinLog(directory.c_str(), 0);
    Write("one");
    {
        const FileSizeLimit limit(BIN_HEAD_BYTES + RECORD_HEAD_BYTES + 3 + RECORD_HEAD_BYTES);
        Write("two");
        Write("three");
    }
    EXPECT_EQ(Shot().GetBinShotCnt(), 1U);
}

TEST_F(Capture, FileWithoutRoomForItsHeadIsTakenAwayAgain) {
    {
        const FileSizeLimit limit(4);
        EXPECT_EQ(Shot().CreateShotBinLog(directory.c_str(), 0), -1);
    }
    EXPECT_TRUE(fs::is_empty(directory));
}

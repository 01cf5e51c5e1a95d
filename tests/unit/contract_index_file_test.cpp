#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "src/RegisterMap.h"
#include "tests/support/IniText.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"
#include "tests/support/VirtualClock.h"

namespace {

bool g_isRenameRefused = false;
bool g_hasNoStream = false;

}  // namespace

// In front of the C library's: calls that fail on request.

extern "C" int rename(const char* from, const char* to) noexcept {
    if (!g_isRenameRefused) return renameat(AT_FDCWD, from, AT_FDCWD, to);
    errno = EIO;
    return -1;
}

extern "C" FILE* fdopen(int file, const char* mode) noexcept {
    if (!g_hasNoStream) return fopen(("/proc/self/fd/" + std::to_string(file)).c_str(), mode);
    errno = ENOMEM;
    return nullptr;
}

namespace {

namespace fs = std::filesystem;

constexpr int64_t DAY_START = 1'777'507'200;  // 30 April 2026, UTC
constexpr const char* HEADER =
    "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,vol_multiple,"
    "upper_limit_price,lower_limit_price\n";

class ContractIndexFile : public testing::Test {
protected:
    ContractIndexFile() {
        setenv("TZ", "UTC", 1);
        tzset();
        At(9, 0);
        CDrvRegEnyx::GetInstance().Init(0, 474);
        TestableApi::s_indexDirectory = directory.Path();
        board.answers[reg::SHFE_INST_COUNT] = 1;
        board.answers[reg::INE_INST_COUNT] = 1;
        api->m_finishedMask.enabled_mask = 5;
        std::memcpy(api->_Slot(SHFE_2PS, 0)->inst_id, "cu2612", 7);
        std::memcpy(api->_Slot(SHFE_4PS, 0)->inst_id, "al2612", 7);
        std::memcpy(api->_Slot(INE_2PS, 0)->inst_id, "sc2612", 7);
    }
    ~ContractIndexFile() override { TestableApi::s_indexDirectory = "/tmp"; }
    void At(int hour, int minute) { clock.wall = (DAY_START + hour * 3600 + minute * 60) * 1'000'000'000; }
    fs::path Name(const char* half) { return directory.Path() / (std::string(".shfe_20260430_") + half); }
    static std::string Content(const fs::path& path) {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    std::ptrdiff_t Entries() const {
        return std::distance(fs::directory_iterator(directory.Path()), fs::directory_iterator());
    }
    void ExpectRefused() {
        EXPECT_EQ(api->_InstStaticInfoWriteFile(), -1);
        EXPECT_TRUE(log.Has(LOG_WARNING, "open contract index file failed " + Name("am").string()));
    }
    VirtualClock clock;
    RecordingBoard board;
    LogCapture log;
    TempDirectory directory;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(ContractIndexFile, ListsShfeAndThenIneEachFromZero) {
    SInstTableType& slot = *api->_Slot(SHFE_2PS, 0);
    slot.change_no = 2;
    slot.open_interest = 3;
    slot.last_price = -4;
    slot.turnover = UINT64_MAX;
    slot.volume = 6;
    slot.price_tick = 7;
    slot.codec_price = 8;
    slot.vol_multiple = 9;
    slot.upper_limit_price = 10;
    slot.lower_limit_price = 11;
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,cu2612,2,3,-4,18446744073709551615,6,7,8,9,10,11\n" +
                                       "0,sc2612,0,0,0,0,0,0,0,0,0,0\n");
}

TEST_F(ContractIndexFile, MorningEndsAtFiveInTheAfternoon) {
    At(16, 59);
    api->_InstStaticInfoWriteFile();
    EXPECT_TRUE(fs::exists(Name("am")));
    EXPECT_FALSE(fs::exists(Name("pm")));
    At(17, 0);
    api->_InstStaticInfoWriteFile();
    EXPECT_TRUE(fs::exists(Name("pm")));
}

TEST_F(ContractIndexFile, TakesThe4psTableWhereBothFeedsHaveFinished) {
    api->m_finishedMask.enabled_mask = 7;
    api->_InstStaticInfoWriteFile();
    EXPECT_THAT(Content(Name("am")), testing::HasSubstr("0,al2612,"));
    EXPECT_THAT(Content(Name("am")), testing::Not(testing::HasSubstr("cu2612")));
}

TEST_F(ContractIndexFile, WithoutAFinishedShfeFeedHoldsIneAlone) {
    api->m_finishedMask.enabled_mask = 4;
    api->_InstStaticInfoWriteFile();
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,sc2612,0,0,0,0,0,0,0,0,0,0\n");
}

TEST_F(ContractIndexFile, CountsOfZeroWriteNoFile) {
    board.answers.clear();
    EXPECT_EQ(api->_InstStaticInfoWriteFile(), -1);
    EXPECT_TRUE(
        log.Has(LOG_WARNING, "shfeInstCount:0, ineInstCount:0, not write contract index file " + Name("am").string()));
    EXPECT_FALSE(fs::exists(Name("am")));
}

TEST_F(ContractIndexFile, CountsBeyondTheTableAreCapped) {
    board.answers[reg::SHFE_INST_COUNT] = UINT32_MAX;
    board.answers[reg::INE_INST_COUNT] = 0;
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    const std::string content = Content(Name("am"));
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 16385);
}

TEST_F(ContractIndexFile, FileOfOurOwnIsReplaced) {
    std::ofstream(Name("am")) << "old";
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    EXPECT_THAT(Content(Name("am")), testing::StartsWith("contract_no"));
    EXPECT_EQ(Entries(), 1);
}

TEST_F(ContractIndexFile, OthersMayReadItAsFarAsTheUmaskLetsThem) {
    for (const auto& [mask, expected] : {std::pair{0U, 0644U}, {022U, 0644U}, {027U, 0640U}, {077U, 0600U}}) {
        const mode_t before = umask(mask);
        EXPECT_EQ(api->_InstStaticInfoWriteFile(), 0);
        umask(before);
        struct stat status {};
        ASSERT_EQ(stat(Name("am").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, expected) << "umask " << mask;
    }
}

TEST_F(ContractIndexFile, NothingIsLeftBesideWhereTheFileCannotBePutInPlace) {
    for (bool* const fails : {&g_hasNoStream, &g_isRenameRefused}) {
        std::ofstream(Name("am")) << "old";
        *fails = true;
        const int32_t result = api->_InstStaticInfoWriteFile();
        *fails = false;
        EXPECT_EQ(Entries(), 1);
        EXPECT_EQ(result == 0, Content(Name("am")) != "old");
    }
    EXPECT_TRUE(log.Has(LOG_WARNING, "open contract index file failed " + Name("am").string()));
}

TEST_F(ContractIndexFile, SymbolicLinkCountsAsCannotBeOpened) {
    const TempFile victim("precious");
    fs::create_symlink(victim.Path(), Name("am"));
    ExpectRefused();
    EXPECT_EQ(Content(victim.Path()), "precious");
    EXPECT_TRUE(fs::is_symlink(Name("am")));
}

TEST_F(ContractIndexFile, HardLinkToAnotherFileCountsAsCannotBeOpened) {
    std::ofstream(directory.Path() / "victim") << "precious";
    fs::create_hard_link(directory.Path() / "victim", Name("am"));
    ExpectRefused();
    EXPECT_EQ(Content(directory.Path() / "victim"), "precious");
}

TEST_F(ContractIndexFile, FifoIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(Name("am").c_str(), 0600), 0);
    ExpectRefused();
}

TEST_F(ContractIndexFile, DirectoryOfThatNameIsRefused) {
    fs::create_directory(Name("am"));
    ExpectRefused();
}

TEST_F(ContractIndexFile, DirectoryThatIsMissingIsRefused) {
    TestableApi::s_indexDirectory = directory.Path() / "missing";
    EXPECT_EQ(api->_InstStaticInfoWriteFile(), -1);
}

TEST_F(ContractIndexFile, IdFromTheWireKeepsTwelveColumnsAndOneLine) {
    std::memcpy(api->_Slot(SHFE_2PS, 0)->inst_id,
                "a,b\nc\x1b"
                "defghijklmno",
                16);
    board.answers[reg::INE_INST_COUNT] = 0;
    api->_InstStaticInfoWriteFile();
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,a?b?c?defghijklm,0,0,0,0,0,0,0,0,0,0\n");
}

}  // namespace

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

#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/FilledSlot.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

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
        board.answers[0x1F14] = 1;
        board.answers[0x1F15] = 1;
        api->m_finishedMask.enabled_mask = 5;
        std::memcpy(api->m_store.Slot(SHFE_2PS, 0)->inst_id, "cu2612", 7);
        std::memcpy(api->m_store.Slot(SHFE_4PS, 0)->inst_id, "al2612", 7);
        std::memcpy(api->m_store.Slot(INE_2PS, 0)->inst_id, "sc2612", 7);
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
    ManualClock clock;
    RecordingBoard board;
    LogCapture log;
    TemporaryDirectory directory;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(ContractIndexFile, ListsShfeAndThenIneEachFromZero) {
    board.answers = {{0x1F14, 3}, {0x1F15, 2}};
    // Numbers that rise by one from field to field; two words make one of 64 bits.
    *api->m_store.Slot(SHFE_2PS, 0) = FilledSlot("cu2612", 100);
    *api->m_store.Slot(SHFE_2PS, 1) = FilledSlot("al2612", 300);
    *api->m_store.Slot(SHFE_2PS, 2) = FilledSlot("zn2612", 0xFFFFFFB0);
    *api->m_store.Slot(SHFE_2PS, 3) = FilledSlot("behind", 1);
    *api->m_store.Slot(INE_2PS, 0) = FilledSlot("sc2612", 500);
    *api->m_store.Slot(INE_2PS, 1) = FilledSlot("nr2612", 700);
    *api->m_store.Slot(INE_2PS, 2) = FilledSlot("behind", 1);
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    EXPECT_EQ(Content(Name("am")),
              std::string(HEADER) +
                  "0,cu2612,104,549755814015,132,558345748609,131,101,102,103,137,138\n"
                  "1,al2612,304,1408749273415,332,1417339208009,331,301,302,303,337,338\n"
                  "2,zn2612,4294967220,18446743854666219467,-48,18446743863256154061,4294967247,-79,-78,4294967219,"
                  "-43,-42\n"
                  "0,sc2612,504,2267742732815,532,2276332667409,531,501,502,503,537,538\n"
                  "1,nr2612,704,3126736192215,732,3135326126809,731,701,702,703,737,738\n");
}

TEST_F(ContractIndexFile, FilledTablesAreListedToTheirLastSlot) {
    board.answers = {{0x1F14, 16384}, {0x1F15, 4096}};
    std::memcpy(api->m_store.Slot(SHFE_2PS, 16383)->inst_id, "last", 5);
    std::memcpy(api->m_store.Slot(INE_2PS, 4095)->inst_id, "lastine", 8);
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    const std::string content = Content(Name("am"));
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 1 + 16384 + 4096);
    EXPECT_THAT(content, testing::HasSubstr("\n16383,last,0,0,0,0,0,0,0,0,0,0\n0,sc2612,"));
    EXPECT_THAT(content, testing::EndsWith("\n4095,lastine,0,0,0,0,0,0,0,0,0,0\n"));
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

/// What is listed of tables whose first slots are called cu2612, al2612 (SHFE 4ps), sc2612 and nr2612 (INE 4ps).
struct Finished {
    uint8_t mask;
    const char* shfe;
    const char* ine;
};

class ContractIndexOf : public ContractIndexFile, public testing::WithParamInterface<Finished> {};

TEST_P(ContractIndexOf, FinishedFeedsTakesThe4psTableWhereBothHave) {
    const auto [mask, shfe, ine] = GetParam();
    std::memcpy(api->m_store.Slot(INE_4PS, 0)->inst_id, "nr2612", 7);
    api->m_finishedMask.enabled_mask = mask;
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    std::string expected = HEADER;
    for (const char* id : {shfe, ine}) {
        if (*id != '\0') expected += std::string("0,") + id + ",0,0,0,0,0,0,0,0,0,0\n";
    }
    EXPECT_EQ(Content(Name("am")), expected);
}

INSTANTIATE_TEST_SUITE_P(Each, ContractIndexOf,
                         testing::Values(Finished{0x0, "", ""}, Finished{0x1, "cu2612", ""},
                                         Finished{0x2, "al2612", ""}, Finished{0x3, "al2612", ""},
                                         Finished{0x4, "", "sc2612"}, Finished{0x8, "", "nr2612"},
                                         Finished{0xC, "", "nr2612"}, Finished{0x7, "al2612", "sc2612"},
                                         Finished{0xF, "al2612", "nr2612"}, Finished{0x9, "cu2612", "nr2612"}),
                         [](const auto& finished) { return "Mask" + std::to_string(finished.param.mask); });

TEST_F(ContractIndexFile, CountOfOneExchangeIsEnough) {
    board.answers = {{0x1F14, 0}, {0x1F15, 1}};
    EXPECT_EQ(api->_InstStaticInfoWriteFile(), 0);
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,sc2612,0,0,0,0,0,0,0,0,0,0\n");
    board.answers = {{0x1F14, 1}, {0x1F15, 0}};
    EXPECT_EQ(api->_InstStaticInfoWriteFile(), 0);
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,cu2612,0,0,0,0,0,0,0,0,0,0\n");
}

TEST_F(ContractIndexFile, CountsThatCannotBeReadWriteNoFile) {
    board.accessResult = -1;
    EXPECT_EQ(api->_InstStaticInfoWriteFile(), -1);
    EXPECT_EQ(Entries(), 0);
}

TEST_F(ContractIndexFile, CountsOfZeroWriteNoFile) {
    board.answers.clear();
    EXPECT_EQ(api->_InstStaticInfoWriteFile(), -1);
    EXPECT_TRUE(
        log.Has(LOG_WARNING, "shfeInstCount:0, ineInstCount:0, not write contract index file " + Name("am").string()));
    EXPECT_FALSE(fs::exists(Name("am")));
}

TEST_F(ContractIndexFile, CountsBeyondTheTableAreCapped) {
    board.answers = {{0x1F14, UINT32_MAX}, {0x1F15, 4097}};
    std::memcpy(api->m_store.Slot(SHFE_4PS, 0)->inst_id, "behind", 7);
    std::memcpy(api->m_store.Slot(INE_4PS, 0)->inst_id, "behind", 7);
    ASSERT_EQ(api->_InstStaticInfoWriteFile(), 0);
    const std::string content = Content(Name("am"));
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 1 + 16384 + 4096);
    EXPECT_THAT(content, testing::Not(testing::HasSubstr("behind")));
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
    const TemporaryFile victim("precious");
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

TEST_F(ContractIndexFile, IdKeepsWhatCanBePrintedButTheComma) {
    std::memcpy(api->m_store.Slot(SHFE_2PS, 0)->inst_id, "a ~+-\x7f\x1f\x80\xff,z", 12);
    board.answers = {{0x1F14, 1}, {0x1F15, 0}};
    api->_InstStaticInfoWriteFile();
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,a ~+-?????z,0,0,0,0,0,0,0,0,0,0\n");
}

TEST_F(ContractIndexFile, IdFromTheWireKeepsTwelveColumnsAndOneLine) {
    std::memcpy(api->m_store.Slot(SHFE_2PS, 0)->inst_id,
                "a,b\nc\x1b"
                "defghijklmno",
                16);
    board.answers[0x1F15] = 0;
    api->_InstStaticInfoWriteFile();
    EXPECT_EQ(Content(Name("am")), std::string(HEADER) + "0,a?b?c?defghijklm,0,0,0,0,0,0,0,0,0,0\n");
}

}  // namespace

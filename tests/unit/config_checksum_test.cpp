#include <gtest/gtest.h>
#include <sys/stat.h>

#include "testing/LogCapture.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/TestableApi.h"

namespace {

class ConfigChecksum : public testing::Test {
protected:
    int32_t Checksum(const std::string& path, uint32_t& checksum) {
        checksum = 0;
        api->m_configFileName.UnSafeCopyFrom(path.c_str());
        return api->_GetConfigCrc(checksum);
    }
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
    uint32_t crc = 0;
};

TEST_F(ConfigChecksum, IsTheCrc32cOfTheBytes) {
    const TemporaryFile file("123456789");
    ASSERT_EQ(Checksum(file.Path(), crc), 0);
    EXPECT_EQ(crc, 0xE3069283U);
}

TEST_F(ConfigChecksum, OneByteIsAFile) {
    const TemporaryFile file("a");
    ASSERT_EQ(Checksum(file.Path(), crc), 0);
    EXPECT_EQ(crc, 0xC1D04330U);
}

TEST_F(ConfigChecksum, EmptyFileGivesMinusTwo) {
    const TemporaryFile file;
    EXPECT_EQ(Checksum(file.Path(), crc), -2);
    EXPECT_TRUE(log.Has(LOG_ERROR, "file is empty [" + file.Path() + "] [4294967294]."));
}

TEST_F(ConfigChecksum, MissingFileGivesMinusOne) {
    EXPECT_EQ(Checksum("/nonexistent/x.ini", crc), -1);
    EXPECT_TRUE(log.Has(LOG_ERROR, "Error opening file [/nonexistent/x.ini] [4294967295]."));
}

TEST_F(ConfigChecksum, SameFileGivesTheSameAndAChangedCommentAnother) {
    const TemporaryFile file("# a\na=1\n");
    uint32_t again = 0;
    ASSERT_EQ(Checksum(file.Path(), crc), 0);
    ASSERT_EQ(Checksum(file.Path(), again), 0);
    EXPECT_EQ(crc, again);
    file.Write("# b\na=1\n");
    ASSERT_EQ(Checksum(file.Path(), again), 0);
    EXPECT_NE(crc, again);
}

TEST_F(ConfigChecksum, DirectoryAndFifoAreRefusedWithoutWaiting) {
    const TemporaryDirectory directory;
    EXPECT_EQ(Checksum(directory.Path(), crc), -1);
    const std::string fifo = directory.Path() / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(Checksum(fifo, crc), -1);
}

TEST_F(ConfigChecksum, HugeFileIsRefusedAsTooLargeForMemory) {
    const TemporaryFile file("x");
    std::filesystem::resize_file(file.Path(), uint64_t{4} << 30);
    EXPECT_EQ(Checksum(file.Path(), crc), -3);
    EXPECT_TRUE(log.Has(LOG_ERROR, "Error allocating memory for file[" + file.Path() + "] [4294967293]."));
}

}  // namespace

#include "public/file/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

/// Standard input is closed meanwhile, as in processes that were started so: what is opened next is descriptor 0.
class ClosedInput : public testing::Test {
protected:
    ClosedInput() : m_before(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) { close(STDIN_FILENO); }
    ~ClosedInput() override {
        dup2(m_before, STDIN_FILENO);
        close(m_before);
    }

private:
    const int m_before;
};

TEST_F(ClosedInput, DescriptorZeroIsOneLikeEveryOther) {
    {
        const CDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(file.Get(), 0);
        EXPECT_TRUE(file.IsOpen());
        EXPECT_TRUE(IsOpen(0));
    }
    EXPECT_FALSE(IsOpen(0));
}

TEST(Descriptor, ThatCouldNotBeOpenedIsNoneAndIsNotClosed) {
    errno = 0;
    EXPECT_FALSE(CDescriptor(-1).IsOpen());
    EXPECT_EQ(errno, 0);
}

TEST(Descriptor, ThatWasReleasedStaysOpen) {
    int released = -1;
    {
        CDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const int opened = file.Get();
        released = file.Release();
        EXPECT_EQ(released, opened);
        EXPECT_FALSE(file.IsOpen());
    }
    EXPECT_TRUE(IsOpen(released));
    close(released);
}

}  // namespace

// A reader killed at any instruction: it is stopped between every two of them, and the ring is looked at as its death
// there would leave it.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <vector>

#include "software_board/DmaRing.h"

namespace software_board {
namespace {

constexpr uint32_t RING_LINES_USED = 25;  // eight records: lines are given back with every one or two
constexpr uint32_t MESSAGES = 6;
constexpr int FINISHED = 7;  // exit status of a reader that has read everything
constexpr std::size_t BYTES_USED = offsetof(DmaRing, lines) + (RING_LINES_USED + RING_LINES_MAX) * RING_LINE_BYTES;

class KilledReader : public testing::Test {
protected:
    KilledReader() {
        void* pages = mmap(nullptr, sizeof(DmaRing), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(pages, MAP_FAILED);
        ring = static_cast<DmaRing*>(pages);
    }
    ~KilledReader() override { munmap(ring, sizeof(DmaRing)); }

    static void Take(const unsigned char* data, unsigned int, void* user) {
        uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        static_cast<std::vector<uint32_t>*>(user)->push_back(number);
    }

    /// A process that stops, and then reads everything.
    pid_t StartReader() {
        const pid_t reader = fork();
        if (reader != 0) return reader;
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        std::vector<uint32_t> taken;
        taken.reserve(MESSAGES);
        RingConsumer consumer(*ring, RING_LINES_USED);
        raise(SIGSTOP);
        while (consumer.HandOver(Take, &taken)) {
        }
        _exit(FINISHED);
    }

    /// The producer goes on, and an heir finds whole messages, in order, up to the last: what it does not find was
    /// read. The ring is left as it was.
    void CheckAsItIs(RingProducer producer) {
        std::vector<unsigned char> before(BYTES_USED);
        std::memcpy(before.data(), ring, BYTES_USED);
        ASSERT_TRUE(producer.Put(&MESSAGES, sizeof MESSAGES, nullptr, 0));
        RingConsumer heir(*ring, RING_LINES_USED);
        std::vector<uint32_t> taken;
        while (heir.HandOver(Take, &taken)) {
        }
        ASSERT_FALSE(taken.empty());
        ASSERT_LE(taken.size(), MESSAGES + 1);
        for (std::size_t i = 0; i < taken.size(); ++i) ASSERT_EQ(taken[i], MESSAGES + 1 - taken.size() + i);
        std::memcpy(static_cast<void*>(ring), before.data(), BYTES_USED);
    }

    DmaRing* ring = nullptr;
};

TEST_F(KilledReader, LeavesTheRingWholeForItsHeirAndTheProducer) {
    RingProducer producer(*ring, RING_LINES_USED);
    for (uint32_t i = 0; i < MESSAGES; ++i) ASSERT_TRUE(producer.Put(&i, sizeof i, nullptr, 0));
    const pid_t reader = StartReader();
    int status = 0;
    uint64_t instructions = 0;
    ASSERT_EQ(waitpid(reader, &status, 0), reader);
    for (; WIFSTOPPED(status); ++instructions) {
        CheckAsItIs(producer);
        if (HasFatalFailure()) break;
        ASSERT_EQ(ptrace(PTRACE_SINGLESTEP, reader, nullptr, nullptr), 0);
        ASSERT_EQ(waitpid(reader, &status, 0), reader);
    }
    kill(reader, SIGKILL);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == FINISHED) << "after " << instructions << " instructions";
    EXPECT_GT(instructions, 100U);
}

}  // namespace
}  // namespace software_board

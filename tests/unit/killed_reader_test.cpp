// A reader killed at any instruction: the processor's single-step trap stops it between every two of them.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <vector>

#include "software_board/DmaRing.h"

namespace software_board {
namespace {

constexpr greg_t TRAP_FLAG = 0x100;
constexpr uint32_t RING_LINES_USED = 25;  // eight records: lines are given back with every one or two
constexpr uint32_t MESSAGES = 6;
constexpr int FINISHED = 7;  // exit status of a child that lived to the end

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VEXA_STRIDE 499  // forks are slow and instructions many; the plain build looks at all of them
#elif __has_feature(thread_sanitizer)
#define VEXA_STRIDE 0  // delivers signals late, so that none comes between two instructions
#endif
#endif
#ifndef VEXA_STRIDE
#define VEXA_STRIDE 1
#endif
constexpr uint64_t STRIDE = VEXA_STRIDE;

bool g_isStepping = false;
uint64_t g_stepsLeft = 0;

/// raise(SIGTRAP) begins stepping; the process kills itself when its steps are used up.
void OnTrap(int, siginfo_t* info, void* context) {
    if (info->si_code == SI_TKILL) {
        g_isStepping = true;
        static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] |= TRAP_FLAG;
    } else if (g_isStepping && g_stepsLeft-- == 0) {
        kill(getpid(), SIGKILL);
    }
}

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

    /// A child reads everything and is killed after so many instructions. False when it finished before.
    bool KillAfter(uint64_t instructions) {
        const pid_t child = fork();
        if (child == 0) {
            struct sigaction action {};
            action.sa_flags = SA_SIGINFO;
            action.sa_sigaction = OnTrap;
            sigaction(SIGTRAP, &action, nullptr);
            std::vector<uint32_t> taken;
            taken.reserve(MESSAGES);
            RingConsumer consumer(*ring, RING_LINES_USED);
            g_stepsLeft = instructions;
            raise(SIGTRAP);
            while (consumer.HandOver(Take, &taken)) {
            }
            _exit(FINISHED);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return !(WIFEXITED(status) && WEXITSTATUS(status) == FINISHED);
    }

    DmaRing* ring = nullptr;
};

TEST_F(KilledReader, LeavesTheRingWholeForItsHeirAndTheProducer) {
    if (STRIDE == 0) GTEST_SKIP() << "no single steps here";
    RingProducer producer(*ring, RING_LINES_USED);
    uint32_t next = 0;
    uint64_t instructions = 0;
    for (bool wasKilled = true; wasKilled; instructions += STRIDE) {
        for (uint32_t i = 0; i < MESSAGES; ++i, ++next) {
            ASSERT_TRUE(producer.Put(&next, sizeof next, nullptr, 0)) << "after " << instructions << " instructions";
        }
        wasKilled = KillAfter(instructions);
        // The heir finds whole messages, in order, up to the last; what it does not find was read.
        RingConsumer heir(*ring, RING_LINES_USED);
        std::vector<uint32_t> taken;
        while (heir.HandOver(Take, &taken)) {
        }
        ASSERT_LE(taken.size(), MESSAGES);
        for (std::size_t i = 0; i < taken.size(); ++i) {
            ASSERT_EQ(taken[i], next - taken.size() + i) << "after " << instructions << " instructions";
        }
        heir.Discard();
    }
    EXPECT_GT(instructions, 100U);
}

}  // namespace
}  // namespace software_board

// Linked into each test program: reads which mutant is on, and on request tells of each test the mutants that it
// reached. Lines of the file: test, milliseconds, numbers; the test "*" stands for what ran before the first of them.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "ActiveMutant.h"

namespace {

constexpr std::size_t MUTANTS_MAX = 1 << 17;
unsigned char unshared[MUTANTS_MAX];

int FromEnvironment() {
    const char* text = std::getenv("VEXA_ACTIVE_MUTANT");
    return text == nullptr ? 0 : std::atoi(text);
}

/// Before any other initialiser: tables are filled by switched code, too. Shared with the processes that a test forks.
__attribute__((constructor(101))) void ReadEnvironment() {
    vexa_active_mutant = FromEnvironment();
    if (std::getenv("VEXA_REACHED_FILE") == nullptr) return;
    void* shared = mmap(nullptr, MUTANTS_MAX, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared != MAP_FAILED) vexa_reached_mutants = static_cast<unsigned char*>(shared);
}

class CReachListener : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest&) override { Write("*", 0); }
    void OnTestStart(const testing::TestInfo&) override {
        std::memset(vexa_reached_mutants, 0, MUTANTS_MAX);
        m_began = std::clock();
    }
    void OnTestEnd(const testing::TestInfo& test) override {
        // Of the processor's time: a machine that does other work beside it makes no test more expensive.
        const auto milliseconds = static_cast<long long>(std::clock() - m_began) * 1000 / CLOCKS_PER_SEC;
        Write((std::string(test.test_suite_name()) + "." + test.name()).c_str(), milliseconds);
    }

    static void Write(const char* test, long long milliseconds) {
        FILE* file = std::fopen(std::getenv("VEXA_REACHED_FILE"), "a");
        if (file == nullptr) return;
        std::fprintf(file, "%s %lld", test, milliseconds);
        for (std::size_t number = 1; number < MUTANTS_MAX; ++number) {
            if (vexa_reached_mutants[number] != 0) std::fprintf(file, " %zu", number);
        }
        std::fputc('\n', file);
        std::fclose(file);
    }

    std::clock_t m_began = 0;
};

const bool isListening = [] {
    if (std::getenv("VEXA_REACHED_FILE") == nullptr) return false;
    testing::UnitTest::GetInstance()->listeners().Append(new CReachListener);
    return true;
}();

}  // namespace

int vexa_active_mutant = 0;
unsigned char* vexa_reached_mutants = unshared;

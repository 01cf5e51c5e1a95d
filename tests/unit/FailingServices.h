/// Services by themselves under calls that fail.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/FailingCalls.h"

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

inline std::string Content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline std::ptrdiff_t MadeCalls(ECall call) {
    const auto& made = FailingCalls::Made();
    return std::count_if(made.begin(), made.end(), [&](const MadeCall& one) { return one.call == call; });
}

class FailingServices : public testing::Test {
protected:
    FailingServices() {
        FailingCalls::Forget();
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ~FailingServices() override { FailingCalls::Forget(); }

    fs::path OnlyFile() const {
        const fs::directory_iterator entries(directory.Path());
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
        return fs::directory_iterator(directory.Path())->path();
    }

    TemporaryDirectory directory;
    ManualClock clock;
};

/// Services by themselves under calls that fail.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/FailingCalls.h"
#include "tests/support/IniText.h"
#include "tests/support/VirtualClock.h"

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

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

    TempDirectory directory;
    VirtualClock clock;
};

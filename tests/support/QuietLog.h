/// A log that a test keeps quiet: a warning or an error that the test did not ask for fails it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/LogCapture.h"

/// What a test asks for with Texts, Has or Count it expects; what it clears away it knows.
class QuietLog : public LogCapture {
public:
    ~QuietLog() override {
        std::vector<std::string> unasked;
        for (const Line& line : lines) {
            if ((line.level & (LOG_ERROR | LOG_WARNING)) != 0 && !line.isAskedFor) unasked.push_back(line.Text());
        }
        EXPECT_THAT(unasked, testing::IsEmpty()) << "warnings and errors that the test did not ask for";
    }
};

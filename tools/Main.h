/// The frame of every program: what goes wrong is told on standard error with the program's name. Exit status 2 for
/// wrong options, 1 for everything else.
#pragma once

#include <cstdio>
#include <exception>
#include <stdexcept>

/// Wrong options: what is wrong and what to do.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <typename Run>
int RunProgram(const char* name, Run run) {
    int status = 1;
    try {
        return run();
    } catch (const UsageError& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        status = 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
    }
    return status;
}

/// The frame of every program: what goes wrong is told on standard error with the program's name, exit status 1.
#pragma once

#include <cstdio>
#include <exception>

template <typename Run>
int RunProgram(const char* name, Run run) {
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return 1;
    }
}

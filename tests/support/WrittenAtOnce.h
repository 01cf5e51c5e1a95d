/// What a call hands to standard output's descriptor itself: text that waits in a buffer is not there yet.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "testing/TemporaryDirectory.h"

template <typename Call>
std::string WrittenAtOnce(Call call) {
    std::fflush(stdout);
    const TemporaryFile output;
    const int terminal = dup(STDOUT_FILENO);
    const int file = open(output.Path().c_str(), O_WRONLY | O_CLOEXEC);
    dup2(file, STDOUT_FILENO);
    call();
    std::ifstream in(output.Path());
    const std::string written{std::istreambuf_iterator<char>(in), {}};
    std::fflush(stdout);
    dup2(terminal, STDOUT_FILENO);
    close(terminal);
    close(file);
    return written;
}

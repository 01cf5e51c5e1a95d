/// How a target says that the library broke a rule.
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_REQUIRE(condition)                                                                 \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (false)

# Warnings for our own targets, each because it has found a fault somewhere once.
add_library(vexa_warnings INTERFACE)
target_compile_options(vexa_warnings INTERFACE
    -Wall -Wextra -Wpedantic
    -Wshadow            # a hidden member is a bug that reads well
    -Wcast-qual         # const is a promise to the board's buffers
    -Wformat=2          # log texts come from tables, never from the wire
    -Werror=format-security
    -Wundef -Wvla -Wextra-semi
    # A length that loses its sign is how frames are read beyond their end. Clang tells of constants, too.
    $<$<CXX_COMPILER_ID:GNU>:-Wconversion> $<$<CXX_COMPILER_ID:GNU>:-Wsign-conversion>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>  # false alarms on std::string in g++ 12
    $<$<BOOL:${VEXA_WARNINGS_AS_ERRORS}>:-Werror>)

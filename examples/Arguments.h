/// The one argument of the examples, the INI file; what else may stand in its place is answered here.
#pragma once

#include <cstdio>
#include <fstream>
#include <string>

/// True when `argv` names a file to start with. Else `status` is what the program ends with: 0 after --help or
/// --version, 2 for wrong arguments.
inline bool ReadArguments(int argc, char** argv, const char* program, int& status) {
    const std::string word = argc == 2 ? argv[1] : "";
    const bool isHelp = word == "--help";
    const bool isVersion = word == "--version";
    status = isHelp || isVersion ? 0 : 2;
    if (isHelp) {
        std::printf("usage: %s INI\nReceives until Ctrl-C. VEXA_BOARD_PROVIDER names the board, such as software.\n",
                    program);
        std::printf("Exit status: 0 after Ctrl-C, 1 when the start failed, 2 for wrong arguments.\n");
    } else if (isVersion) {
        std::printf("%s %s\n", program, VEXA_VERSION);
    } else if (word.empty()) {
        std::fprintf(stderr, "%s: needs one INI file, such as examples/session.ini; see %s --help\n", program, program);
    } else if (word[0] == '-') {
        std::fprintf(stderr, "%s: unknown option %s; see %s --help\n", program, word.c_str(), program);
    } else if (!std::ifstream(word)) {
        std::fprintf(stderr, "%s: %s cannot be opened; name an INI file, such as examples/session.ini\n", program,
                     word.c_str());
    } else {
        return true;
    }
    return false;
}

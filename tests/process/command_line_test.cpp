// Every program on wrong options: one line on standard error that says what is wrong and what to do, nothing on
// standard output, status 2. And every program's version.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "testing/TemporaryDirectory.h"
#include "tests/support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

/// By name, as the build has placed them.
std::string PathOf(const std::string& program) {
    if (program == "vexa_demo") return VEXA_DEMO;
    if (program == "vexa-board") return VEXA_BOARD;
#ifdef VEXA_SIM
    if (program == "vexa-sim") return VEXA_SIM;
#endif
    if (program == "vexa_example_callback") return VEXA_CALLBACK;
    if (program == "vexa_example_polling") return VEXA_POLLING;
    if (program == "vexa_reader") return VEXA_READER;
    if (program == "dev") return SOURCES "/dev";
    if (program == "shared_board") return SOURCES "/examples/shared_board";
    return SOURCES "/" + program;  // a script, named as it is called
}

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

class CommandLine : public testing::Test {
protected:
    Outcome Run(const std::string& program, const std::vector<std::string>& words) const {
        const std::string errors = m_directory.File("errors");
        std::vector<std::string> call{"/bin/sh", "-c", R"(exec "$0" "$@" 2>"$ERRORS")", PathOf(program)};
        call.insert(call.end(), words.begin(), words.end());
        ChildProcess process(call, {"ERRORS=" + errors}, m_directory.File("output"));
        const int status = process.Wait();
        std::ifstream file(errors);
        return {status, process.Output(), {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()}};
    }

private:
    TemporaryDirectory m_directory{"vexa-options"};
};

struct Wrong {
    std::string program;
    std::vector<std::string> words;
    std::string line;  ///< on standard error, behind "program: "
};

class WrongOptions : public CommandLine, public testing::WithParamInterface<Wrong> {};

TEST_P(WrongOptions, AreToldInOneLineWithStatusTwo) {
    const Wrong& wrong = GetParam();
    const Outcome outcome = Run(wrong.program, wrong.words);
    EXPECT_EQ(outcome.errors, wrong.program + ": " + wrong.line + "\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.status, 2);
}

const Wrong WRONG[] = {
    {"vexa_demo", {"--nonsense"}, "unknown option or one word too many: --nonsense; see vexa_demo --help"},
    {"vexa_demo", {"word"}, "unknown option or one word too many: word; see vexa_demo --help"},
    {"vexa_demo", {"--rate", "fast"}, "--rate: \"fast\" is no whole number from 0 to 4294967295; see vexa_demo --help"},
    {"vexa_demo", {"--rate=-5"}, "--rate: \"-5\" is no whole number from 0 to 4294967295; see vexa_demo --help"},
    {"vexa_demo",
     {"--seed", "18446744073709551616"},
     "--seed: \"18446744073709551616\" is no whole number from 0 to 18446744073709551615; see vexa_demo --help"},
    {"vexa_demo", {"--seconds", "nan"}, "--seconds: \"nan\" is no number from 0 to 1000000; see vexa_demo --help"},
    {"vexa_demo", {"--seconds"}, "--seconds needs a value; see vexa_demo --help"},
    {"vexa_demo", {"--config", "/no/such.ini"}, "--config: File does not exist: /no/such.ini; see vexa_demo --help"},
    {"vexa_demo",
     {"--faults", "reset@0"},
     "--faults: fault \"reset@0\": behind the @ stands the number of a snapshot connect, 1 to 18446744073709551615; "
     "see vexa_demo --help"},
    {"vexa-board", {}, "no command given; known are serve, status, registers, table, inject; see vexa-board --help"},
    {"vexa-board",
     {"serv"},
     "unknown command \"serv\"; known are serve, status, registers, table, inject; see vexa-board --help"},
    {"vexa-board",
     {"serve", "--rate", "0"},
     "--rate: \"0\" is no whole number from 1 to 1000000; see vexa-board serve --help"},
    {"vexa-board",
     {"status", "--bus", "65536"},
     "--bus: \"65536\" is no whole number from 0 to 65535; see vexa-board status --help"},
    {"vexa-board", {"status", "word"}, "unknown option or one word too many: word; see vexa-board status --help"},
    {"vexa-board", {"table"}, "FEED is required; see vexa-board table --help"},
    {"vexa-board",
     {"table", "shfe"},
     "FEED: unknown feed \"shfe\"; known are shfe2ps, shfe4ps, ine2ps, ine4ps; see vexa-board table --help"},
    {"vexa-board",
     {"registers", "0x30000"},
     "ADDR: \"0x30000\" is neither a register's name nor an index from 0 to 0x2ffff; see vexa-board registers --help"},
#ifdef VEXA_SIM
    {"vexa-sim", {}, "--seed is required; see vexa-sim --help"},
    {"vexa-sim",
     {"--seed", "1", "--minutes", "0"},
     "--minutes: \"0\" is no number from 0.01 to 100000; see vexa-sim --help"},
    {"vexa-sim",
     {"--seed", "1", "--trace", "/no/such/trace"},
     "--trace /no/such/trace: cannot be written; name a file in an existing directory"},
#endif
    {"vexa_example_callback", {}, "needs one INI file, such as examples/session.ini; see vexa_example_callback --help"},
    {"vexa_example_callback", {"--nonsense"}, "unknown option --nonsense; see vexa_example_callback --help"},
    {"vexa_example_callback",
     {"/no/such.ini"},
     "/no/such.ini cannot be opened; name an INI file, such as examples/session.ini"},
    {"vexa_example_polling",
     {"a.ini", "b.ini"},
     "needs one INI file, such as examples/session.ini; see vexa_example_polling --help"},
    {"vexa_reader", {"a.ini"}, "needs two words; give an INI file and a file for the records"},
    {"dev", {"nonsense"}, "unknown command 'nonsense'; see ./dev --help"},
    {"dev", {"test", "fast"}, "unknown preset 'fast', known are release debug asan tsan; see ./dev --help"},
    {"dev", {"fuzz", "--seconds", "0"}, "--seconds needs a whole number above 0, not '0'; see ./dev --help"},
    {"dev", {"fuzz", "--seconds"}, "--seconds needs a whole number above 0, not ''; see ./dev --help"},
    {"dev", {"fuzz", "--never"}, "unknown option: '--never'; see ./dev --help"},
    {"dev",
     {"fuzz", "word"},
     "unknown fuzz target 'word', known are ini snapshot start_up market_data served_board; see ./dev --help"},
    {"dev", {"fuzz", "ini", "snapshot"}, "one word too many: 'snapshot'; see ./dev --help"},
    {"dev", {"lint", "--fix"}, "lint takes no options, not '--fix'; see ./dev --help"},
    {"dev", {"format", "src"}, "format takes no options, not 'src'; see ./dev --help"},
    {"dev", {"package", "here"}, "package takes no options, not 'here'; see ./dev --help"},
    {"bench/run", {"--nonsense"}, "unknown option '--nonsense'; see bench/run --help"},
    {"shared_board", {}, "no directory given; name those of vexa-board and the two examples"},
    {"shared_board", {"/no/such"}, "no directory /no/such; name those of vexa-board and the two examples"},
    {"scripts/check_demo", {"word"}, "takes no options, not 'word'; run it without"},
    {"scripts/check_headers", {"word"}, "takes no options, not 'word'; run it without"},
    {"scripts/check_traces", {"word"}, "takes no options, not 'word'; run it without"},
    {"scripts/check_library", {}, "name one library, such as build/release/libvexa_shfe_md.so"},
    {"scripts/check_library", {"/no/such.so"}, "no file /no/such.so; build it with ./dev test"},
    {"scripts/check_messages.py", {"--nonsense"}, "takes --list, a folder and a document; run it without"},
    {"scripts/lint.py", {"word"}, "takes --self-test or nothing, not 'word'; run it without"},
};

std::string NameOf(const testing::TestParamInfo<Wrong>& info) {
    std::string name = info.param.program;
    for (const std::string& word : info.param.words) name += "_" + word;
    for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    return name + "_" + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Programs, WrongOptions, testing::ValuesIn(WRONG), NameOf);

class Version : public CommandLine, public testing::WithParamInterface<const char*> {};

TEST_P(Version, IsPrintedWithTheProgramsName) {
    const std::string program = GetParam();
    const Outcome outcome = Run(program, {"--version"});
    EXPECT_EQ(outcome.output, program + " 1.1.1.33\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
}

class Help : public CommandLine, public testing::WithParamInterface<const char*> {};

TEST_P(Help, TellsTheStatusOfWrongOptionsWithinEightyColumns) {
    const Outcome outcome = Run(GetParam(), {"--help"});
    EXPECT_THAT(outcome.output, testing::ContainsRegex("2[ \n]for[ \n](a[ \n])?wrong"));
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
}

constexpr const char* PROGRAMS[] = {
#ifdef VEXA_SIM
    "vexa-sim",
#endif
    "vexa_demo", "vexa-board", "vexa_example_callback", "vexa_example_polling", "dev"};
INSTANTIATE_TEST_SUITE_P(Programs, Version, testing::ValuesIn(PROGRAMS));
INSTANTIATE_TEST_SUITE_P(Programs, Help, testing::ValuesIn(PROGRAMS));

}  // namespace

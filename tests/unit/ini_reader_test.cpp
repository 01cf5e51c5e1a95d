#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "public/config/IniReader.h"
#include "testing/TemporaryDirectory.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class IniReader : public testing::Test {
protected:
    std::map<std::string, CIniReader::Section> Read(const std::string& text) {
        const TemporaryFile file(text);
        EXPECT_TRUE(ini.ReadConfig(file.Path()));
        return ini.Sections();
    }
    /// The same without a disk, for tests that read thousands of files.
    bool ReadFromMemory(const std::string& text) {
        return ftruncate(memory, 0) == 0 &&
               pwrite(memory, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
               ini.ReadConfig(MemoryPath());
    }
    std::string MemoryPath() const { return "/proc/self/fd/" + std::to_string(memory); }
    ~IniReader() override { close(memory); }

    CIniReader ini;
    int memory = memfd_create("ini", MFD_CLOEXEC);
};

using Sections = std::map<std::string, CIniReader::Section>;

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

/// A second reading of one line: empty when it says nothing, else section (header) or key and value.
struct Reading {
    bool isHeader = false;
    std::string name;
    std::string value;
};

bool ReadLine(const std::string& line, Reading& reading) {
    if (line.empty() || line[0] == '#') return false;
    const auto open = static_cast<long>(line.find('['));
    const auto close = static_cast<long>(line.find(']'));
    reading.isHeader = open >= 0 && close >= 0;
    if (reading.isHeader) {
        const std::string rest = line.substr(static_cast<std::size_t>(open) + 1);
        reading.name = close == 0 ? rest : rest.substr(0, static_cast<std::size_t>(close) - 1);
        return true;
    }
    const std::string content = line.substr(0, line.find('#'));
    const std::size_t equals = content.find('=');
    if (equals == std::string::npos) return false;
    reading.name = Trimmed(content.substr(0, equals));
    reading.value = Trimmed(content.substr(equals + 1));
    return !reading.name.empty();
}

/// A second reading of a whole file: after each line that says something, the section it belongs to holds a copy of the
/// entries read since a new section began last.
Sections ReadPlainly(const std::string& text) {
    Sections sections;
    CIniReader::Section current;
    std::string section;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        Reading reading;
        if (!ReadLine(line, reading)) continue;
        if (reading.isHeader) section = reading.name;
        if (sections.count(section) == 0) {
            current.clear();
            sections[section];
        } else {
            current[reading.isHeader ? "" : reading.name] = reading.isHeader ? "" : reading.value;
            sections[section] = current;
        }
    }
    return sections;
}

/// What a file of "[s]", the line and "k=v" holds.
Sections Expected(const std::string& line) {
    Reading reading;
    if (!ReadLine(line, reading)) return {{"s", {{"k", "v"}}}};
    if (!reading.isHeader) return {{"s", {{reading.name, reading.value}, {"k", "v"}}}};
    return {{"s", {}}, {reading.name, {{"k", "v"}}}};
}

TEST_F(IniReader, InlineCommentIsCutAndBothSidesTrimmed) {
    EXPECT_THAT(Read("[s]\nkey = value  # note\n").at("s"), ElementsAre(Pair("key", "value")));
}

TEST_F(IniReader, CommentsBlankLinesAndIncompleteLinesAreIgnored) {
    EXPECT_THAT(Read("[s]\n#key=1\n\nnovalue\n=5\n   \n").at("s"), IsEmpty());
}

TEST_F(IniReader, SectionsKeepTheirKeysApart) {
    EXPECT_THAT(
        Read("[config]\na=1\n[channel0]\ninsts=x\n"),
        ElementsAre(Pair("channel0", ElementsAre(Pair("insts", "x"))), Pair("config", ElementsAre(Pair("a", "1")))));
}

TEST_F(IniReader, ValueInBracketsMakesASectionHeader) { EXPECT_EQ(Read("name=[x]\n").count("x]"), 1U); }

TEST_F(IniReader, IndentedHeaderRunsPastItsBracket) { EXPECT_EQ(Read("  [ab]\n").count("ab]"), 1U); }

TEST_F(IniReader, IndentedCommentWithBracketsIsASectionAndTakesTheKeysBehindIt) {
    const auto& sections = Read("[s]\na=1\n  # see [x]\nb=2\n");
    EXPECT_THAT(sections.at("s"), ElementsAre(Pair("a", "1")));
    EXPECT_THAT(sections.at("x]"), ElementsAre(Pair("b", "2")));
}

TEST_F(IniReader, FirstKeyWithoutAHeaderIsLost) { EXPECT_THAT(Read("a=1\nb=2\n").at(""), ElementsAre(Pair("b", "2"))); }

TEST_F(IniReader, SectionOpenedAgainTakesOverTheKeysOfTheOneBefore) {
    const auto& sections = Read("[a]\nx=1\n[b]\ny=2\n[a]\nz=3\n");
    EXPECT_THAT(sections.at("a"), ElementsAre(Pair("", ""), Pair("y", "2"), Pair("z", "3")));
}

TEST_F(IniReader, LastOfTwoEqualKeysCounts) {
    EXPECT_THAT(Read("[s]\na=1\na=2\n").at("s"), ElementsAre(Pair("a", "2")));
}

TEST_F(IniReader, CarriageReturnsAndAMissingLastNewlineAreHarmless) {
    EXPECT_THAT(Read("[s]\r\na=1\r\nb=2").at("s"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(IniReader, BracketInFrontOfTheOpeningOneIsHarmless) {
    EXPECT_EQ(Read("][\n").count(""), 1U);
    EXPECT_EQ(Read("]ab[cd\n").count("cd"), 1U);
}

TEST_F(IniReader, NumbersAreConvertedAsFarAsTheyGo) {
    Read("[s]\nword=abc\nempty=\nhex=0x10\nbig=70000\nminus=-1\nhuge=99999999999999999999\nreal=2.5\n");
    EXPECT_EQ(ini.ReadUInt16("s", "word", 7), 0);
    EXPECT_EQ(ini.ReadInt32("s", "empty", 7), 0);
    EXPECT_EQ(ini.ReadInt32("s", "hex", 7), 0);
    EXPECT_EQ(ini.ReadUInt16("s", "big", 7), 4464);
    EXPECT_EQ(ini.ReadUInt16("s", "minus", 7), 65535);
    EXPECT_EQ(ini.ReadUInt32("s", "minus", 7), 4294967295U);
    EXPECT_EQ(ini.ReadInt64("s", "huge", 7), INT64_MAX);
    EXPECT_DOUBLE_EQ(ini.ReadDouble("s", "real", 0), 2.5);
    EXPECT_FLOAT_EQ(ini.ReadFloat("s", "real", 0), 2.5F);
    for (const char* key : {"word", "empty"}) {
        EXPECT_EQ(ini.ReadDouble("s", key, 7), 0);
        EXPECT_EQ(ini.ReadFloat("s", key, 7), 0);
        EXPECT_EQ(ini.ReadInt64("s", key, 7), 0);
        EXPECT_EQ(ini.ReadUInt32("s", key, 7), 0U);
    }
}

TEST_F(IniReader, MissingKeysAndNullNamesGiveTheDefault) {
    Read("[s]\na=1\n");
    EXPECT_EQ(ini.ReadUInt16("s", "b", 9), 9);
    EXPECT_EQ(ini.ReadInt32("t", "a", -9), -9);
    EXPECT_EQ(ini.ReadString(nullptr, "a", "x"), "x");
    EXPECT_EQ(ini.ReadString("s", nullptr, "x"), "x");
    EXPECT_EQ(ini.ReadUInt32("s", "b", 5), 5U);
    EXPECT_EQ(ini.ReadInt64("s", "b", -6), -6);
    EXPECT_EQ(ini.ReadFloat("s", "b", 1.5F), 1.5F);
    EXPECT_EQ(ini.ReadDouble("s", "b", 2.5), 2.5);
}

TEST_F(IniReader, MissingFileLeavesTheMapEmpty) {
    Read("[s]\na=1\n");
    EXPECT_FALSE(ini.ReadConfig("/nonexistent/x.ini"));
    EXPECT_THAT(ini.Sections(), IsEmpty());
}

TEST_F(IniReader, WhatIsNoRegularFileCannotBeOpened) {
    const TemporaryDirectory directory;
    const std::string fifo = directory.Path() / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {directory.Path().string(), fifo, std::string("/dev/zero")}) {
        EXPECT_FALSE(ini.ReadConfig(path)) << path;
    }
}

TEST_F(IniReader, FileOfTheGreatestSizeIsReadAndOneByteMoreIsNot) {
    constexpr off_t BYTES_MAX = off_t{64} << 20;
    ASSERT_TRUE(ReadFromMemory("[s]\na=1\n"));
    ASSERT_EQ(pwrite(memory, "\nb=2", 4, BYTES_MAX - 4), 4);
    ASSERT_TRUE(ini.ReadConfig(MemoryPath()));
    EXPECT_EQ(ini.ReadInt32("s", "a", 7), 1);
    EXPECT_EQ(ini.ReadInt32("s", "b", 7), 2);
    ASSERT_EQ(ftruncate(memory, BYTES_MAX + 1), 0);
    EXPECT_FALSE(ini.ReadConfig(MemoryPath()));
    EXPECT_THAT(ini.Sections(), IsEmpty());
}

TEST_F(IniReader, HexadecimalFormReadsAsZeroInEveryWidth) {
    Read("[s]\nhex = 0x10\nsigned = +1.5\n");
    EXPECT_EQ(ini.ReadInt32("s", "hex", 7), 0);
    EXPECT_EQ(ini.ReadUInt32("s", "hex", 7), 0U);
    EXPECT_EQ(ini.ReadInt64("s", "hex", 7), 0);
    EXPECT_EQ(ini.ReadFloat("s", "hex", 7), 0);
    EXPECT_EQ(ini.ReadDouble("s", "hex", 7), 0);
    EXPECT_EQ(ini.ReadDouble("s", "signed", 7), 1.5);
}

TEST_F(IniReader, NullDefaultReadsAsEmpty) { EXPECT_EQ(ini.ReadString("s", "none", nullptr), ""); }

TEST_F(IniReader, EveryShortLineReadsAsItsSecondReadingSays) {
    const std::string alphabet = "[]=# a\r";
    for (std::size_t length = 0, count = 1; length <= 6; ++length, count *= alphabet.size()) {
        for (std::size_t number = 0; number < count; ++number) {
            std::string line;
            for (std::size_t i = 0, rest = number; i < length; ++i, rest /= alphabet.size()) {
                line += alphabet[rest % alphabet.size()];
            }
            const std::string text = "[s]\n" + line + "\nk=v\n";
            ASSERT_TRUE(ReadFromMemory(text));
            ASSERT_EQ(ini.Sections(), Expected(line)) << testing::PrintToString(line);
        }
    }
}

TEST_F(IniReader, ManyKeysOfOneSectionAreAllKept) {
    std::string text = "[s]\n";
    for (int i = 0; i < 100'000; ++i) text += "k" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    EXPECT_EQ(Read(text).at("s").size(), 100'000U);
}

TEST_F(IniReader, AnyBytesAreRead) {
    EXPECT_EQ(Read(std::string("[s]\na=\0\x01\xff\n", 10)).at("s").at("a"), std::string("\0\x01\xff", 3));
    EXPECT_EQ(Read("[s]\na=" + std::string(10'000'000, 'x') + "\n").at("s").at("a").size(), 10'000'000U);
}

TEST_F(IniReader, FilesOfAFewNamesReadAsTheirSecondReadingSays) {
    const std::vector<std::string> pieces = {
        "[a]", "[b]", "[c]", "[d]", "[]", "a=1", "a=2", "a=", "b=1", "b=2", "c=1", "x", "=", "#[a]", "", " [a]"};
    std::mt19937 random(7);
    for (int round = 0; round < 4'000; ++round) {
        std::string text;
        // Some files know few of the pieces, so that all sections have been opened before long.
        const std::size_t known = 2 + random() % (pieces.size() - 1);
        for (auto lines = 1 + random() % 40; lines > 0; --lines) {
            text += pieces[(random() % known + static_cast<std::size_t>(round)) % pieces.size()] + "\n";
        }
        ASSERT_TRUE(ReadFromMemory(text));
        const Sections expected = ReadPlainly(text);
        ASSERT_EQ(ini.Sections(), expected) << text;
        for (const auto& [section, entries] : expected) {
            for (const char* key : {"", "a", "b", "c", "d"}) {
                const auto found = entries.find(key);
                ASSERT_EQ(ini.ReadString(section.c_str(), key, "none"), found == entries.end() ? "none" : found->second)
                    << text;
            }
        }
    }
}

TEST_F(IniReader, FileOfRandomBytesOfTheGrammarReadsAsItsSecondReadingSays) {
    const std::string alphabet = "[[]]==\n\n\n# ab\r\t";
    std::mt19937 random(11);
    for (int round = 0; round < 4'000; ++round) {
        std::string text;
        for (auto length = random() % 120; length > 0; --length) text += alphabet[random() % alphabet.size()];
        ASSERT_TRUE(ReadFromMemory(text));
        ASSERT_EQ(ini.Sections(), ReadPlainly(text)) << testing::PrintToString(text);
    }
}

/// Copying the entries of a section at each change of it would take days here.
TEST_F(IniReader, SectionsThatAlternateWithNewEntriesAreReadInOnePass) {
    constexpr int SECTIONS = 200'000;
    std::string text = "[config]\n";
    for (int i = 0; i < SECTIONS; ++i) text += "[" + std::to_string(i) + "]\n";
    for (int i = 0; i < SECTIONS; ++i) {
        const std::string number = std::to_string(i);
        text += "[" + number + "]\nk" + number + "=" + number + "\nsame=" + number + "\n";
    }
    text += "[config]\nlast=1\n";
    ASSERT_TRUE(ReadFromMemory(text));
    EXPECT_EQ(ini.ReadString("77", "same", "none"), "77");
    EXPECT_EQ(ini.ReadString("77", "k76", "none"), "76");
    EXPECT_EQ(ini.ReadString("77", "k78", "none"), "none");
    EXPECT_EQ(ini.ReadString("config", "same", "none"), std::to_string(SECTIONS - 1));
    EXPECT_EQ(ini.ReadString("config", "k5", "none"), "5");
    EXPECT_EQ(ini.ReadString("config", "last", "none"), "1");
    EXPECT_EQ(ini.ReadString("77", "last", "none"), "none");
}

TEST_F(IniReader, NewSectionBeginsWithoutTheEntriesBefore) {
    const Sections sections = Read("[a]\nx=1\n[b]\n[a]\n[c]\nx=3\n[a]\n");
    EXPECT_THAT(sections.at("a"), ElementsAre(Pair("", ""), Pair("x", "3")));
    EXPECT_THAT(sections.at("b"), IsEmpty());
    EXPECT_THAT(sections.at("c"), ElementsAre(Pair("x", "3")));
}

TEST_F(IniReader, FileReadAgainLeavesNothingOfTheOneBefore) {
    Read("[a]\nx=1\n");
    EXPECT_THAT(Read("[b]\ny=2\n"), ElementsAre(Pair("b", ElementsAre(Pair("y", "2")))));
    EXPECT_FALSE(ini.ReadConfig("/nonexistent/x.ini"));
    EXPECT_THAT(ini.Sections(), IsEmpty());
}

}  // namespace

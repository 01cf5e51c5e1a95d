#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "public/config/IniReader.h"
#include "tests/support/IniText.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class IniReader : public testing::Test {
protected:
    const std::map<std::string, CIniReader::Section>& Read(const std::string& text) {
        const TempFile file(text);
        EXPECT_TRUE(ini.ReadConfig(file.Path()));
        return ini.Sections();
    }
    CIniReader ini;
};

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
}

TEST_F(IniReader, MissingKeysAndNullNamesGiveTheDefault) {
    Read("[s]\na=1\n");
    EXPECT_EQ(ini.ReadUInt16("s", "b", 9), 9);
    EXPECT_EQ(ini.ReadInt32("t", "a", -9), -9);
    EXPECT_EQ(ini.ReadString(nullptr, "a", "x"), "x");
    EXPECT_EQ(ini.ReadString("s", nullptr, "x"), "x");
    EXPECT_EQ(ini.ReadUInt32("s", "b", 5), 5U);
}

TEST_F(IniReader, MissingFileLeavesTheMapEmpty) {
    Read("[s]\na=1\n");
    EXPECT_FALSE(ini.ReadConfig("/nonexistent/x.ini"));
    EXPECT_THAT(ini.Sections(), IsEmpty());
}

TEST_F(IniReader, WhatIsNoRegularFileOrTooLargeCannotBeOpened) {
    const TempDirectory directory;
    const std::string fifo = directory.Path() / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const TempFile sparse("x");
    std::filesystem::resize_file(sparse.Path(), uint64_t{4} << 30);
    for (const std::string& path : {directory.Path().string(), fifo, std::string("/dev/zero"), sparse.Path()}) {
        EXPECT_FALSE(ini.ReadConfig(path)) << path;
    }
}

TEST_F(IniReader, AnyBytesAreRead) {
    EXPECT_EQ(Read(std::string("[s]\na=\0\x01\xff\n", 10)).at("s").at("a"), std::string("\0\x01\xff", 3));
    EXPECT_EQ(Read("[s]\na=" + std::string(10'000'000, 'x') + "\n").at("s").at("a").size(), 10'000'000U);
}

}  // namespace

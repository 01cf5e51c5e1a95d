#include "public/reg/SharedObject.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testing/TemporaryDirectory.h"

namespace {

constexpr const char* NONE = "no shared object for this machine";
constexpr const char* CUT = "cut: shorter than its headers say";

template <typename Number>
void Put(std::string& file, std::size_t at, Number number) {
    std::memcpy(file.data() + at, &number, sizeof number);
}

/// 500 bytes: the file's header, two program headers at 64 and two section headers of 40 bytes at 420, the file's end.
/// The second segment is one to load, of 300 bytes from 200 on.
std::string SharedObject() {
    std::string file(500, '\0');
    file.replace(0, 5,
                 "\x7f"
                 "ELF"
                 "\x02");
    Put<uint16_t>(file, 16, 3);    // a shared object
    Put<uint64_t>(file, 32, 64);   // program headers: where
    Put<uint64_t>(file, 40, 420);  // section headers: where
    Put<uint16_t>(file, 54, 56);   // program headers: bytes of one
    Put<uint16_t>(file, 56, 2);    // program headers: how many
    Put<uint16_t>(file, 58, 40);   // section headers: bytes of one
    Put<uint16_t>(file, 60, 2);    // section headers: how many
    Put<uint32_t>(file, 64, 4);    // the first is a note, which is not loaded
    Put<uint64_t>(file, 64 + 32, 9'000);
    Put<uint32_t>(file, 120, 1);           // the second is to be loaded
    Put<uint64_t>(file, 120 + 8, 200);     // from
    Put<uint64_t>(file, 120 + 32, 300);    // bytes in the file
    Put<uint64_t>(file, 120 + 40, 9'000);  // bytes in memory
    return file;
}

std::string WhyNot(const std::string& text) {
    const TemporaryFile file(text);
    return WhyNoSharedObject(file.Path());
}

template <typename Number>
std::string WhyNotWith(std::size_t at, Number number) {
    std::string file = SharedObject();
    Put(file, at, number);
    return WhyNot(file);
}

TEST(SharedObject, WholeOneHasNothingAgainstIt) { EXPECT_EQ(WhyNot(SharedObject()), ""); }

TEST(SharedObject, OtherKindsOfFileAreNone) {
    for (const std::size_t at : std::initializer_list<std::size_t>{0, 1, 2, 3})
        EXPECT_EQ(WhyNotWith<char>(at, 'x'), NONE) << at;
    EXPECT_EQ(WhyNotWith<char>(4, 1), NONE) << "32 bits";
    EXPECT_EQ(WhyNotWith<uint16_t>(16, 2), NONE) << "a program";
    EXPECT_EQ(WhyNotWith<uint16_t>(54, 55), NONE);
    EXPECT_EQ(WhyNotWith<uint16_t>(54, 57), NONE);
    EXPECT_EQ(WhyNot(SharedObject().substr(0, 63)), NONE);
    EXPECT_EQ(WhyNot(""), NONE);
}

TEST(SharedObject, SectionHeadersEndWithinTheFile) {
    EXPECT_EQ(WhyNotWith<uint64_t>(40, 421), CUT);
    EXPECT_EQ(WhyNotWith<uint64_t>(40, 419), "");
    EXPECT_EQ(WhyNotWith<uint16_t>(60, 3), CUT);
    EXPECT_EQ(WhyNotWith<uint16_t>(58, 41), CUT);
    EXPECT_EQ(WhyNotWith<uint64_t>(40, UINT64_MAX - 40), CUT) << "an end beyond any number";
    std::string none = SharedObject();
    Put<uint16_t>(none, 60, 0);
    Put<uint64_t>(none, 40, 500);
    EXPECT_EQ(WhyNot(none), "");
    Put<uint64_t>(none, 40, 501);
    EXPECT_EQ(WhyNot(none), CUT);
}

TEST(SharedObject, ProgramHeadersEndWithinTheFile) {
    EXPECT_EQ(WhyNotWith<uint64_t>(32, 500 - 2 * 56), "") << "two of type 0";
    EXPECT_EQ(WhyNotWith<uint64_t>(32, 500 - 2 * 56 + 1), CUT);
    EXPECT_EQ(WhyNotWith<uint64_t>(32, UINT64_MAX - 100), CUT);
    EXPECT_EQ(WhyNotWith<uint16_t>(56, 8), CUT);
    EXPECT_EQ(WhyNotWith<uint16_t>(56, 1), "");
}

TEST(SharedObject, SegmentsToLoadEndWithinTheFile) {
    EXPECT_EQ(WhyNotWith<uint64_t>(120 + 32, 301), CUT);
    EXPECT_EQ(WhyNotWith<uint64_t>(120 + 8, 201), CUT);
    EXPECT_EQ(WhyNotWith<uint64_t>(120 + 8, UINT64_MAX - 100), CUT);
    EXPECT_EQ(WhyNotWith<uint32_t>(120, 2), "") << "another kind";
    EXPECT_EQ(WhyNotWith<uint32_t>(64, 1), CUT) << "the first one, too";
}

TEST(SharedObject, WhatIsNoFileIsToldByTheSystem) {
    EXPECT_EQ(WhyNoSharedObject("/nowhere/board.so"), "No such file or directory");
    EXPECT_EQ(WhyNoSharedObject("/dev/null"), "no regular file");
    EXPECT_EQ(WhyNoSharedObject("/"), "no regular file");
}

}  // namespace

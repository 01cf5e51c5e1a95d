#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "public/string/qel_string_base.h"

namespace {

template <std::size_t N>
CQelCharArray<N> Text(const std::string& text) {
    CQelCharArray<N> result;
    result.UnSafeCopyFrom(text.c_str());
    return result;
}

template <std::size_t M, std::size_t N>
std::vector<std::string> Pieces(const CQelCharArray<N>& text) {
    std::vector<CQelCharArray<M>> pieces;
    text.SplitByChar(pieces, ',');
    return {pieces.begin(), pieces.end()};
}

TEST(CharArray, IsExactlyItsBytes) {
    static_assert(sizeof(CQelCharArray<4>) == 4 && sizeof(CQelCharArray<4096>) == 4096);
    static_assert(std::is_trivially_copyable_v<CQelCharArray<64>>);
    EXPECT_EQ(CQelCharArray<64>().Size(), 64U);
}

TEST(CharArray, OverlongTextIsCutAndNullLeavesTheOldOne) {
    CQelCharArray<256> text;
    text.UnSafeCopyFrom(std::string(300, 'x').c_str());
    EXPECT_EQ(text.Length(), 255U);
    text.UnSafeCopyFrom(nullptr);
    EXPECT_EQ(text.Length(), 255U);
}

TEST(CharArray, ShorterTextZeroFillsTheRest) {
    auto text = Text<8>("abcdefg");
    text.UnSafeCopyFrom("x");
    EXPECT_EQ(std::string(text.data(), 8), std::string("x\0\0\0\0\0\0\0", 8));
}

TEST(CharArray, CharacterIsAppendedOnlyWhereItFits) {
    auto text = Text<64>(std::string(62, 'a'));
    EXPECT_EQ(text.Append('x').Length(), 63U);
    EXPECT_EQ(text.Append('x').Length(), 63U);
}

TEST(CharArray, NumbersAreAppendedInDecimal) {
    EXPECT_STREQ(CQelCharArray<16>().Append(0), "0");
    EXPECT_STREQ(CQelCharArray<16>().Append(-7), "-7");
    EXPECT_STREQ(CQelCharArray<16>().Append(INT32_MIN), "-2147483648");
    EXPECT_STREQ(CQelCharArray<16>("channel").Append(15), "channel15");
    EXPECT_STREQ(CQelCharArray<32>().Append(INT64_MIN), "-9223372036854775808");
    EXPECT_STREQ(CQelCharArray<32>().Append(UINT64_MAX), "18446744073709551615");
    EXPECT_STREQ(CQelCharArray<32>().Append(uint8_t{200}).Append(int8_t{-3}), "200-3");
    EXPECT_STREQ(CQelCharArray<32>().Append(2.5, 2), "2.50");
}

TEST(CharArray, NumberThatDoesNotFitLosesItsHighDigits) {
    const std::string sixty(60, 'a');
    EXPECT_STREQ(Text<64>(sixty).Append(12345), (sixty + "345").c_str());
}

TEST(CharArray, FullArrayTakesNoNumber) {
    const std::string full(63, 'a');
    EXPECT_STREQ(Text<64>(full).Append(5), full.c_str());
    EXPECT_STREQ(Text<64>(full).Append(0), full.c_str());
}

TEST(CharArray, LiteralIsAppendedAsFarAsItFits) {
    EXPECT_STREQ(Text<8>("abc").Append("defgh"), "abcdefg");
    EXPECT_STREQ(Text<8>("abc").Append("defgh", 2), "abcde");
    EXPECT_STREQ(Text<8>("abc").Append(""), "abc");
}

TEST(CharArray, SplitKeepsEmptyPiecesButNoTrailingOne) {
    EXPECT_THAT((Pieces<32>(Text<64>(",a,,b,"))), testing::ElementsAre("", "a", "", "b"));
    EXPECT_THAT((Pieces<32>(Text<64>(""))), testing::IsEmpty());
    EXPECT_THAT((Pieces<32>(Text<64>("a"))), testing::ElementsAre("a"));
}

TEST(CharArray, SplitCutsPiecesToTheirCapacity) {
    EXPECT_THAT((Pieces<4>(Text<64>("abcdef,gh"))), testing::ElementsAre("abc", "gh"));
}

TEST(CharArray, SplitAppendsToWhatIsThere) {
    std::vector<CQelCharArray<8>> pieces(1);
    Text<64>("a,b").SplitByChar(pieces, ',');
    EXPECT_EQ(pieces.size(), 3U);
}

TEST(CharArray, ComparisonWithALiteralHasTheReversedSign) {
    EXPECT_EQ(Text<4096>("all").Comp("all"), 0);
    EXPECT_EQ(Text<4096>("alle").Comp("all"), -1);
    EXPECT_EQ(Text<4096>("al").Comp("all"), 1);
}

TEST(CharArray, ComparisonLooksAtNoMoreThanTheOthersCapacity) {
    char raw[2] = {'a', 'b'};
    EXPECT_EQ(Text<8>("abc").Comp(CQelCharArray<8>::BuffCast(raw)), 0);
}

TEST(CharArray, ComparisonOfAFullViewEndsAtItsLastByte) {
    char raw[4] = {'a', 'b', 'c', 'd'};
    const auto& view = CQelCharArray<4>::BuffCast(raw);
    EXPECT_EQ(view.Comp("abcd"), 0);
    EXPECT_EQ(view.Comp("abcde"), 1);
}

TEST(CharArray, DigitsFarBeyondTheArrayAreNotWritten) {
    struct {
        char before[8] = "guarded";
        CQelCharArray<4> text;
    } record;
    record.text._ParseIntRight(1234567, UINT32_MAX);
    record.text.ParseInt(1234567, SIZE_MAX);
    EXPECT_STREQ(record.before, "guarded");
    EXPECT_STREQ(record.text, "");
}

TEST(CharArray, NumberIsFoundBehindAnyNumberOfBlanksAndZeros) {
    EXPECT_EQ(Text<64>(std::string(40, ' ') + "12").ToInt32(), 12);
    EXPECT_EQ(Text<64>(std::string(40, '0') + "12").ToInt32(), 12);
}

TEST(CharArray, CopyFromBeyondTheTextClears) {
    auto target = Text<16>("old");
    const auto source = Text<32>("abc");
    EXPECT_STREQ(target.CopyFrom(source, 3, 5), "");
    EXPECT_STREQ(target.CopyFrom(source, 1, 5), "bc");
    EXPECT_STREQ(target.CopyFrom(source, 0, 2), "ab");
}

TEST(CharArray, CopyBetweenCapacitiesIsCut) {
    CQelCharArray<48> target;
    target.CopyFrom(Text<256>(std::string(100, 'y')));
    EXPECT_EQ(target.Length(), 47U);
}

TEST(CharArray, CopyOfItselfMayOverlap) {
    auto text = Text<16>("abcdef");
    EXPECT_STREQ(text.CopyFrom(text, 2, 10), "cdef");
}

TEST(CharArray, ViewOverARawFieldWithoutATerminatorStaysInside) {
    char raw[4] = {'1', '2', '3', '4'};
    const auto& view = CQelCharArray<4>::BuffCast(raw);
    EXPECT_EQ(view.Length(), 4U);
    EXPECT_EQ(view.ToInt32(), 1234);
}

TEST(CharArray, NumberOfATextStopsAtTheFirstStranger) {
    EXPECT_EQ(Text<16>(" -12x").ToInt32(), -12);
    EXPECT_EQ(Text<16>("x").ToInt32(), 0);
    EXPECT_EQ(Text<16>("ab12").ToInt32(2), 12);
    EXPECT_EQ(Text<16>("65537").ToWord(), 1);
    EXPECT_EQ(Text<64>("9223372036854775807").ToInt64(), INT64_MAX);
    EXPECT_DOUBLE_EQ(Text<16>("2.5").ToDouble(), 2.5);
}

TEST(CharArray, BlanksAreTrimmedAtEitherEnd) {
    EXPECT_STREQ(Text<16>(" \ta b\r\n").Trim(), "a b");
    EXPECT_STREQ(Text<16>(" a ").TrimHeader(), "a ");
    EXPECT_STREQ(Text<16>(" a ").TrimTail(), " a");
    EXPECT_STREQ(Text<16>("   ").Trim(), "");
}

TEST(CharArray, CharactersAreFoundFromEitherEnd) {
    const auto text = Text<16>("a.b.c");
    EXPECT_EQ(text.StrChr('.') - text.data(), 1);
    EXPECT_EQ(text.StrRChr('.') - text.data(), 3);
    EXPECT_EQ(text.StrChr('x'), nullptr);
    EXPECT_EQ(text.StrRChr('x'), nullptr);
}

TEST(CharArray, CaseIsChangedForLettersAlone) {
    EXPECT_STREQ(Text<16>("Ab1_").StrToLowercase(), "ab1_");
    EXPECT_STREQ(Text<16>("Ab1_").StrToUppercase(), "AB1_");
}

TEST(CharArray, NumberReplacesTheText) {
    EXPECT_STREQ(Text<8>("old").ParseFrom(int32_t{-5}), "-5");
    EXPECT_STREQ(Text<8>("old").ParseFrom(uint64_t{7}), "7");
    EXPECT_STREQ(Text<8>("old")._StupidItoA(42), "42");
}

TEST(CharArray, NumberIsFilledUpInFront) {
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(uint32_t{42}, '0'), "00042");
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(uint32_t{0}, ' '), "    0");
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(int32_t{-7}, '0'), "-0007");
}

TEST(CharArray, WritesStayInFrontOfTheTerminator) {
    auto text = Text<4>("abc");
    text.At(3, 'x');
    text.At(100, 'x');
    EXPECT_STREQ(text, "abc");
    text.ClearBufByPos(1, 'z');
    EXPECT_STREQ(text, "azz");
}

TEST(CharArray, EqualTextsAreEqualWhateverTheirCapacities) {
    EXPECT_TRUE(Text<8>("ab") == Text<16>("ab"));
    EXPECT_FALSE(Text<8>("ab") == Text<16>("abc"));
    EXPECT_TRUE(CQelCharArray<8>::GetDefaultValue().IsEmpty());
}

TEST(Optional, RefersToAnObjectOrToNone) {
    int number = 5;
    bool isValid = false;
    const CQELOptional<int> held(number);
    EXPECT_EQ(&held.GetData(isValid), &number);
    EXPECT_TRUE(isValid);
    EXPECT_FALSE(held.IsInvalid());
    EXPECT_TRUE(CQELOptional<int>().IsInvalid());
    EXPECT_TRUE(held == CQELOptional<int>(number));
    EXPECT_FALSE(held == CQELOptional<int>());
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <memory>
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

/// All bytes of the array, those behind the text, too.
template <std::size_t N>
std::string BytesOf(const CQelCharArray<N>& text) {
    return {text.data(), N};
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

TEST(CharArray, LiteralIsCopiedUpToItsTerminatorAndNoFurther) {
    auto text = Text<8>("abcdefg");
    EXPECT_EQ(BytesOf(text.CopyFrom("xy")), std::string("xy\0defg\0", 8));
    EXPECT_EQ(BytesOf(text.CopyFrom("\0pq")), std::string("\0y\0defg\0", 8));
    const CQelCharArray<4> whole("all");
    EXPECT_EQ(BytesOf(whole), std::string("all\0", 4));
}

TEST(CharArray, ArrayWithoutATerminatorLosesItsLastByte) {
    auto text = Text<8>("abcdefg");
    const char unfinished[3] = {'x', 'y', 'z'};
    EXPECT_EQ(BytesOf(text.CopyFrom(unfinished)), std::string("xy\0defg\0", 8));
}

TEST(CharArray, ClearTakesTheTextAwayAndNoMore) {
    auto text = Text<4>("abc");
    text.Clear();
    EXPECT_EQ(BytesOf(text), std::string("\0bc\0", 4));
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_FALSE(Text<4>("a").IsEmpty());
}

TEST(CharArray, FullViewTakesNothingMore) {
    char raw[4] = {'a', 'b', 'c', 'd'};
    auto& view = CQelCharArray<4>::BuffCast(raw);
    view.Append('x').Append("yz");
    EXPECT_EQ(BytesOf(view), "abcd");
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
    EXPECT_STREQ(CQelCharArray<32>().Append(int64_t{0}), "0");
    EXPECT_STREQ(CQelCharArray<32>("a").Append(uint32_t{4294967295}).Append(uint16_t{65535}), "a429496729565535");
    EXPECT_STREQ(CQelCharArray<32>("a").Append(int16_t{-32768}), "a-32768");
}

TEST(CharArray, RealNumberHasFromNoneToSeventeenDigitsBehindThePoint) {
    EXPECT_STREQ(CQelCharArray<32>("a").Append(2.5, 2), "a2.50");
    EXPECT_STREQ(CQelCharArray<32>().Append(2.75, 0), "3");
    EXPECT_STREQ(CQelCharArray<32>().Append(2.75, -1), "3");
    EXPECT_STREQ(CQelCharArray<32>().Append(0.5, 17), "0.50000000000000000");
    EXPECT_STREQ(CQelCharArray<32>().Append(0.5, 18), "0.50000000000000000");
}

TEST(CharArray, DigitsAreWrittenAgainstTheEndAndTheIndexInFrontOfThemIsTold) {
    auto text = Text<8>("abcdefg");
    EXPECT_EQ(text._ParseIntRight(120, 2), 3);
    EXPECT_EQ(BytesOf(text), std::string("abcd120\0", 8));
    EXPECT_EQ(text._ParseIntRight(0, 6), 5);
    EXPECT_EQ(BytesOf(text), std::string("abcd120\0", 8));
    EXPECT_EQ(text._ParseIntRight(98765, 4), 3);
    EXPECT_EQ(BytesOf(text), std::string("abcd765\0", 8));
    EXPECT_EQ(text._ParseIntRight(5, 7), 6);
    EXPECT_EQ(BytesOf(text), std::string("abcd765\0", 8));
}

TEST(CharArray, NumberIsMovedDownToItsPlaceWithTheTerminator) {
    auto text = Text<8>("abcdefg");
    EXPECT_EQ(BytesOf(text.ParseInt(12, 1)), std::string("a12\0e12\0", 8));
    EXPECT_EQ(BytesOf(text.ParseInt(345, 4)), std::string("a12\0"
                                                          "345\0",
                                                          8));
    EXPECT_EQ(BytesOf(text.ParseInt(6, 8)), std::string("a12\0"
                                                        "345\0",
                                                        8));
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
    EXPECT_STREQ(Text<8>("abc").Append("defgh", 9), "abcdefg");
    EXPECT_EQ(BytesOf(Text<8>("abc").Append("")), std::string("abc\0\0\0\0\0", 8));
    const char raw[2] = {'x', 'y'};
    EXPECT_STREQ(Text<8>("abc").Append(raw), "abcxy");
}

TEST(CharArray, SplitKeepsEmptyPiecesButNoTrailingOne) {
    EXPECT_THAT((Pieces<32>(Text<64>(",a,,b,"))), testing::ElementsAre("", "a", "", "b"));
    EXPECT_THAT((Pieces<32>(Text<64>(""))), testing::IsEmpty());
    EXPECT_THAT((Pieces<32>(Text<64>("a"))), testing::ElementsAre("a"));
}

TEST(CharArray, SplitKeepsALongLastPieceWhole) {
    EXPECT_THAT((Pieces<64>(Text<64>("a," + std::string(61, 'b')))), testing::ElementsAre("a", std::string(61, 'b')));
}

TEST(CharArray, SplitCutsPiecesToTheirCapacity) {
    EXPECT_THAT((Pieces<4>(Text<64>("abcdef,gh"))), testing::ElementsAre("abc", "gh"));
}

TEST(CharArray, SplitAppendsToWhatIsThere) {
    std::vector<CQelCharArray<8>> pieces(1);
    Text<64>("a,b").SplitByChar(pieces, ',');
    EXPECT_THAT((std::vector<std::string>{pieces.begin(), pieces.end()}), testing::ElementsAre("", "a", "b"));
}

TEST(CharArray, ComparisonWithALiteralHasTheReversedSign) {
    EXPECT_EQ(Text<4096>("all").Comp("all"), 0);
    EXPECT_EQ(Text<4096>("alle").Comp("all"), -1);
    EXPECT_EQ(Text<4096>("al").Comp("all"), 1);
    EXPECT_EQ(Text<4096>("bll").Comp("all"), -1);
}

TEST(CharArray, ComparisonTakesBytesAsSignedAndEndsAtTheTerminator) {
    EXPECT_EQ(Text<8>("\x80").Comp("a"), 1);
    EXPECT_EQ(Text<8>("a").Comp("\x80"), -1);
    EXPECT_EQ(Text<8>("ab").Comp("ab\0c"), 0);
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

/// Between others whose bytes must not change.
struct Guarded {
    CQelCharArray<6> before = "guard";
    CQelCharArray<4> text = "abc";
    CQelCharArray<6> behind = "guard";
};

TEST(CharArray, DigitsFarBeyondTheArrayAreNotWritten) {
    const auto record = std::make_unique<Guarded>();
    record->text._ParseIntRight(1234567, UINT32_MAX);
    for (const std::size_t pos : {std::size_t{3}, std::size_t{4}, std::size_t{5}, SIZE_MAX}) {
        record->text.ParseInt(1234567, pos);
    }
    EXPECT_EQ(BytesOf(record->before), std::string("guard\0", 6));
    EXPECT_EQ(BytesOf(record->text), std::string("abc\0", 4));
    EXPECT_EQ(BytesOf(record->behind), std::string("guard\0", 6));
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

TEST(CharArray, CopyTakesNoMoreThanTheText) {
    auto target = Text<8>("zzzzzzz");
    auto source = Text<8>("abcdefg");
    source.Append("").At(3, '\0');
    EXPECT_EQ(BytesOf(target.CopyFrom(source, 1, 7)), std::string("bc\0zzzz\0", 8));
    EXPECT_EQ(BytesOf(target.CopyFrom(source)), std::string("abc\0zzz\0", 8));
    EXPECT_EQ(BytesOf(target.CopyFrom(source, 7, 7)), std::string("\0bc\0zzz\0", 8));
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
    EXPECT_EQ(Text<16>("ab129").ToInt32(2), 129);
    EXPECT_EQ(Text<16>("ab129").ToInt32(5), 0);
    EXPECT_EQ(Text<16>("xyz").ToChar(), 'x');
    EXPECT_EQ(Text<16>("65537").ToWord(), 1);
    EXPECT_EQ(Text<64>("9223372036854775807").ToInt64(), INT64_MAX);
    EXPECT_DOUBLE_EQ(Text<16>("2.5").ToDouble(), 2.5);
}

TEST(CharArray, BlanksAreTrimmedAtEitherEnd) {
    EXPECT_STREQ(Text<16>(" \ta b\r\n").Trim(), "a b");
    EXPECT_STREQ(Text<16>(" a ").TrimHeader(), "a ");
    EXPECT_STREQ(Text<16>(" a ").TrimTail(), " a");
    EXPECT_STREQ(Text<16>("   ").Trim(), "");
    EXPECT_STREQ(Text<16>("   ").TrimHeader(), "");
    EXPECT_STREQ(Text<16>("").Trim(), "");
    EXPECT_STREQ(Text<16>("a\v").Trim(), "a\v");
}

TEST(CharArray, FullViewIsTrimmedInFrontOfItsTerminator) {
    const auto raw = std::make_unique<std::array<char, 4>>(std::array<char, 4>{' ', 'b', 'c', 'd'});
    auto& view = CQelCharArray<4>::BuffCast(reinterpret_cast<char(&)[4]>(*raw));
    EXPECT_EQ(BytesOf(view.TrimTail()), std::string(" bc\0", 4));
    raw->fill('e');
    EXPECT_EQ(BytesOf(view.TrimHeader()), std::string("eee\0", 4));
}

TEST(CharArray, CharactersAreFoundFromEitherEnd) {
    const auto text = Text<16>("a.b.c");
    EXPECT_EQ(text.StrChr('.') - text.data(), 1);
    EXPECT_EQ(text.StrRChr('.') - text.data(), 3);
    EXPECT_EQ(text.StrChr('x'), nullptr);
    EXPECT_EQ(text.StrRChr('x'), nullptr);
    EXPECT_EQ(text.StrChr('a'), text.data());
    EXPECT_EQ(text.StrRChr('c'), text.data() + 4);
    EXPECT_EQ(text.StrChr('\0'), nullptr);
    EXPECT_EQ(text.StrRChr('\0'), nullptr);
}

TEST(CharArray, CaseIsChangedForLettersAlone) {
    EXPECT_STREQ(Text<16>("@AZ[`az{1").StrToLowercase(), "@az[`az{1");
    EXPECT_STREQ(Text<16>("@AZ[`az{1").StrToUppercase(), "@AZ[`AZ{1");
    EXPECT_STREQ(Text<16>("BYby").StrToLowercase(), "byby");
    EXPECT_STREQ(Text<16>("BYby").StrToUppercase(), "BYBY");
}

TEST(CharArray, NumberReplacesTheText) {
    EXPECT_STREQ(Text<8>("old").ParseFrom(int32_t{-5}), "-5");
    EXPECT_STREQ(Text<8>("old").ParseFrom(uint64_t{7}), "7");
    EXPECT_STREQ(Text<8>("old").ParseFrom(int64_t{-80}), "-80");
    EXPECT_STREQ(Text<8>("old").ParseFrom(uint32_t{9}), "9");
    EXPECT_STREQ(Text<8>("old")._StupidItoA(42), "42");
}

TEST(CharArray, NumberIsFilledUpInFront) {
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(uint32_t{42}, '0'), "00042");
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(uint32_t{0}, ' '), "    0");
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(int32_t{-7}, '0'), "-0007");
    EXPECT_STREQ(CQelCharArray<6>().FillCharParseFrom(int32_t{0}, '0'), "00000");
    EXPECT_STREQ(CQelCharArray<12>().FillCharParseFrom(INT32_MIN, '0'), "-2147483648");
    EXPECT_STREQ(CQelCharArray<4>().FillCharParseFrom(uint32_t{12345}, '0'), "345");
}

TEST(CharArray, WritesStayInFrontOfTheTerminator) {
    const auto record = std::make_unique<Guarded>();
    for (const std::size_t beyond : {std::size_t{3}, std::size_t{4}, std::size_t{100}, SIZE_MAX - 1, SIZE_MAX}) {
        record->text.At(beyond, 'x');
        EXPECT_EQ(BytesOf(record->text), std::string("abc\0", 4)) << beyond;
        record->text.ClearBufByPos(beyond, 'x');
    }
    EXPECT_EQ(BytesOf(record->before), std::string("guard\0", 6));
    EXPECT_EQ(BytesOf(record->text), std::string("abc\0", 4));
    EXPECT_EQ(BytesOf(record->behind), std::string("guard\0", 6));
    record->text.At(2, 'x');
    EXPECT_STREQ(record->text, "abx");
    record->text.ClearBufByPos(1, 'z');
    EXPECT_STREQ(record->text, "azz");
    std::memset(record->text.Data(), 'y', 4);
    record->text.ClearBufByPos(2, 'z');
    EXPECT_EQ(BytesOf(record->text), std::string("yyz\0", 4));
}

TEST(CharArray, EqualTextsAreEqualWhateverTheirCapacities) {
    EXPECT_TRUE(Text<8>("ab") == Text<16>("ab"));
    EXPECT_FALSE(Text<8>("ab") == Text<16>("abc"));
    EXPECT_FALSE(Text<8>("abc") == Text<16>("abd"));
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
    CQELOptional<int>().GetData(isValid);
    EXPECT_FALSE(isValid);
}

}  // namespace

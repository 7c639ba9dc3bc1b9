#include "base/text.h"

#include <gtest/gtest.h>

#include <limits>

namespace quenmoor {
namespace {

TEST(LeadingInteger, readsWhatANumberBeginsWithAndStopsThere)
{
    EXPECT_EQ(leadingInt64("2048\n"), 2048);
    EXPECT_EQ(leadingInt64(" \t\r\n 17 apples"), 17);
    EXPECT_EQ(leadingInt64("10\n20\n"), 10);
    EXPECT_EQ(leadingInt64("+5"), 5);
    EXPECT_EQ(leadingInt64("-5"), -5);
    EXPECT_EQ(leadingInt64("007"), 7);
    for (const char* const none : {"", " ", "x1", "+", "-", "+-5", "-+5", "- 5",
                                   "\xC2\xA0"
                                   "5"})
        EXPECT_EQ(leadingInt64(none), 0) << none;
}

TEST(LeadingInteger, saturatesAtTheFieldsOwnRange)
{
    EXPECT_EQ(leadingInt64("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(leadingInt64("9223372036854775808"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(leadingInt64("-9223372036854775809x"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(leadingInt64(std::string(5000, '9')), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(leadingInt32("+2147483648"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(leadingInt32("-2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(leadingInt32("-99999999999"), std::numeric_limits<std::int32_t>::min());
}

TEST(WholeNumber, isAllOfTheTextOrNothing)
{
    struct Row {
        const char* text;
        std::optional<std::int64_t> value;
    };
    for (const auto& [text, value] : {Row{"0", 0},
                                      {"-17", -17},
                                      {"007", 7},
                                      {"9223372036854775807", 9223372036854775807},
                                      {"9223372036854775808", std::nullopt},
                                      {"", std::nullopt},
                                      {"-", std::nullopt},
                                      {"+1", std::nullopt},
                                      {" 1", std::nullopt},
                                      {"1 ", std::nullopt},
                                      {"1x", std::nullopt},
                                      {"0x1", std::nullopt},
                                      {"1.0", std::nullopt}})
        EXPECT_EQ(wholeNumber(text), value) << '"' << text << '"';
}

TEST(PercentEncoding, keepsQueryCharactersAndWritesTheOthersByteForByte)
{
    EXPECT_EQ(percentEncodeQuery("a b#1.mov"), "a%20b%231.mov");
    EXPECT_EQ(percentEncodeQuery("-._~!$&'()*+,;=:@/?"), "-._~!$&'()*+,;=:@/?");
    EXPECT_EQ(percentEncodeQuery("%[]{}|\\^\"<>`\n"), "%25%5B%5D%7B%7D%7C%5C%5E%22%3C%3E%60%0A");
    EXPECT_EQ(percentEncodeQuery("\xC3\xA9\xFF"), "%C3%A9%FF");
}

TEST(PercentEncoding, comesBackAsItWasForEveryByte)
{
    std::string bytes;
    for (int c = 0; c < 256; ++c)
        bytes += static_cast<char>(c);
    EXPECT_EQ(percentDecode(percentEncodeQuery(bytes)), bytes);
    EXPECT_EQ(percentDecode("100%"), "100%");
    EXPECT_EQ(percentDecode("%4"), "%4");
    EXPECT_EQ(percentDecode("%zz%41%c3%A9"), "%zzA\xC3\xA9");
}

TEST(Utf8, refusesWhatTheStandardRefuses)
{
    for (const char* const good :
         {"", "a", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(isUtf8(good)) << percentEncodeQuery(good);
    for (const char* const bad :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x41", "\xE0\x9F\xBF", "\xE2\x82",
          "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"})
        EXPECT_FALSE(isUtf8(bad)) << percentEncodeQuery(bad);
}

TEST(DisplayText, replacesEachIllFormedPartAndNothingElse)
{
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(toValidUtf8("na\xC3\xAFve\nclip.mov"), "na\xC3\xAFve\nclip.mov");
    EXPECT_EQ(toValidUtf8("caf\xE9.mov"), "caf" + mark + ".mov");
    // the example of table 3-8 of the Unicode standard
    EXPECT_EQ(toValidUtf8("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"),
              "a" + mark + mark + mark + "b" + mark + "c" + mark + mark + "d");
}

TEST(DisplayLine, showsEveryControlCharacter)
{
    EXPECT_EQ(printableLine("na\xC3\xAFve\u00A0\u2400.mov"), "na\xC3\xAFve\u00A0\u2400.mov");
    EXPECT_EQ(printableLine(std::string("\0\t\n\r\x1b[2J\x1f \x7f", 11)),
              "\u2400\u2409\u240A\u240D\u241B[2J\u241F \u2421");
    EXPECT_EQ(printableLine("\xC2\x80\xC2\x9B\xC2\x9F|\xC2|\x9B"),
              "\uFFFD\uFFFD\uFFFD|\uFFFD|\uFFFD");
}

} // namespace
} // namespace quenmoor

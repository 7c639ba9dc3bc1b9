#include "base/text.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace quenmoor {
namespace {

TEST(WholeNumber, acceptsOnlyATextThatIsOneInteger)
{
    EXPECT_EQ(wholeNumber("007"), 7);
    EXPECT_EQ(wholeNumber("-17"), -17);
    EXPECT_EQ(wholeNumber("9223372036854775807"), INT64_MAX);
    for (const char* const text :
         {"9223372036854775808", "", "-", "+1", " 1", "1 ", "1x", "0x1", "1.0"})
        EXPECT_EQ(wholeNumber(text), std::nullopt) << '"' << text << '"';
}

TEST(PercentEncoding, encodesAllButQueryCharactersAndDecodesEveryByte)
{
    EXPECT_EQ(percentEncodeQuery("-._~!$&'()*+,;=:@/?aZ09"), "-._~!$&'()*+,;=:@/?aZ09");
    EXPECT_EQ(percentEncodeQuery("%[]{}|\\^\"<>` #\n"),
              "%25%5B%5D%7B%7D%7C%5C%5E%22%3C%3E%60%20%23%0A");
    EXPECT_EQ(percentDecode("100% %4 %zz%41%c3%A9%4"), "100% %4 %zzA\xC3\xA9%4");
}

TEST(Utf8, rejectsAndReplacesIllFormedSequences)
{
    for (const char* const text :
         {"", "a", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(isUtf8(text)) << percentEncodeQuery(text);
    for (const char* const text :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x41", "\xE0\x9F\xBF", "\xE2\x82",
          "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"})
        EXPECT_FALSE(isUtf8(text)) << percentEncodeQuery(text);
    EXPECT_EQ(toValidUtf8("na\u00EFve\n"), "na\u00EFve\n");
    EXPECT_EQ(toValidUtf8("caf\xE9.mov\xE2\x82"), "caf\uFFFD.mov\uFFFD");
}

TEST(Printable, replacesControlCharactersThatATerminalInterprets)
{
    EXPECT_EQ(printableLine("na\u00EFve\u00A0\u2400.mov"), "na\u00EFve\u00A0\u2400.mov");
    EXPECT_EQ(printableLine(std::string("\0\t\n\r\x1b[2J\x1f \x7f", 11)),
              "\u2400\u2409\u240A\u240D\u241B[2J\u241F \u2421");
    EXPECT_EQ(printableLine("\u0080\u009B\u009F|\xC2|\x9B"), "\uFFFD\uFFFD\uFFFD|\uFFFD|\uFFFD");
    EXPECT_EQ(
        printableLine("\u061C\u200E\u200F\u2028\u202E\u2066\u2069|\u200D\u2027\u202F\u2065\u206A"),
        "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD|\u200D\u2027\u202F\u2065\u206A");
    EXPECT_EQ(printableText("\xE9\x1b[2J\tb\nc\r\x7f\u009B"),
              "\uFFFD\u241B[2J\tb\nc\u240D\u2421\uFFFD");
}

} // namespace
} // namespace quenmoor

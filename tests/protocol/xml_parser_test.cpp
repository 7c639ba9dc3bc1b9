#include "protocol/xml_parser.h"
#include "tests/fakes/quiet_log.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace quenmoor {
namespace {

using Dictionary = XMLparser::Dictionary;

struct Reader : testing::Test {
    const SilentLog log;

    static Dictionary read(const std::string& text) { return XMLparser(text).dictionary(); }
};

TEST_F(Reader, assignsTextToTheElementThatStartedLast)
{
    EXPECT_EQ(read("<r>\n<a>1</a>\n<b>2</b>tail\n</r>"),
              (Dictionary{{"r", "\n"}, {"a", "1\n"}, {"b", "2tail\n"}}));
    EXPECT_EQ(read("<r><a>1</a><a>2</a></r>"), (Dictionary{{"a", "12"}}));
    EXPECT_EQ(read("<r><x:a k=\"v\">1</x:a><b/></r>"), (Dictionary{{"x:a", "1"}}));
    EXPECT_EQ(read("<r>a &amp; &#98;<![CDATA[<c>]]></r>"), (Dictionary{{"r", "a & b<c>"}}));
}

TEST_F(Reader, readsUtf8WhateverEncodingIsDeclared)
{
    EXPECT_EQ(read("<?xml version=\"1.0\" encoding=\"utf-16\"?><r>\xC3\xA9</r>"),
              (Dictionary{{"r", "\xC3\xA9"}}));
    EXPECT_EQ(read("<?xml version=\"1.0\" encoding=\"latin-1\"?><r>\xC3\xA9</r>"),
              (Dictionary{{"r", "\xC3\xA9"}}));
}

TEST_F(Reader, keepsTheEntriesBeforeAnError)
{
    EXPECT_EQ(read(""), Dictionary{});
    EXPECT_EQ(read("garbage"), Dictionary{});
    EXPECT_EQ(read("<r><a>1</a><b>2</c></r>"), (Dictionary{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(read("<r><a>12"), (Dictionary{{"a", "12"}}));
    EXPECT_EQ(read("<r><a>1</a>&unknown;<b>2</b></r>"), (Dictionary{{"a", "1"}}));
}

TEST_F(Reader, boundsTheTextOfNestedEntitiesAndAcceptsDeepNesting)
{
    std::string bomb = "<!DOCTYPE r [<!ENTITY e0 \"0123456789\">";
    for (int i = 1; i <= 12; ++i)
        bomb += fmt::format("<!ENTITY e{0} \"&e{1};&e{1};&e{1};&e{1};&e{1};\">", i, i - 1);
    std::size_t textSize = 0;
    for (const auto& [name, text] : read(bomb + "]><r>&e12;</r>"))
        textSize += text.size();
    EXPECT_LE(textSize, std::size_t{1} << 20U);

    std::string nested;
    for (int i = 0; i < 10000; ++i)
        nested += "<n>";
    EXPECT_EQ(read(nested + "deep"), (Dictionary{{"n", "deep"}}));
}

} // namespace
} // namespace quenmoor

#include "protocol/documents.h"
#include "protocol/xml_parser.h"
#include "tests/fakes/quiet_log.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace quenmoor {
namespace {

struct Documents : testing::Test {
    const RecordingLog log;

    static ResponseContainer response(const std::string& children)
    {
        return ResponseContainer{}.parseXML("<ResponseContainer>\n" + children +
                                            "</ResponseContainer>");
    }
};

TEST_F(Documents, areWrittenByteForByteWithNothingEscaped)
{
    const std::string declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    const std::string attributes = " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
                                   " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";
    const RequestContainer request{"a&b<c>\xFF.mov", "abc", 1048576};
    EXPECT_EQ(buildXML(request.XMLpayload(), "RequestContainer"),
              declaration + "<RequestContainer" + attributes +
                  "<size>1048576</size>\n<token>abc</token>\n"
                  "<originFilename>a&b<c>\xFF.mov</originFilename>\n</RequestContainer>");
    EXPECT_EQ(buildXML(ConfirmContainer{false, true}.XMLpayload(), "ConfirmContainer"),
              declaration + "<ConfirmContainer" + attributes +
                  "<resume>false</resume>\n<overwrite>true</overwrite>\n</ConfirmContainer>");
}

TEST_F(Documents, assignEachFieldOfAResponseAndLogTheReading)
{
    for (int field = 0; field < 3; ++field) {
        const auto flag = [field](int i) { return i == field ? "true" : "false"; };
        const auto read = response(fmt::format("<exists>{}</exists>\n<equal>{}</equal>\n"
                                               "<complete>{}</complete>\n<size>1234</size>\n"
                                               "<response>{}</response>\n",
                                               flag(0), flag(1), flag(2), field));
        EXPECT_EQ((std::array{read.exists, read.equal, read.complete}),
                  (std::array{field == 0, field == 1, field == 2}));
        EXPECT_EQ(read.size, 1234);
        EXPECT_EQ(read.response, field);
    }
    const RecordingLog reading;
    response("<exists>true</exists>");
    EXPECT_EQ(reading.system(),
              (std::vector<std::string>{
                  "XML document begins.", "XML element found: ResponseContainer",
                  "XML text content: \u240A", "XML element found: exists", "XML text content: true",
                  "XML document ends.", "Parser finished. Dictionary size: 2", "Dictionary size: 2",
                  "String value for exists: true", "Exists value: true"}));
}

TEST_F(Documents, readAMissingFlagAsTrueAndAMissingNumberAsZero)
{
    const auto empty = response("");
    EXPECT_TRUE(empty.exists && empty.equal && empty.complete);
    EXPECT_EQ(empty.size, 0);
    EXPECT_EQ(empty.response, 0);
    // The entry of an empty element is the line feed that follows it.
    EXPECT_FALSE(response("<equal></equal>\n").equal);
    // A document that breaks off: its end is missing, its beginning counts.
    const auto cut = response("<exists>false</exists>\n<equal>false</equal>\n<comp");
    EXPECT_FALSE(cut.exists || cut.equal);
    EXPECT_TRUE(cut.complete);
}

TEST_F(Documents, searchFlagsForTheWordTrueAndSaturateNumbers)
{
    EXPECT_TRUE(response("<exists>untrue</exists>").exists);
    EXPECT_FALSE(response("<exists>TRUE</exists>").exists);
    EXPECT_EQ(response("<size>10</size>\n<size>20</size>\n").size, 10);
    EXPECT_EQ(response("<size>99999999999999999999</size>").size,
              std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(response("<response>4294967297</response>").response,
              std::numeric_limits<std::int32_t>::max());
}

TEST_F(Documents, readTheFinishedSize)
{
    FinishedContainer finished;
    EXPECT_EQ(finished.size, -1);
    EXPECT_EQ(finished.parseXML("<F>\n<size>5368709120</size>\n</F>").size, 5368709120);
    EXPECT_EQ(finished.parseXML("not a document").size, 0);
    EXPECT_EQ(finished.parseXML("<F><size>-1</size></F>").size, -1);
    EXPECT_EQ(log.system().back(), "Size value: 18446744073709551615");
}

using Dictionary = XMLparser::Dictionary;

TEST_F(Documents, areReadAsAFlatMapUpToTheFirstError)
{
    const std::string accent = "\u00E9";
    const std::pair<std::string, Dictionary> rows[]{
        {"<r>\n<a>1</a>\n<b>2</b>t\n</r>", {{"r", "\n"}, {"a", "1\n"}, {"b", "2t\n"}}},
        {"<r><a>1</a><a>2</a></r>", {{"a", "12"}}},
        {"<r><x:a k=\"v\">1</x:a><b/></r>", {{"x:a", "1"}}},
        {"<r>a &amp; &#98;<![CDATA[<c>]]></r>", {{"r", "a & b<c>"}}},
        {"<?xml version=\"1.0\" encoding=\"utf-16\"?><r>" + accent + "</r>", {{"r", accent}}},
        {"<?xml version=\"1.0\" encoding=\"latin-1\"?><r>" + accent + "</r>", {{"r", accent}}},
        {"", {}},
        {"garbage", {}},
        {"<r><a>1</a><b>2</c></r>", {{"a", "1"}, {"b", "2"}}},
        {"<r><a>12", {{"a", "12"}}},
        {"<r><a>1</a>&unknown;<b>2</b></r>", {{"a", "1"}}}};
    for (const auto& [text, entries] : rows)
        EXPECT_EQ(XMLparser(text).dictionary(), entries) << text;
}

TEST_F(Documents, areReadWithBoundedTextDepthAndLog)
{
    std::string bomb = "<!DOCTYPE r [<!ENTITY e0 \"0123456789\">";
    for (int i = 1; i <= 12; ++i)
        bomb += fmt::format("<!ENTITY e{0} \"&e{1};&e{1};&e{1};&e{1};&e{1};\">", i, i - 1);
    const XMLparser expanded(bomb + "]><r>&e12;</r>");
    std::size_t textSize = 0;
    for (const auto& [name, text] : expanded.dictionary())
        textSize += text.size();
    EXPECT_LE(textSize, std::size_t{1} << 20U);

    std::string nested;
    std::string flat = "<r>";
    for (int i = 0; i < 5000; ++i) {
        nested += i < 4000 ? "<n>" : "";
        flat += "<a>x</a>";
    }
    EXPECT_EQ(XMLparser(nested + "deep").dictionary(), (Dictionary{{"n", "deep"}}));
    EXPECT_LE(XMLparser(flat).find("a")->size(), 2048U);
    EXPECT_LT(log.system().size(), 3 * 110U);
}

} // namespace
} // namespace quenmoor

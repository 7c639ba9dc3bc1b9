#include "protocol/documents.h"
#include "protocol/xml_parser.h"
#include "tests/fakes/quiet_log.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>

namespace quenmoor {
namespace {

TEST(Documents, areWrittenByteForByteWithNothingEscaped)
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

TEST(Documents, areReadWithTheirReadingLogged)
{
    // A missing flag counts as true, a missing number as 0.
    const std::pair<std::string, ResponseContainer> rows[]{
        {"", {true, true, true, 0, 0}},
        {"<equal>0</equal>\n<complete>0</complete>\n<size>1234</size>",
         {true, false, false, 1234, 0}},
        {"<exists>0</exists>\n<complete>0</complete>\n<response>1</response>",
         {false, true, false, 0, 1}},
        // The entry of an empty element is the line feed that follows it.
        {"<exists>TRUE</exists>\n<equal></equal>\n<complete>untrue</complete>",
         {false, false, true, 0, 0}},
        {"<size>99999999999999999999</size>\n<response>4294967297</response>",
         {true, true, true, INT64_MAX, INT32_MAX}}};
    for (const auto& [text, expected] : rows) {
        const auto read = ResponseContainer{}.parseXML("<R>\n" + text + "</R>");
        EXPECT_EQ(std::tie(read.exists, read.equal, read.complete, read.size, read.response),
                  std::tie(expected.exists, expected.equal, expected.complete, expected.size,
                           expected.response))
            << text;
        EXPECT_EQ(read.empty, text.empty());
    }
    const RecordingLog reading;
    ResponseContainer{}.parseXML("<R>\n<exists>true</exists></R>");
    EXPECT_EQ(reading.system(),
              (std::vector<std::string>{"XML document begins.", "XML element found: R",
                                        "XML text content: \u240A", "XML element found: exists",
                                        "XML text content: true", "XML document ends.",
                                        "Parser finished. Dictionary size: 2", "Dictionary size: 2",
                                        "String value for exists: true", "Exists value: true"}));

    FinishedContainer finished;
    EXPECT_EQ(finished.parseXML("<F>\n<size>5368709120</size>\n</F>").size, 5368709120);
    EXPECT_EQ(finished.parseXML("not a document").size, 0);
    EXPECT_EQ(finished.parseXML("<F><size>-1</size></F>").size, -1);
    EXPECT_EQ(reading.system().back(), "Size value: 18446744073709551615");
}

using Dictionary = XMLparser::Dictionary;

TEST(Documents, areReadAsAFlatMapUpToTheFirstError)
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
        {"<r><a>1</a><b>2</c></r>", {{"a", "1"}, {"b", "2"}}},
        {"<r><a>12", {{"a", "12"}}},
        {"<r><a>1</a>&unknown;<b>2</b></r>", {{"a", "1"}}}};
    for (const auto& [text, entries] : rows)
        EXPECT_EQ(XMLparser(text).dictionary(), entries) << text;
}

TEST(Documents, areReadWithBoundedTextDepthAndLog)
{
    const RecordingLog log;
    std::string bomb = "<!DOCTYPE r [<!ENTITY e0 \"0123456789\">";
    for (int i = 1; i <= 12; ++i)
        bomb += fmt::format("<!ENTITY e{0} \"&e{1};&e{1};&e{1};&e{1};&e{1};\">", i, i - 1);
    const XMLparser expanded(bomb + "]><r>&e12;</r>");
    EXPECT_LE(expanded.find("r")->size(), std::size_t{1} << 20U);

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

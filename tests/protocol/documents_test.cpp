#include "protocol/documents.h"
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
                  "XML text content: \n", "XML element found: exists", "XML text content: true",
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

} // namespace
} // namespace quenmoor

#include "protocol/documents.h"
#include "tests/fakes/quiet_log.h"

#include <gtest/gtest.h>

#include <limits>

namespace quenmoor {
namespace {

const std::string kAttributes = " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
                                " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";

struct Documents : testing::Test {
    const RecordingLog log;

    static ResponseContainer response(const std::string& children)
    {
        ResponseContainer response;
        response.parseXML("<ResponseContainer>\n" + children + "</ResponseContainer>");
        return response;
    }
};

TEST_F(Documents, announceAFileByteForByteWithNothingEscaped)
{
    const RequestContainer request{"a&b<c>\xFF.mov", "abc", 1048576};
    EXPECT_EQ(buildXML(request.XMLpayload(), "RequestContainer"),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<RequestContainer" +
                  kAttributes +
                  "<size>1048576</size>\n"
                  "<token>abc</token>\n"
                  "<originFilename>a&b<c>\xFF.mov</originFilename>\n"
                  "</RequestContainer>");
}

TEST_F(Documents, confirmInTwoLinesWithoutALineFeedAtTheEnd)
{
    EXPECT_EQ(buildXML(ConfirmContainer{false, true}.XMLpayload(), "ConfirmContainer"),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<ConfirmContainer" +
                  kAttributes +
                  "<resume>false</resume>\n<overwrite>true</overwrite>\n</ConfirmContainer>");
}

TEST_F(Documents, readAWholeResponse)
{
    const auto whole = response("<exists>true</exists>\n<equal>false</equal>\n"
                                "<complete>true</complete>\n<size>1234</size>\n"
                                "<response>1</response>\n");
    EXPECT_TRUE(whole.exists);
    EXPECT_FALSE(whole.equal);
    EXPECT_TRUE(whole.complete);
    EXPECT_EQ(whole.size, 1234);
    EXPECT_EQ(whole.response, 1);
}

TEST_F(Documents, takeAMissingFlagAsTrueAndAMissingNumberAsZero)
{
    const auto empty = response("");
    EXPECT_TRUE(empty.exists);
    EXPECT_TRUE(empty.equal);
    EXPECT_TRUE(empty.complete);
    EXPECT_EQ(empty.size, 0);
    EXPECT_EQ(empty.response, 0);

    // an empty element is there: its entry is the line feed that follows it
    EXPECT_FALSE(response("<equal></equal>\n").equal);
}

TEST_F(Documents, searchFlagsForTheWordAndReadNumbersFromTheirStart)
{
    EXPECT_TRUE(response("<exists>untrue</exists>").exists);
    EXPECT_FALSE(response("<exists>TRUE</exists>").exists);
    EXPECT_EQ(response("<size>10</size>\n<size>20</size>\n").size, 10);
    EXPECT_EQ(response("<size>99999999999999999999</size>").size,
              std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(response("<response>4294967297</response>").response,
              std::numeric_limits<std::int32_t>::max());
}

TEST_F(Documents, fillWhatPrecedesTheBreakOfACutOffResponse)
{
    ResponseContainer cut;
    cut.parseXML("<ResponseContainer>\n<exists>false</exists>\n<equal>false</equal>\n<comp");
    EXPECT_FALSE(cut.exists);
    EXPECT_FALSE(cut.equal);
    EXPECT_TRUE(cut.complete);
    EXPECT_EQ(cut.size, 0);
}

TEST_F(Documents, readTheFinishedSize)
{
    FinishedContainer finished;
    EXPECT_EQ(finished.size, -1);
    EXPECT_EQ(finished
                  .parseXML("<FinishedContainer>\n<size>5368709120</size>\n"
                            "</FinishedContainer>")
                  .size,
              5368709120);
    EXPECT_EQ(finished.parseXML("no document").size, 0);
    EXPECT_EQ(finished.parseXML("<F><size>-1</size></F>").size, -1);
    EXPECT_EQ(log.system().back(), "Size value: 18446744073709551615");
}

TEST_F(Documents, logTheirReadingInOrder)
{
    response("<exists>true</exists>");
    EXPECT_EQ(log.system(),
              (std::vector<std::string>{
                  "XML document begins.", "XML element found: ResponseContainer",
                  "XML text content: \n", "XML element found: exists", "XML text content: true",
                  "XML document ends.", "Parser finished. Dictionary size: 2", "Dictionary size: 2",
                  "String value for exists: true", "Exists value: true"}));
}

} // namespace
} // namespace quenmoor

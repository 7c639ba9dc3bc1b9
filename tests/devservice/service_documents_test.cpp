#include "devservice/service_documents.h"
#include "protocol/documents.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

std::string request(const std::string& name, const std::string& token, std::int64_t size)
{
    return buildXML(RequestContainer{name, token, size}.XMLpayload(), "RequestContainer");
}

} // namespace

TEST(RequestReader, anyNameComesOutAsItWentIn)
{
    for (const std::string name :
         {"clip.mov", "a&b <c>.mov", "line\nfeed.mov", "caf\xE9.mov", "</originFilename>", "",
          "<size>1</size><token>other</token>", "</originFilename>\n</RequestContainer>", " "}) {
        const auto read = readRequest(request(name, "t&<o>k", 5'000'000'000));
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(read->originFilename, name);
        EXPECT_EQ(read->token, "t&<o>k");
        EXPECT_EQ(read->size, 5'000'000'000);
    }
}

TEST(RequestReader, whatIsNotAWholeRequestIsNone)
{
    const std::string whole = request("clip.mov", "token", 1);
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(readRequest(whole.substr(0, length))) << length;
    EXPECT_FALSE(readRequest("<size>1x</size><token>t</token>"
                             "<originFilename>n</originFilename></RequestContainer>"));
}

TEST(RequestReader, aConfirmationEndsWhereTheFileBeginsAndNeedsBothFlags)
{
    const std::string document =
        buildXML(ConfirmContainer{true, false}.XMLpayload(), "ConfirmContainer");
    EXPECT_EQ(confirmationLength(document + "</ConfirmContainer>"), document.size());
    EXPECT_EQ(confirmationLength(document.substr(0, document.size() - 1)), std::nullopt);

    const auto confirmation = readConfirmation(document);
    ASSERT_TRUE(confirmation);
    EXPECT_TRUE(confirmation->resume);
    EXPECT_FALSE(confirmation->overwrite);
    EXPECT_FALSE(readConfirmation("<resume>true</resume>"));
    EXPECT_FALSE(readConfirmation("<resume>yes</resume><overwrite>false</overwrite>"));
}

} // namespace quenmoor

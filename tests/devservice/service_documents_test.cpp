#include "devservice/service_documents.h"

#include <gtest/gtest.h>

namespace quenmoor {

TEST(ServiceDocuments, aRequestIsReadOnlyWhenCompleteAndWithItsNameUnchanged)
{
    for (const std::string name :
         {"a&b <c>.mov", "line\nfeed.mov", "caf\xE9.mov", "</originFilename>", "", " ",
          "<size>1</size><token>other</token>", "</originFilename>\n</RequestContainer>"}) {
        const RequestContainer sent{name, "t&<o>k", 5'000'000'000};
        const std::string text = buildXML(sent.XMLpayload(), "RequestContainer");
        const auto read = readRequest(text);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(read->originFilename, name);
        EXPECT_EQ(read->token, "t&<o>k");
        EXPECT_EQ(read->size, 5'000'000'000);
        EXPECT_FALSE(readRequest(text.substr(0, text.size() - 1)));
    }
    EXPECT_FALSE(readRequest("<size>1x</size><token>t</token>"
                             "<originFilename>n</originFilename></RequestContainer>"));
    EXPECT_FALSE(readRequest("<size>1</size><originFilename>n</originFilename>"
                             "</RequestContainer>"));
}

TEST(ServiceDocuments, aConfirmationEndsAtItsFirstEndTagAndNeedsBothFlags)
{
    const std::string document =
        buildXML(ConfirmContainer{true, false}.XMLpayload(), "ConfirmContainer");
    EXPECT_EQ(confirmationLength(document + "</ConfirmContainer>"), document.size());
    EXPECT_EQ(confirmationLength(document.substr(0, document.size() - 1)), std::nullopt);
    const auto confirmation = readConfirmation(document);
    EXPECT_TRUE(confirmation && confirmation->resume && !confirmation->overwrite);
    EXPECT_FALSE(readConfirmation("<resume>true</resume>"));
    EXPECT_FALSE(readConfirmation("<resume>yes</resume><overwrite>false</overwrite>"));
}

} // namespace quenmoor

#include "ui/page/version_check.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

constexpr std::int32_t kGreatest = 2'147'483'647;

PageSignal publishing(const char* majorText, const char* minorText, const char* buildText)
{
    PageSignal signal;
    signal.macMajor = QString::fromUtf8(majorText);
    signal.macMinor = QString::fromUtf8(minorText);
    signal.macBuild = QString::fromUtf8(buildText);
    return signal;
}

std::string download(const char* url)
{
    PageSignal signal;
    signal.updateUrl = QString::fromUtf8(url);
    const std::optional<QUrl> found = downloadUrl(signal);
    return found ? found->toEncoded().toStdString() : "(none)";
}

TEST(ParseVersion, takesThreeNumbersAndNoFewer)
{
    EXPECT_EQ(parseVersion("1.4.2"), (Version{1, 4, 2}));
    EXPECT_EQ(parseVersion("1.4.2.7"), (Version{1, 4, 2}));
    EXPECT_EQ(parseVersion("1.4rc.2-beta"), (Version{1, 4, 2}));
    EXPECT_EQ(parseVersion(".."), (Version{0, 0, 0}));
    EXPECT_EQ(parseVersion("a.-2.99999999999"), (Version{0, -2, kGreatest}));
    for (const char* text : {"", "1", "1.4", "."})
        EXPECT_FALSE(parseVersion(text)) << text;
}

TEST(PageVersion, readsLeadingNumbersAndTakesWhatIsAbsentAsZero)
{
    EXPECT_EQ(pageVersion({}), Version{});
    EXPECT_EQ(pageVersion(publishing(" \n2 ", "3b", "")), (Version{2, 3, 0}));
    EXPECT_EQ(pageVersion(publishing("99999999999", "-99999999999", "\xC3\xA9")),
              (Version{kGreatest, -kGreatest - 1, 0}));
}

TEST(IsOutOfDate, comparesFieldByField)
{
    const Version client{2, 3, 4};
    EXPECT_FALSE(isOutOfDate(client, {2, 3, 4}));
    EXPECT_TRUE(isOutOfDate(client, {2, 3, 5}));
    EXPECT_FALSE(isOutOfDate(client, {2, 2, 9}));
    EXPECT_FALSE(isOutOfDate(client, {1, 9, 9}));
    EXPECT_TRUE(isOutOfDate(client, {3, 0, 0}));
    EXPECT_FALSE(isOutOfDate({0, 0, 0}, pageVersion({})));
    EXPECT_FALSE(isOutOfDate({kGreatest, 0, 0}, {-1, 0, 0}));
}

TEST(DownloadUrl, leadsOnlyToTheWeb)
{
    EXPECT_EQ(download(" https://a.example/x?y=1 \n"), "https://a.example/x?y=1");
    EXPECT_EQ(download("HTTP://a.example/"), "http://a.example/");
    for (const char* url :
         {"", "a.example/x", "//a.example", "https://", "https:a", "file:///bin/sh",
          "javascript:alert(1)", "smb://a.example/x", "https://a b/", "https://%"})
        EXPECT_EQ(download(url), "(none)") << url;
    EXPECT_FALSE(downloadUrl({}));
}

} // namespace
} // namespace quenmoor

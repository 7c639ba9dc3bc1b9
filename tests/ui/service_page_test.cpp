#include "ui/service_page.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

constexpr std::uint16_t kPort = 8443;

std::string text(const std::optional<QString>& session, const std::string& name, std::int64_t size)
{
    const QString base = baseUrl(QStringLiteral("service.example"), kPort);
    const QUrl url = pageUrl(base, session, name, size);
    EXPECT_EQ(url.host(), QStringLiteral("service.example"));
    EXPECT_EQ(url.port(), kPort);
    const std::string whole = url.toEncoded().toStdString();
    EXPECT_TRUE(whole.starts_with(base.toStdString() + "?session=")) << whole;
    return whole.substr(base.toStdString().size());
}

TEST(BaseUrl, leavesOutTheUsualPort)
{
    EXPECT_EQ(baseUrl(QStringLiteral("a.example"), 443).toStdString(),
              "https://a.example/files/upload/index.html");
    EXPECT_EQ(baseUrl(QStringLiteral("localhost"), 8443).toStdString(),
              "https://localhost:8443/files/upload/index.html");
    EXPECT_EQ(baseUrl(QStringLiteral("::1"), 8443).toStdString(),
              "https://[::1]:8443/files/upload/index.html");
}

TEST(PageUrl, writesAnAbsentSessionAsNull)
{
    EXPECT_EQ(text(std::nullopt, "a", 0), "?session=(null)&filename=a&size=0");
    EXPECT_EQ(text(QString(), "a", 0), "?session=&filename=a&size=0");
}

TEST(PageUrl, encodesTheBytesOfTheNameAndLeavesQueryCharacters)
{
    const QString session = QStringLiteral("Ab9-_~%2B+/=");
    EXPECT_EQ(text(session, "a b", 9'223'372'036'854'775'807),
              "?session=Ab9-_~%2B+/=&filename=a%20b&size=9223372036854775807");
    EXPECT_EQ(text(session, "a&b=c+d?e'f", 1), "?session=Ab9-_~%2B+/=&filename=a&b=c+d?e'f&size=1");
    EXPECT_EQ(text(session, "\xC3\xA9\xFF%41#\"<[{|}]>\n", 1),
              "?session=Ab9-_~%2B+/=&filename="
              "%C3%A9%FF%2541%23%22%3C%5B%7B%7C%7D%5D%3E%0A&size=1");
}

TEST(PageUrl, keepsAHostileSessionInItsQuery)
{
    EXPECT_EQ(text(QStringLiteral("@evil.example/"), "a", 1),
              "?session=@evil.example/&filename=a&size=1");
    EXPECT_EQ(text(QStringLiteral("a#b"), "a", 1), "?session=a#b&filename=a&size=1");
    EXPECT_EQ(text(QStringLiteral(" \r\n\""), "a", 1), "?session=%20%0D%0A%22&filename=a&size=1");
    EXPECT_EQ(text(QStringLiteral("%"), "a", 1), "?session=%25&filename=a&size=1");
    EXPECT_EQ(text(QString(QChar(0xD800)), "a", 1), "?session=?&filename=a&size=1");
}

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

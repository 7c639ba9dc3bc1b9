#include "ui/page/page_url.h"

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

} // namespace
} // namespace quenmoor

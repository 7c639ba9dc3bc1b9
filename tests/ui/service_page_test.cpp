#include "tests/fakes/quiet_log.h"
#include "ui/service_page.h"

#include <gtest/gtest.h>

#include <tuple>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

TEST(BaseUrl, leavesOutTheDefaultPort)
{
    EXPECT_EQ(baseUrl(u"a.example"_s, 443), u"https://a.example/files/upload/index.html"_s);
    EXPECT_EQ(baseUrl(u"::1"_s, 8443), u"https://[::1]:8443/files/upload/index.html"_s);
}

TEST(PageUrl, encodesTheNameAndKeepsAnySessionInTheQuery)
{
    const QString base = baseUrl(u"service.example"_s, 8443);
    for (const auto& [given, name, size, query] :
         std::vector<std::tuple<std::optional<QString>, std::string, std::int64_t, std::string>>{
             {std::nullopt, "a", 0, "?session=(null)&filename=a&size=0"},
             {QString(), "a", 0, "?session=&filename=a&size=0"},
             {u"Ab9-_~%2B+/="_s, "a b&c=d+e?f'g\xFF%41#\"<[{|}]>\n", INT64_MAX,
              "?session=Ab9-_~%2B+/=&filename=a%20b&c=d+e?f'g%FF%2541%23%22%3C%5B%7B%7C%7D%5D%3E%0A"
              "&size=9223372036854775807"},
             {u"@evil.example/a#b"_s, "a", 1, "?session=@evil.example/a#b&filename=a&size=1"},
             {u"5%#%2"_s, "%", 1, "?session=5%25#%252&filename=%25&size=1"},
             {u" \r\n\"%"_s, "a", 1, "?session=%20%0D%0A%22%25&filename=a&size=1"},
             {QString(QChar(0xD800)), "a", 1, "?session=?&filename=a&size=1"}}) {
        const QUrl url = pageUrl(base, given, name, size);
        EXPECT_EQ(url.host(), u"service.example"_s);
        EXPECT_EQ(url.toEncoded().toStdString(), base.toStdString() + query);
    }
}

TEST(PageLog, omitsWhatExceedsItsRateAndLogsHowMuch)
{
    const RecordingLog recording;
    PageLog log;
    const EventLimit::Time start;
    for (int i = 0; i < 1000; ++i)
        log.write("title", start);
    EXPECT_EQ(recording.system().size(), 100U);
    for (int i = 0; i < 9; ++i)
        log.write("later", start + std::chrono::seconds(1));
    EXPECT_EQ(recording.system().size(), 106U);
    EXPECT_EQ(recording.system()[100], "900 lines about the page were omitted.");
}

TEST(Version, isThreeLeadingNumbersAndComparedFieldByField)
{
    EXPECT_EQ(parseVersion("1.4.2.7"), (Version{1, 4, 2}));
    EXPECT_EQ(parseVersion("1.4rc.2-beta"), (Version{1, 4, 2}));
    for (const char* text : {"", "1", "1.4", "."})
        EXPECT_FALSE(parseVersion(text)) << text;

    EXPECT_EQ(pageVersion({{}, {}, {}, u" \n2 "_s, {}, u"-99b"_s, {}, 0}), (Version{2, 0, -99}));

    const Version client{2, 3, 4};
    for (const Version& newest : {Version{2, 3, 5}, {2, 4, 0}, {3, 0, 0}})
        EXPECT_TRUE(isOutOfDate(client, newest));
    for (const Version& newest : {client, {2, 2, 9}, {1, 9, 9}, {-1, 9, 9}})
        EXPECT_FALSE(isOutOfDate(client, newest));
}

TEST(DownloadUrl, isAbsentUnlessItIsAWebUrl)
{
    PageSignal signal;
    EXPECT_FALSE(downloadUrl(signal));
    signal.updateUrl = u" https://a.example/x?y=1 \n"_s;
    EXPECT_EQ(downloadUrl(signal), QUrl(u"https://a.example/x?y=1"_s));
    for (const char* url :
         {"", "a.example/x", "//a.example", "https://", "https:a", "file:///bin/sh",
          "javascript:alert(1)", "smb://a.example/x", "https://a b/", "https://%"}) {
        signal.updateUrl = QString::fromUtf8(url);
        EXPECT_FALSE(downloadUrl(signal)) << url;
    }
}

} // namespace
} // namespace quenmoor

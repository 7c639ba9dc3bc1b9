#include "ui/service_page.h"

#include "base/log.h"
#include "base/text.h"

#include <QJsonObject>
#include <QRegularExpression>
#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace quenmoor {
namespace {

constexpr std::uint16_t kHttpsPort = 443;

std::int32_t number(const std::optional<QString>& text)
{
    return text ? leadingInt32(text->toStdString()) : 0;
}

// Returns nothing for a value that is not a text, and for one that is too long.
std::optional<QString> valueOf(const QJsonObject& message, const char* key, PageLog& log)
{
    const QJsonValue value = message.value(QLatin1StringView(key));
    if (!value.isString())
        return std::nullopt;
    QString text = value.toString();
    if (text.size() > kMaxPageText) {
        log.write(
            fmt::format("The value of the page's element {} is too long and is ignored.", key));
        return std::nullopt;
    }
    return text;
}

} // namespace

PageSignal readPageSignal(const QJsonObject& message, PageLog& log)
{
    PageSignal signal;
    signal.title = message.value(QLatin1StringView("title")).toString().left(kMaxPageText);
    signal.session = valueOf(message, "session", log);
    signal.token = valueOf(message, "token", log);
    signal.macMajor = valueOf(message, "mac_major", log);
    signal.macMinor = valueOf(message, "mac_minor", log);
    signal.macBuild = valueOf(message, "mac_build", log);
    signal.updateUrl = valueOf(message, "update_url", log);
    return signal;
}

bool EventLimit::take(Time now, double events)
{
    const std::chrono::duration<double> passed = now - latest_.value_or(now);
    latest_ = now;
    available_ = std::min(burst_, available_ + passed.count() * perSecond_);
    if (available_ < events)
        return false;
    available_ -= events;
    return true;
}

void PageLog::write(std::string_view line, EventLimit::Time now)
{
    if (!limit_.take(now)) {
        ++omitted_;
        return;
    }
    if (omitted_ > 0)
        logSystem("{} lines about the page were omitted.", std::exchange(omitted_, 0));
    writeSystemLine(line);
}

QString baseUrl(const QString& host, std::uint16_t port)
{
    QUrl url;
    url.setScheme(QStringLiteral("https"));
    url.setHost(host);
    if (port != kHttpsPort)
        url.setPort(port);
    url.setPath(QStringLiteral("/files/upload/index.html"));
    return QString::fromLatin1(url.toEncoded());
}

QUrl pageUrl(const QString& baseUrl, const std::optional<QString>& session,
             const std::string& filename, std::int64_t size)
{
    // With a single "%" that starts no escape, QUrl would encode every "%" of the URL.
    static const QRegularExpression kStrayPercent(QStringLiteral("%(?![0-9A-Fa-f]{2})"));
    QString sessionText = session.value_or(QStringLiteral("(null)"));
    sessionText.replace(kStrayPercent, QStringLiteral("%25"));

    QByteArray url = baseUrl.toUtf8();
    url += "?session=" + sessionText.toUtf8();
    url += "&filename=" + QByteArray::fromStdString(percentEncodeQuery(filename));
    url += "&size=" + QByteArray::number(static_cast<qlonglong>(size));
    // The tolerant mode makes a valid URL out of any session.
    return QUrl::fromEncoded(url, QUrl::TolerantMode);
}

std::optional<Version> parseVersion(std::string_view text)
{
    std::array<std::int32_t, 3> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const std::size_t dot = text.find('.');
        const bool isLast = i + 1 == numbers.size();
        if (dot == std::string_view::npos && !isLast)
            return std::nullopt;
        numbers[i] = leadingInt32(text.substr(0, dot));
        if (!isLast)
            text.remove_prefix(dot + 1);
    }
    return Version{numbers[0], numbers[1], numbers[2]};
}

Version pageVersion(const PageSignal& signal)
{
    return {number(signal.macMajor), number(signal.macMinor), number(signal.macBuild)};
}

bool isOutOfDate(const Version& client, const Version& newest)
{
    return std::tie(client.major, client.minor, client.build) <
           std::tie(newest.major, newest.minor, newest.build);
}

std::optional<QUrl> downloadUrl(const PageSignal& signal)
{
    if (!signal.updateUrl)
        return std::nullopt;
    const QUrl url(signal.updateUrl->trimmed(), QUrl::StrictMode);
    const bool isWeb = url.scheme() == u"https" || url.scheme() == u"http";
    if (!url.isValid() || !isWeb || url.host().isEmpty())
        return std::nullopt;
    return url;
}

} // namespace quenmoor

#include "ui/page/page_url.h"

#include "base/text.h"

namespace quenmoor {
namespace {

constexpr std::uint16_t kHttpsPort = 443;

} // namespace

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
    QByteArray url = baseUrl.toUtf8();
    url += "?session=" + session.value_or(QStringLiteral("(null)")).toUtf8();
    url += "&filename=" + QByteArray::fromStdString(percentEncodeQuery(filename));
    url += "&size=" + QByteArray::number(static_cast<qlonglong>(size));
    // Encoded already. Tolerant, so that a session of any characters still gives a URL.
    return QUrl::fromEncoded(url, QUrl::TolerantMode);
}

} // namespace quenmoor

#include "ui/page/version_check.h"

#include "base/text.h"

#include <array>
#include <tuple>

namespace quenmoor {
namespace {

std::int32_t number(const std::optional<QString>& text)
{
    return text ? leadingInt32(text->toStdString()) : 0;
}

} // namespace

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

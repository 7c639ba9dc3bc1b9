#include "queue/file_url.h"

#include "base/text.h"

namespace quenmoor {
namespace {

constexpr std::string_view kScheme = "file://";
constexpr std::string_view kLocalHost = "localhost";

} // namespace

FileUrl FileUrl::fromPath(const std::filesystem::path& path)
{
    return FileUrl(std::string(kScheme) + percentEncodeQuery(path.native()));
}

std::optional<FileUrl> FileUrl::parse(std::string_view url)
{
    if (!url.starts_with(kScheme))
        return std::nullopt;
    url.remove_prefix(kScheme.size());
    if (url.starts_with(kLocalHost))
        url.remove_prefix(kLocalHost.size());
    if (!url.starts_with('/'))
        return std::nullopt;
    const std::string path = percentDecode(url);
    if (path.find('\0') != std::string::npos)
        return std::nullopt;
    return fromPath(path);
}

std::filesystem::path FileUrl::path() const
{
    return percentDecode(std::string_view(text_).substr(kScheme.size()));
}

} // namespace quenmoor

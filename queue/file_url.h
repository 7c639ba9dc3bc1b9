// Names one file of this machine as a URL of the "file" scheme.
//
// A name that holds "?" keeps it unencoded, as "?" is a query character. A file URL here has no
// query: everything behind "file://" is the path, so such a name still means that very file.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

class FileUrl {
public:
    // `path` is absolute; its bytes need not be UTF-8.
    static FileUrl fromPath(const std::filesystem::path& path);

    // A URL that a toolkit or another program hands over: "file:///a%20b", also with the host
    // "localhost". Nothing for any other scheme or host, for a relative path, and when the
    // decoded path holds a NUL byte.
    static std::optional<FileUrl> parse(std::string_view url);

    const std::string& text() const { return text_; }
    std::filesystem::path path() const;

    // The last path component, byte for byte.
    std::string filename() const { return path().filename().string(); }

    bool operator==(const FileUrl&) const = default;

private:
    explicit FileUrl(std::string text) : text_(std::move(text)) {}

    std::string text_;
};

} // namespace quenmoor

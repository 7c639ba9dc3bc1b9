// A URL of the "file" scheme for one file of this machine.
//
// The URL has no query: everything after "file://" is the path. A "?" in a file name is therefore
// not encoded and still belongs to the path.
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

    // Reads a URL from a toolkit or another program, e.g. "file:///a%20b"; the host may be
    // "localhost". Returns nothing for any other scheme or host, for a relative path, and if the
    // decoded path contains a NUL byte.
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

// One queued file.
#pragma once

#include "queue/file_url.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quenmoor {

class InfoContainer {
public:
    // The token stays unset until the service page issues one.
    InfoContainer(FileUrl file, std::int64_t size) : size_(size), file_(std::move(file)) {}

    // Bytes, as the file system said when the file was queued.
    std::int64_t size() const { return size_; }
    void setSize(std::int64_t size) { size_ = size; }
    const std::optional<std::string>& token() const { return token_; }
    void setToken(std::optional<std::string> token) { token_ = std::move(token); }
    const FileUrl& file() const { return file_; }
    void setFile(FileUrl file) { file_ = std::move(file); }

private:
    std::int64_t size_;
    std::optional<std::string> token_;
    FileUrl file_;
};

} // namespace quenmoor

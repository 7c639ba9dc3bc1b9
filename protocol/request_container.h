// Announces one file to the transfer server. Client to server, once per attempt.
#pragma once

#include <cstdint>
#include <string>

namespace quenmoor {

class RequestContainer {
public:
    // `originFilename` is the file's name on disk, byte for byte; `size` counts bytes.
    RequestContainer(std::string originFilename, std::string token, std::int64_t size);

    const std::string& originFilename() const { return originFilename_; }
    void setOriginFilename(std::string originFilename)
    {
        originFilename_ = std::move(originFilename);
    }
    const std::string& token() const { return token_; }
    void setToken(std::string token) { token_ = std::move(token); }
    std::int64_t size() const { return size_; }
    void setSize(std::int64_t size) { size_ = size; }

    // Name and token go in as they are. A name with "&" or "<" is no well-formed XML; the server
    // takes the line, not the entity, and would store an escaped name under the wrong one.
    std::string XMLpayload() const;

private:
    std::string originFilename_;
    std::string token_;
    std::int64_t size_;
};

} // namespace quenmoor

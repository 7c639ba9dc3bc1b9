// The server's answer to an announced file. Server to client.
//
// What the server leaves out counts as "true" for a flag and as 0 for a number.
#pragma once

#include <cstdint>
#include <string_view>

namespace quenmoor {

class ResponseContainer {
public:
    // Fills every field from a received document; one that breaks off in the middle fills them
    // from what came before. Returns this record.
    ResponseContainer& parseXML(std::string_view text);

    // The server already holds a copy under this name.
    bool exists() const { return exists_; }
    void setExists(bool exists) { exists_ = exists; }
    // The copy is the announced file.
    bool equal() const { return equal_; }
    void setEqual(bool equal) { equal_ = equal; }
    // The copy was uploaded to its end.
    bool complete() const { return complete_; }
    void setComplete(bool complete) { complete_ = complete; }
    // Bytes of the copy, as the server says; may be any number.
    std::int64_t size() const { return size_; }
    void setSize(std::int64_t size) { size_ = size; }
    // The server's status code; 1 refuses the upload.
    std::int32_t response() const { return response_; }
    void setResponse(std::int32_t response) { response_ = response; }

private:
    bool exists_ = false;
    bool equal_ = false;
    bool complete_ = false;
    std::int64_t size_ = -1;
    std::int32_t response_ = -1;
};

} // namespace quenmoor

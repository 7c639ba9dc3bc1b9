// The server's closing word: how many bytes it now holds. Server to client.
#pragma once

#include <cstdint>
#include <string_view>

namespace quenmoor {

class FinishedContainer {
public:
    // Fills the size from a received document, 0 when it has none. Returns this record.
    FinishedContainer& parseXML(std::string_view text);

    std::int64_t size() const { return size_; }
    void setSize(std::int64_t size) { size_ = size; }

private:
    std::int64_t size_ = -1;
};

} // namespace quenmoor

// The file that is uploaded, read by position.
//
// A file may disappear, become shorter, fail or be replaced by a named pipe while it is uploaded.
// Each of these gives an empty read with its reason, and never blocks on the pipe. A read after a
// failure opens the file again, so that it succeeds once a network share is back.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

// Why a file cannot be sent.
struct SourceFault {
    std::string why; // in words, without a final full stop
    bool lasting;    // the file is gone, too short or not a plain file: a retry finds the same
};

// Any thread. Returns nothing if `path` can be sent as a plain file of at least `size` bytes. Opens
// the file and reads nothing.
std::optional<SourceFault> sourceFault(const std::filesystem::path& path, std::int64_t size);

// One thread.
class SourceFile {
public:
    explicit SourceFile(std::filesystem::path path) : path_(std::move(path)) {}
    ~SourceFile() { close(); }
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    // Reads up to the size of `buffer` from `offset` on. Returns the number of bytes; 0 after a
    // failure and at the end of the file.
    std::size_t read(std::int64_t offset, std::span<char> buffer);

    // Why the latest read failed, without a final full stop; empty if it did not.
    const std::string& failure() const { return failure_; }

    // Without an effect if the file is closed.
    void close();

private:
    bool open();

    const std::filesystem::path path_;
    int descriptor_ = -1;
    std::string failure_;
};

} // namespace quenmoor

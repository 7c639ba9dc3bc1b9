// The open folders of one upload store, and the records in them.
//
// Every file of the store is reached relative to one of these descriptors, so that no name and no
// symbolic link leads out of the store.
//
// A record carries the version of the format in which the upload is stored. Nothing else that the
// service keeps needs one: a part holds the bytes of the upload and no others, the certificate and
// its key are PEM files, and the key of the tokens is never stored.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace quenmoor {

// Owns one file descriptor; a negative one counts as none.
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int descriptor) : descriptor_(descriptor) {}
    ~FileHandle() { reset(); }
    FileHandle(FileHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept
    {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

    void reset()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = -1;
    }

private:
    int descriptor_ = -1;
};

struct StoreFolders {
    FileHandle root;    // finished files, under their own names
    FileHandle parts;   // unfinished files
    FileHandle records; // for each unfinished file, the size of the whole
    FileHandle drafts;  // records that are being written
};

// The version that this program reads and writes. A record without a version has version 1. Later
// versions must remain JSON objects with a number "version", of at most 64 KiB.
inline constexpr std::uint64_t kRecordVersion = 1;

// What a record contains; nothing at all if it is missing or not valid.
struct UploadRecord {
    std::optional<std::int64_t> size;            // of the whole file
    std::optional<std::uint64_t> unknownVersion; // the upload belongs to another program
};

// Returns the record of `name`. An unfinished file without a valid record, or a record without an
// unfinished file, identifies no upload.
[[nodiscard]] UploadRecord readRecord(const StoreFolders& folders, const std::string& name);

// Replaces the record of `name` atomically: after a crash either the old one or the new one
// exists. Waits for the disk. Returns false, with errno set, if writing failed.
[[nodiscard]] bool writeRecord(const StoreFolders& folders, const std::string& name,
                               std::int64_t size);

void removeRecord(const StoreFolders& folders, const std::string& name);

// Writes `count` bytes at the descriptor's position. Returns false, with errno set, if writing
// failed; some of the bytes may have been written then.
[[nodiscard]] bool writeAll(int descriptor, const char* bytes, std::size_t count);

} // namespace quenmoor

// One upload into the store: what is held of it, and the way to bring in the rest.
#pragma once

#include "devservice/file_handle.h"

#include <cstdint>
#include <span>
#include <string>

namespace quenmoor {

class UploadStore;
struct StoreFolders;

// What lies under an announced name. An unfinished copy hides a finished one until it replaces
// it or is emptied; one without a byte counts as none.
struct HeldCopy {
    bool exists = false;
    bool equal = false;    // the announced size is that of the whole file
    bool complete = false; // lies under its own name
    std::int64_t size = 0; // bytes on disk
};

// Holds its name from UploadStore::upload() to its end; what came in until then stays on disk.
// Used by one thread. After false, error() says why, and nothing further may be called.
class StoredUpload {
public:
    ~StoredUpload();
    StoredUpload(const StoredUpload&) = delete;
    StoredUpload& operator=(const StoredUpload&) = delete;

    // As it was found when the upload was opened.
    const HeldCopy& held() const { return held_; }

    // Goes on behind the held bytes. False when the copy is not equal: its bytes belong to
    // another file. A complete copy has nothing due.
    [[nodiscard]] bool resume();

    // Begins an empty copy. A finished file stays until complete() replaces it.
    [[nodiscard]] bool startOver();

    // Bytes still missing; requires resume() or startOver().
    std::int64_t due() const { return size_ - position_; }

    // Bytes held.
    std::int64_t position() const { return position_; }

    // Requires no more than due() bytes. May wait for the disk.
    [[nodiscard]] bool append(std::span<const char> bytes);

    // Brings everything to the disk and gives the file its name. Requires due() to be 0.
    [[nodiscard]] bool complete();

    const std::string& error() const { return error_; }

private:
    friend class UploadStore;

    StoredUpload(UploadStore& store, std::string name, std::int64_t size);

    [[nodiscard]] bool look();
    [[nodiscard]] bool openPart(int flags);
    void writeBehind();
    bool fail(const char* what);

    // Set once at construction.
    UploadStore& store_;
    const StoreFolders& folders_;
    const std::string name_;
    const std::int64_t size_;

    HeldCopy held_;
    FileHandle part_; // none while nothing is written
    std::int64_t position_ = 0;
    std::int64_t behind_ = 0; // up to here the disk was told to write
    std::string error_;
};

} // namespace quenmoor

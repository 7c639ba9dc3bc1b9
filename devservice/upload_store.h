// Resumable storage for uploads under one folder.
//
// A finished file has its own name in the folder. An unfinished one is in .quenmoor/parts, with a
// record of the size of the whole file in .quenmoor/records, and is renamed once it is complete. A
// process that is killed at any moment leaves a copy that can be resumed, and never one with bytes
// of two uploads.
#pragma once

#include "devservice/store_folders.h"
#include "devservice/tokens.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace quenmoor {

class UploadStore;

// The store's own folder under the root. No upload may have this name.
inline constexpr const char* kReservedFolder = ".quenmoor";

// Whether an upload may have this name: 1 to 255 bytes, without a slash or NUL byte, not a
// folder's.
[[nodiscard]] bool isStorableName(std::string_view name);

// The copy that exists under an announced name. An unfinished copy hides a finished one until it
// replaces it or is emptied; an unfinished copy without bytes does not count.
struct HeldCopy {
    bool exists = false;
    bool equal = false;    // the announced size is the size of the whole file
    bool complete = false; // finished, under its own name
    std::int64_t size = 0; // bytes on disk

    bool operator==(const HeldCopy&) const = default;
};

// One upload into the store. Has exclusive use of its name from UploadStore::upload() until it is
// destroyed; the bytes appended until then stay on disk. Used by one thread. After a function
// returned false, error() has the reason and no other function may be called.
class StoredUpload {
public:
    ~StoredUpload();
    StoredUpload(const StoredUpload&) = delete;
    StoredUpload& operator=(const StoredUpload&) = delete;

    // The copy as it was when the upload was opened.
    const HeldCopy& held() const { return held_; }

    // Continues the held copy. Returns false if the copy is not equal, because its bytes belong to
    // another file. A complete copy has no missing bytes.
    [[nodiscard]] bool resume();

    // Starts an empty copy. A finished file remains until complete() replaces it.
    [[nodiscard]] bool startOver();

    // The bytes that are still missing. Requires resume() or startOver().
    std::int64_t missing() const { return size_ - position_; }

    // The bytes that are held.
    std::int64_t position() const { return position_; }

    // Requires at most missing() bytes. May wait for the disk.
    [[nodiscard]] bool append(std::span<const char> bytes);

    // Waits until all bytes are on disk, then renames the copy to the file's own name. Requires
    // missing() to be 0.
    [[nodiscard]] bool complete();

    const std::string& error() const { return error_; }

private:
    friend class UploadStore;

    StoredUpload(UploadStore& store, std::string name, std::int64_t size);

    [[nodiscard]] bool inspect();
    [[nodiscard]] bool hasSpaceFor(std::int64_t bytes) const;
    [[nodiscard]] bool openPart(int flags);
    void flushInBackground();
    bool fail(const std::string& what); // a client that retries at once would fail again
    bool describe(const std::string& what);

    // Set once at construction.
    UploadStore& store_;
    const StoreFolders& folders_;
    const std::string name_;
    const std::int64_t size_;

    HeldCopy held_;
    FileHandle part_; // none while nothing is written
    std::int64_t position_ = 0;
    std::int64_t flushedUpTo_ = 0; // the disk was asked to write the bytes before this offset
    std::string error_;
};

// Any thread. Must outlive the uploads that it opened.
class UploadStore {
public:
    // Creates the folder and its subfolders if they are missing and locks the folder for this
    // process. Returns nullptr, with a sentence in `error`, if that fails or another process has
    // the lock.
    [[nodiscard]] static std::unique_ptr<UploadStore>
    open(const std::filesystem::path& root, std::string& error,
         ServiceClock now = std::chrono::steady_clock::now);

    // Reserves `name` for one writer and inspects the copy that exists. Changes nothing on disk.
    //
    // `name` is any file name of 1 to 255 bytes. Returns nullptr, with the reason in `error`, if
    // the name would leave the folder, is the store's own or is in use by another writer, if the
    // size is negative, if something other than a regular file has the name, if its record has a
    // version of another program, which can still resume the upload, if the disk has no space for
    // the missing bytes, or for a minute after an error of the disk: a client that has sent bytes
    // retries at once, so that a full disk would keep it sending them without end.
    [[nodiscard]] std::unique_ptr<StoredUpload> upload(const std::string& name, std::int64_t size,
                                                       std::string& error);

private:
    friend class StoredUpload;

    UploadStore(StoreFolders folders, FileHandle lock, ServiceClock now)
        : folders_(std::move(folders)), lock_(std::move(lock)), now_(std::move(now))
    {
    }

    [[nodiscard]] bool reserve(const std::string& name, std::string& error);
    void release(const std::string& name);
    void rememberFailure(const std::string& name, const std::string& reason);

    // Set once at construction.
    const StoreFolders folders_;
    const FileHandle lock_; // while it is open, no other process uses the folder
    const ServiceClock now_;

    struct Failure {
        std::string reason;
        std::chrono::steady_clock::time_point end;
    };

    std::mutex mutex_;
    std::set<std::string> reserved_;          // guarded by mutex_
    std::map<std::string, Failure> failures_; // recent ones, by name; guarded by mutex_
};

} // namespace quenmoor

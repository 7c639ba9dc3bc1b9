// Resumable storage for uploads under one folder.
//
// Finished files lie in the folder under their own names. An unfinished one lies in
// .quenmoor/parts, with a record of its whole size in .quenmoor/records, and takes its name only
// when it is whole. A process killed at any moment leaves a copy that can be continued, and never
// one made of two uploads.
#pragma once

#include "devservice/stored_upload.h"
#include "devservice/upload_record.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace quenmoor {

// The store's own folder under the root. No upload may have this name.
inline constexpr const char* kReservedFolder = ".quenmoor";

// Any thread. Outlives the uploads that it opened.
class UploadStore {
public:
    // Makes the folder and what belongs into it where they are missing, and takes the folder for
    // this process. Nullptr, with a sentence in `error`, when that cannot be done or another
    // process holds it.
    [[nodiscard]] static std::unique_ptr<UploadStore> open(const std::filesystem::path& root,
                                                           std::string& error);

    // Takes the name for one writer and looks at what lies there. Changes nothing on disk.
    //
    // `name` is any file name of 1 to 255 bytes. Nullptr, with the reason in `error`, for a name
    // that would leave the folder or is the store's own, for a negative size, while another
    // writer has the name, and when something else than a plain file lies there.
    [[nodiscard]] std::unique_ptr<StoredUpload> upload(const std::string& name, std::int64_t size,
                                                       std::string& error);

private:
    friend class StoredUpload;

    UploadStore(StoreFolders folders, FileHandle lock)
        : folders_(std::move(folders)), lock_(std::move(lock))
    {
    }

    [[nodiscard]] bool take(const std::string& name);
    void release(const std::string& name);

    // Set once at construction.
    const StoreFolders folders_;
    const FileHandle lock_; // as long as it is open, no other process writes here

    std::mutex mutex_;
    std::set<std::string> taken_; // guarded by mutex_
};

} // namespace quenmoor

// The files that wait for a token, then the files that wait for or are under upload.
//
// One operation appends a file to the upload queue and its row to the status table, so the row of
// every file in the upload queue exists.
#pragma once

#include "queue/file_url.h"
#include "queue/status_table.h"

#include <chrono>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

// One queued file. The token is unset until the service page issues one.
struct InfoContainer {
    FileUrl file;
    std::int64_t size = 0; // bytes, when the file was queued
    std::optional<std::string> token = {};
    std::filesystem::file_time_type modified = {}; // of the file, when it was queued
};

// Any thread. True if the file at the path of `queued` has another size or modification time than
// when it was queued, or is gone. Reads its attributes.
bool sourceChanged(const InfoContainer& queued);

// What addFiles() did with the first `taken` of its files.
struct Intake {
    std::size_t taken = 0;
    std::size_t folders = 0;    // skipped
    std::size_t missing = 0;    // skipped
    std::size_t unreadable = 0; // skipped: no permission, or neither a file nor a folder

    Intake& operator+=(const Intake& more);
};

class UploadQueues {
public:
    // Main thread only. Appends every readable plain file of `files` to the file queue, in their
    // order and with duplicates, and skips everything else. Opens the files without reading them,
    // which takes long on a slow share: stops before the end of `files` if `until` has passed, but
    // not before the first file.
    Intake addFiles(
        std::span<const FileUrl> files,
        std::chrono::steady_clock::time_point until = std::chrono::steady_clock::time_point::max());

    // Main thread only. The files that wait for a token. The service page is that of the head.
    const std::deque<InfoContainer>& fileQueue() const { return fileQueue_; }

    // Main thread only. Moves the head of the file queue, with `token`, to the upload queue and
    // appends its row, "Queued" at 0 percent. Returns false if the file queue is empty.
    bool acceptToken(std::optional<std::string> token);

    // Main thread only. Removes the head of the file queue, which gets no row. Returns false if the
    // file queue is empty.
    bool cancelHead();

    // Any thread. Returns the file that is under upload or is next, or nothing.
    std::optional<InfoContainer> uploadHead() const;

    // Any thread.
    std::size_t uploadCount() const;

    // Upload thread only. Removes the head of the upload queue; its row remains.
    void removeUploadHead();

    StatusTable& tableList() { return tableList_; }
    const StatusTable& tableList() const { return tableList_; }

private:
    void addFile(const FileUrl& file, Intake& intake);

    // Any thread.
    StatusTable tableList_;

    // Main thread only.
    std::deque<InfoContainer> fileQueue_;

    mutable std::mutex uploadMutex_;

    // Guarded by uploadMutex_.
    std::deque<InfoContainer> uploadQueue_;
};

} // namespace quenmoor

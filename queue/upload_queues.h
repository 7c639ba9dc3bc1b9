// The road of a file before and during its upload: first it waits for a token, then for its turn.
//
// A file gets its row of the status table in the same operation that puts it into the upload
// queue, so whoever sees a file there finds its row.
#pragma once

#include "queue/file_url.h"
#include "queue/status_table.h"

#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

// One queued file. The token is unset until the service page issues one.
struct InfoContainer {
    FileUrl file;
    std::int64_t size = 0; // bytes, at the time when the file was queued
    std::optional<std::string> token = {};
};

class UploadQueues {
public:
    // Main thread only. Appends every plain file of `files`, in their order, to the files that
    // wait for a token. Folders, missing files and whatever else has no size are passed over
    // without a word. The same file given twice is queued twice. Asks the file system for
    // attributes, never for contents.
    void addFiles(std::span<const FileUrl> files);

    // Main thread only. The files that wait for a token; the service page speaks of the head.
    const std::deque<InfoContainer>& fileQueue() const { return fileQueue_; }

    // Main thread only. Gives `token` to the head of the file queue and moves it to the upload
    // queue, with a row "Queued" at 0 per cent. False when no file waits.
    bool acceptToken(std::optional<std::string> token);

    // Main thread only. Takes the head off the file queue. It gets no row. False when no file
    // waits.
    bool cancelHead();

    // Any thread. The file under upload, or the next one.
    std::optional<InfoContainer> uploadHead() const;

    // Any thread.
    std::size_t uploadCount() const;

    // Upload thread only. The head is done; its row stays.
    void removeUploadHead();

    StatusTable& tableList() { return tableList_; }
    const StatusTable& tableList() const { return tableList_; }

private:
    // Synchronises itself.
    StatusTable tableList_;

    // Main thread only.
    std::deque<InfoContainer> fileQueue_;

    mutable std::mutex uploadMutex_;

    // Guarded by uploadMutex_.
    std::deque<InfoContainer> uploadQueue_;
};

} // namespace quenmoor

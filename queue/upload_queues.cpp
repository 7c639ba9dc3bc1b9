#include "queue/upload_queues.h"

#include "base/log.h"
#include "base/text.h"

#include <system_error>

namespace quenmoor {
namespace {

// Returns nothing unless `path` leads to a plain file: file_size() fails for folders, pipes and
// devices as it does for a missing file.
std::optional<std::int64_t> plainFileSize(const std::filesystem::path& path)
{
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    if (failed)
        return std::nullopt;
    return static_cast<std::int64_t>(size);
}

// Returns a time that no file has if it cannot be read.
std::filesystem::file_time_type modificationTime(const std::filesystem::path& path)
{
    std::error_code failed;
    return std::filesystem::last_write_time(path, failed);
}

} // namespace

bool sourceChanged(const InfoContainer& queued)
{
    const std::filesystem::path path = queued.file.path();
    return modificationTime(path) != queued.modified || plainFileSize(path) != queued.size;
}

void UploadQueues::addFiles(std::span<const FileUrl> files)
{
    for (const FileUrl& file : files) {
        // A change between the two reads of the attributes leaves the older time in the queue.
        const auto modified = modificationTime(file.path());
        if (const auto size = plainFileSize(file.path()))
            fileQueue_.push_back({file, *size, std::nullopt, modified});
    }
    logSystem("Number of files in file queue: {}", fileQueue_.size());
}

bool UploadQueues::acceptToken(std::optional<std::string> token)
{
    if (fileQueue_.empty())
        return false;
    InfoContainer head = std::move(fileQueue_.front());
    fileQueue_.pop_front();
    head.token = std::move(token);
    TableContainer row{toValidUtf8(head.file.filename()), "Queued", 0};

    const std::lock_guard lock(uploadMutex_);
    tableList_.addObject(std::move(row));
    uploadQueue_.push_back(std::move(head));
    return true;
}

bool UploadQueues::cancelHead()
{
    if (fileQueue_.empty())
        return false;
    fileQueue_.pop_front();
    return true;
}

std::optional<InfoContainer> UploadQueues::uploadHead() const
{
    const std::lock_guard lock(uploadMutex_);
    if (uploadQueue_.empty())
        return std::nullopt;
    return uploadQueue_.front();
}

std::size_t UploadQueues::uploadCount() const
{
    const std::lock_guard lock(uploadMutex_);
    return uploadQueue_.size();
}

void UploadQueues::removeUploadHead()
{
    const std::lock_guard lock(uploadMutex_);
    if (!uploadQueue_.empty())
        uploadQueue_.pop_front();
}

} // namespace quenmoor

#include "queue/upload_queues.h"

#include "base/log.h"
#include "base/text.h"

#include <fcntl.h>
#include <unistd.h>

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

// Does not wait if a pipe has replaced the plain file at `path`.
bool canOpen(const std::filesystem::path& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    return file >= 0 && close(file) == 0;
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

Intake& Intake::operator+=(const Intake& more)
{
    taken += more.taken;
    folders += more.folders;
    missing += more.missing;
    unreadable += more.unreadable;
    return *this;
}

Intake UploadQueues::addFiles(std::span<const FileUrl> files,
                              std::chrono::steady_clock::time_point until)
{
    Intake intake;
    for (const FileUrl& file : files) {
        addFile(file, intake);
        ++intake.taken;
        if (std::chrono::steady_clock::now() >= until)
            break;
    }
    logSystem("Number of files in file queue: {}", fileQueue_.size());
    return intake;
}

void UploadQueues::addFile(const FileUrl& file, Intake& intake)
{
    using std::filesystem::file_type;
    const std::filesystem::path path = file.path();
    std::error_code failed;
    const file_type type = std::filesystem::status(path, failed).type();
    // A change between the two reads of the attributes leaves the older time in the queue.
    const auto modified = modificationTime(path);
    const auto size = plainFileSize(path);
    if (type == file_type::directory)
        ++intake.folders;
    else if (type == file_type::not_found)
        ++intake.missing;
    else if (type != file_type::regular || !size || !canOpen(path))
        ++intake.unreadable;
    else
        fileQueue_.push_back({file, *size, std::nullopt, modified});
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

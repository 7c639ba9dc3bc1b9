#include "devservice/upload_store.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

namespace quenmoor {
namespace {

constexpr std::size_t kMaxNameBytes = 255;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;

// Bytes between two flushes. The client waits ten seconds for the closing document, so most bytes
// must be on disk when the last one arrives.
constexpr std::int64_t kFlushInterval = 32 << 20;

// For which an upload is refused after an error of the disk.
constexpr std::chrono::seconds kFailureTime{60};

std::string systemMessage()
{
    return std::generic_category().message(errno);
}

// Opens the folder `name` in `parent`, which is created if it is missing. Follows no link.
FileHandle openFolder(const FileHandle& parent, const char* name)
{
    if (mkdirat(parent.get(), name, kFolderMode) != 0 && errno != EEXIST)
        return {};
    return FileHandle(openat(parent.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

enum class Entry { None, File, Other, Unreadable };

// Returns the kind of `name` in `folder` without following a link, and its `size`.
Entry entryOf(const FileHandle& folder, const std::string& name, std::int64_t& size)
{
    struct stat status {};
    if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? Entry::None : Entry::Unreadable;
    size = status.st_size;
    return S_ISREG(status.st_mode) ? Entry::File : Entry::Other;
}

} // namespace

bool isStorableName(std::string_view name)
{
    return !name.empty() && name.size() <= kMaxNameBytes && name != "." && name != ".." &&
           name != kReservedFolder && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

std::unique_ptr<UploadStore> UploadStore::open(const std::filesystem::path& root,
                                               std::string& error, ServiceClock now)
{
    std::error_code failed;
    std::filesystem::create_directories(root, failed);
    StoreFolders folders;
    folders.root = FileHandle(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const FileHandle own = folders.root ? openFolder(folders.root, kReservedFolder) : FileHandle();
    if (own) {
        folders.parts = openFolder(own, "parts");
        folders.records = openFolder(own, "records");
        folders.drafts = openFolder(own, "drafts");
    }
    FileHandle lock(
        own ? openat(own.get(), "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode) : -1);
    if (!folders.parts || !folders.records || !folders.drafts || !lock) {
        error = "cannot store under " + root.string() + ": " + systemMessage();
        return nullptr;
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        error = "another service uses the folder " + root.string();
        return nullptr;
    }
    return std::unique_ptr<UploadStore>(
        new UploadStore(std::move(folders), std::move(lock), std::move(now)));
}

std::unique_ptr<StoredUpload> UploadStore::upload(const std::string& name, std::int64_t size,
                                                  std::string& error)
{
    if (!isStorableName(name) || size < 0) {
        error = size < 0 ? "the size is negative" : "the name is not a valid file name";
        return nullptr;
    }
    if (!reserve(name, error))
        return nullptr;
    std::unique_ptr<StoredUpload> upload(new StoredUpload(*this, name, size));
    if (!upload->inspect()) {
        error = upload->error();
        return nullptr;
    }
    return upload;
}

bool UploadStore::reserve(const std::string& name, std::string& error)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(failures_, [now = now_()](const auto& f) { return f.second.end <= now; });
    if (const auto failure = failures_.find(name); failure != failures_.end()) {
        error = "the last attempt failed less than a minute ago: " + failure->second.reason;
        return false;
    }
    if (!reserved_.insert(name).second) {
        error = "the name is in use by another upload";
        return false;
    }
    return true;
}

void UploadStore::rememberFailure(const std::string& name, const std::string& reason)
{
    const std::lock_guard lock(mutex_);
    failures_.insert_or_assign(name, Failure{reason, now_() + kFailureTime});
}

void UploadStore::release(const std::string& name)
{
    const std::lock_guard lock(mutex_);
    reserved_.erase(name);
}

StoredUpload::StoredUpload(UploadStore& store, std::string name, std::int64_t size)
    : store_(store), folders_(store.folders_), name_(std::move(name)), size_(size)
{
}

StoredUpload::~StoredUpload()
{
    part_.reset(); // before another writer may open it
    store_.release(name_);
}

bool StoredUpload::inspect()
{
    std::int64_t fileSize = 0;
    std::int64_t partSize = 0;
    const Entry file = entryOf(folders_.root, name_, fileSize);
    const Entry part = entryOf(folders_.parts, name_, partSize);
    if (file == Entry::Unreadable || part == Entry::Unreadable)
        return describe("looking for a copy");
    if (file == Entry::Other || part == Entry::Other) {
        error_ = "something other than a file has this name";
        return false;
    }
    const UploadRecord record = readRecord(folders_, name_);
    if (record.unknownVersion) {
        error_ = fmt::format("the record {}/records/{} has version {}, and this service reads "
                             "version {}. Use a newer service to resume the upload, or delete the "
                             "record to start over",
                             kReservedFolder, name_, *record.unknownVersion, kRecordVersion);
        return false;
    }
    if (part == Entry::File && partSize > 0) {
        held_ = {true, record.size == size_ && partSize <= size_, false, partSize};
    } else if (file == Entry::File) {
        held_ = {true, fileSize == size_, true, fileSize};
    }
    // A part is continued or emptied. What a complete copy needs depends on the client's choice.
    const std::int64_t needed = size_ - (part == Entry::File ? partSize : 0);
    return (held_.equal && held_.complete) || hasSpaceFor(needed) || describe("storing the file");
}

// Returns true also if the system does not report the space; false with errno set.
bool StoredUpload::hasSpaceFor(std::int64_t bytes) const
{
    struct statvfs disk {};
    if (fstatvfs(folders_.parts.get(), &disk) != 0)
        return true;
    errno = ENOSPC;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(bytes, 0)) / disk.f_frsize <=
           disk.f_bavail;
}

bool StoredUpload::resume()
{
    if (!held_.equal) {
        error_ = "the copy is of another file and cannot be resumed";
        return false;
    }
    position_ = held_.size;
    flushedUpTo_ = position_;
    if (held_.complete)
        return true;
    return openPart(0) && (lseek(part_.get(), position_, SEEK_SET) == position_ || fail("seeking"));
}

// The part is emptied on disk before its record changes. Otherwise a kill in between would leave
// the old bytes with the new size.
bool StoredUpload::startOver()
{
    if (!hasSpaceFor(size_ - (held_.complete ? 0 : held_.size)))
        return fail("storing the file");
    if (!openPart(O_CREAT | O_TRUNC))
        return false;
    if (fsync(part_.get()) != 0)
        return fail("emptying the copy");
    return writeRecord(folders_, name_, size_) || fail("writing the record");
}

bool StoredUpload::openPart(int flags)
{
    part_ = FileHandle(openat(folders_.parts.get(), name_.c_str(),
                              O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags, kFileMode));
    return static_cast<bool>(part_) || fail("opening the copy");
}

bool StoredUpload::append(std::span<const char> bytes)
{
    if (!writeAll(part_.get(), bytes.data(), bytes.size()))
        return fail("writing the copy");
    position_ += static_cast<std::int64_t>(bytes.size());
    if (position_ - flushedUpTo_ >= kFlushInterval)
        flushInBackground();
    return true;
}

// Waits for the writes that the last call started and starts writing the bytes since then. A
// failure is reported by the fsync() in complete().
void StoredUpload::flushInBackground()
{
#ifdef SYNC_FILE_RANGE_WRITE
    sync_file_range(part_.get(), 0, flushedUpTo_, SYNC_FILE_RANGE_WAIT_BEFORE);
    sync_file_range(part_.get(), flushedUpTo_, position_ - flushedUpTo_, SYNC_FILE_RANGE_WRITE);
#else
    fsync(part_.get());
#endif
    flushedUpTo_ = position_;
}

// The record is removed last: without it, a part that was not renamed yet could not be resumed.
bool StoredUpload::complete()
{
    if (!part_)
        return true;
    if (fsync(part_.get()) != 0)
        return fail("flushing the file");
    part_.reset();
    if (renameat(folders_.parts.get(), name_.c_str(), folders_.root.get(), name_.c_str()) != 0)
        return fail("renaming the file");
    fsync(folders_.root.get());
    removeRecord(folders_, name_);
    return true;
}

bool StoredUpload::fail(const std::string& what)
{
    describe(what);
    store_.rememberFailure(name_, error_);
    return false;
}

bool StoredUpload::describe(const std::string& what)
{
    error_ = what + ": " + systemMessage();
    return false;
}

} // namespace quenmoor

#include "devservice/stored_upload.h"

#include "devservice/upload_record.h"
#include "devservice/upload_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <system_error>

namespace quenmoor {
namespace {

constexpr mode_t kFileMode = 0644;

// The client waits ten seconds for the closing document, so little may be left for the disk when
// the last byte is in.
constexpr std::int64_t kWriteBehind = 32 << 20;

enum class Entry { None, File, Other, Unreadable };

// What `name` is in `folder`, itself and not what it points to.
Entry entryOf(const FileHandle& folder, const std::string& name, std::int64_t& size)
{
    struct stat status {};
    if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? Entry::None : Entry::Unreadable;
    size = status.st_size;
    return S_ISREG(status.st_mode) ? Entry::File : Entry::Other;
}

} // namespace

StoredUpload::StoredUpload(UploadStore& store, std::string name, std::int64_t size)
    : store_(store), folders_(store.folders_), name_(std::move(name)), size_(size)
{
}

StoredUpload::~StoredUpload()
{
    part_.reset();
    store_.release(name_);
}

bool StoredUpload::look()
{
    std::int64_t fileSize = 0;
    std::int64_t partSize = 0;
    const Entry file = entryOf(folders_.root, name_, fileSize);
    const Entry part = entryOf(folders_.parts, name_, partSize);
    if (file == Entry::Unreadable || part == Entry::Unreadable)
        return fail("looking for a copy");
    if (file == Entry::Other || part == Entry::Other) {
        error_ = "something other than a file has this name";
        return false;
    }
    if (part == Entry::File && partSize > 0) {
        const std::optional<std::int64_t> whole = readRecord(folders_, name_);
        held_ = {true, whole == size_ && partSize <= size_, false, partSize};
    } else if (file == Entry::File) {
        held_ = {true, fileSize == size_, true, fileSize};
    }
    return true;
}

bool StoredUpload::resume()
{
    if (!held_.equal) {
        error_ = "the copy is of another file and cannot be continued";
        return false;
    }
    position_ = held_.size;
    behind_ = position_;
    if (held_.complete)
        return true;
    return openPart(0) && (lseek(part_.get(), position_, SEEK_SET) == position_ || fail("seeking"));
}

// The part is empty, on disk as well, before its record changes: the old bytes never stand beside
// the new size.
bool StoredUpload::startOver()
{
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
    if (position_ - behind_ >= kWriteBehind)
        writeBehind();
    return true;
}

// Waits for what was handed to the disk last time and hands it what came since. Failures show
// when the file is completed.
void StoredUpload::writeBehind()
{
#ifdef SYNC_FILE_RANGE_WRITE
    sync_file_range(part_.get(), 0, behind_, SYNC_FILE_RANGE_WAIT_BEFORE);
    sync_file_range(part_.get(), behind_, position_ - behind_, SYNC_FILE_RANGE_WRITE);
#else
    fsync(part_.get());
#endif
    behind_ = position_;
}

// The record goes last: one without a part says nothing, a part without one could not be resumed.
bool StoredUpload::complete()
{
    if (!part_)
        return true;
    if (fsync(part_.get()) != 0)
        return fail("bringing the file to the disk");
    part_.reset();
    if (renameat(folders_.parts.get(), name_.c_str(), folders_.root.get(), name_.c_str()) != 0)
        return fail("giving the file its name");
    fsync(folders_.root.get());
    removeRecord(folders_, name_);
    return true;
}

bool StoredUpload::fail(const char* what)
{
    error_ = std::string(what) + ": " + std::generic_category().message(errno);
    return false;
}

} // namespace quenmoor

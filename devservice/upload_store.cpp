#include "devservice/upload_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <string_view>

namespace quenmoor {
namespace {

constexpr std::size_t kLongestName = 255;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;

std::string systemMessage()
{
    return std::generic_category().message(errno);
}

bool isStorable(std::string_view name)
{
    return !name.empty() && name.size() <= kLongestName && name != "." && name != ".." &&
           name != kReservedFolder && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

// The folder `name` inside of `parent`, made when it is missing. Follows no link.
FileHandle ownFolder(const FileHandle& parent, const char* name)
{
    if (mkdirat(parent.get(), name, kFolderMode) != 0 && errno != EEXIST)
        return {};
    return FileHandle(openat(parent.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

} // namespace

std::unique_ptr<UploadStore> UploadStore::open(const std::filesystem::path& root,
                                               std::string& error)
{
    std::error_code failed;
    std::filesystem::create_directories(root, failed);
    StoreFolders folders;
    folders.root = FileHandle(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const FileHandle own = folders.root ? ownFolder(folders.root, kReservedFolder) : FileHandle();
    if (own) {
        folders.parts = ownFolder(own, "parts");
        folders.records = ownFolder(own, "records");
        folders.drafts = ownFolder(own, "drafts");
    }
    FileHandle lock(
        own ? openat(own.get(), "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode) : -1);
    if (!folders.parts || !folders.records || !folders.drafts || !lock) {
        error = "cannot store under " + root.string() + ": " + systemMessage();
        return nullptr;
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        error = "another service stores under " + root.string();
        return nullptr;
    }
    return std::unique_ptr<UploadStore>(new UploadStore(std::move(folders), std::move(lock)));
}

std::unique_ptr<StoredUpload> UploadStore::upload(const std::string& name, std::int64_t size,
                                                  std::string& error)
{
    if (!isStorable(name) || size < 0) {
        error = size < 0 ? "the size is negative" : "the name cannot be stored";
        return nullptr;
    }
    if (!take(name)) {
        error = "the name is in use by another upload";
        return nullptr;
    }
    std::unique_ptr<StoredUpload> upload(new StoredUpload(*this, name, size));
    if (!upload->look()) {
        error = upload->error();
        return nullptr;
    }
    return upload;
}

bool UploadStore::take(const std::string& name)
{
    const std::lock_guard lock(mutex_);
    return taken_.insert(name).second;
}

void UploadStore::release(const std::string& name)
{
    const std::lock_guard lock(mutex_);
    taken_.erase(name);
}

} // namespace quenmoor

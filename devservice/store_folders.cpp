#include "devservice/store_folders.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <vector>

namespace quenmoor {
namespace {

constexpr std::size_t kMaxRecordBytes = 65'536;
constexpr mode_t kFileMode = 0644;

} // namespace

UploadRecord readRecord(const StoreFolders& folders, const std::string& name)
{
    // O_NONBLOCK: opening a FIFO of this name would block otherwise.
    const FileHandle file(openat(folders.records.get(), name.c_str(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        return {};
    std::vector<char> text(kMaxRecordBytes);
    const ssize_t length = read(file.get(), text.data(), text.size());
    if (length <= 0)
        return {};
    const auto record =
        nlohmann::json::parse(text.data(), text.data() + length, nullptr, /*exceptions*/ false);
    if (!record.is_object())
        return {};
    const auto numberAt = [&record](const char* key) -> std::optional<std::uint64_t> {
        const auto value = record.find(key);
        return value != record.end() && value->is_number_unsigned()
                   ? std::optional(value->get<std::uint64_t>())
                   : std::nullopt;
    };
    const auto version = record.contains("version") ? numberAt("version") : kRecordVersion;
    if (version != kRecordVersion)
        return {{}, version};
    const auto size = numberAt("size");
    if (!size || *size > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
        return {};
    return {static_cast<std::int64_t>(*size), {}};
}

bool writeRecord(const StoreFolders& folders, const std::string& name, std::int64_t size)
{
    const std::string text =
        nlohmann::json{{"size", size}, {"version", kRecordVersion}}.dump() + "\n";
    // Whatever has the name is removed: a draft that a kill left, or a FIFO, on which open()
    // blocks.
    unlinkat(folders.drafts.get(), name.c_str(), 0);
    const FileHandle draft(openat(folders.drafts.get(), name.c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
    return draft && writeAll(draft.get(), text.data(), text.size()) && fsync(draft.get()) == 0 &&
           renameat(folders.drafts.get(), name.c_str(), folders.records.get(), name.c_str()) == 0 &&
           fsync(folders.records.get()) == 0;
}

void removeRecord(const StoreFolders& folders, const std::string& name)
{
    unlinkat(folders.records.get(), name.c_str(), 0);
}

bool writeAll(int descriptor, const char* bytes, std::size_t count)
{
    while (count > 0) {
        const ssize_t written = write(descriptor, bytes, count);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace quenmoor

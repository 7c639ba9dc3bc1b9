#include "cli/source_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace quenmoor {

std::optional<std::string> whyUnreadable(const std::filesystem::path& path)
{
    return whyUnreadable(path, 0);
}

std::optional<std::string> whyUnreadable(const std::filesystem::path& path, std::int64_t size)
{
    const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0)
        return std::generic_category().message(errno);
    struct stat attributes {};
    const bool known = fstat(file, &attributes) == 0;
    close(file);
    if (!known)
        return std::nullopt;
    if (S_ISDIR(attributes.st_mode))
        return "is a folder, and folders are not searched";
    if (!S_ISREG(attributes.st_mode))
        return "is not a plain file";
    if (attributes.st_size < size)
        return fmt::format("is {} bytes long and was {} when it was queued", attributes.st_size,
                           size);
    return std::nullopt;
}

} // namespace quenmoor

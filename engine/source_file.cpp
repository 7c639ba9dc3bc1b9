#include "engine/source_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace quenmoor {
namespace {

struct OpenedFile {
    int descriptor = -1; // of a plain file, owned by the caller; -1 with a fault
    std::int64_t size = 0;
    SourceFault fault{};
};

std::string systemMessage()
{
    return std::generic_category().message(errno);
}

OpenedFile openPlainFile(const std::filesystem::path& path)
{
    OpenedFile file;
    // Without O_NONBLOCK a named pipe blocks until it has a writer.
    file.descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file.descriptor < 0) {
        file.fault = {systemMessage(), errno == ENOENT || errno == ENOTDIR};
        return file;
    }
    struct stat attributes {};
    if (fstat(file.descriptor, &attributes) != 0)
        file.fault = {systemMessage(), false};
    else if (S_ISDIR(attributes.st_mode))
        file.fault = {"it is a directory", true};
    else if (!S_ISREG(attributes.st_mode))
        file.fault = {"it is not a plain file", true};
    if (!file.fault.why.empty()) {
        close(file.descriptor);
        file.descriptor = -1;
    }
    file.size = attributes.st_size;
    return file;
}

} // namespace

std::optional<SourceFault> sourceFault(const std::filesystem::path& path, std::int64_t size)
{
    const OpenedFile file = openPlainFile(path);
    if (file.descriptor < 0)
        return file.fault;
    close(file.descriptor);
    if (file.size >= size)
        return std::nullopt;
    return SourceFault{
        fmt::format("it is {} bytes long and was {} when it was queued", file.size, size), true};
}

std::size_t SourceFile::read(std::int64_t offset, std::span<char> buffer)
{
    failure_.clear();
    if (descriptor_ < 0 && !open())
        return 0;
    ssize_t count = 0;
    do {
        count = pread(descriptor_, buffer.data(), buffer.size(), offset);
    } while (count < 0 && errno == EINTR);
    if (count >= 0)
        return static_cast<std::size_t>(count);
    failure_ = "the file cannot be read: " + systemMessage();
    close();
    return 0;
}

void SourceFile::close()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
}

bool SourceFile::open()
{
    const OpenedFile file = openPlainFile(path_);
    descriptor_ = file.descriptor;
    if (descriptor_ < 0)
        failure_ = "the file cannot be opened: " + file.fault.why;
    return descriptor_ >= 0;
}

} // namespace quenmoor

#include "cli/sources.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace quenmoor {
namespace {

int exitStatus(const std::vector<Source>& sources, int signal)
{
    const auto any = [&sources](SourceState state) {
        for (const Source& source : sources) {
            if (source.state == state)
                return true;
        }
        return false;
    };
    if (signal != 0)
        return kExitSignal + signal;
    if (any(SourceState::GaveUp))
        return kExitGaveUp;
    if (any(SourceState::Unreadable))
        return kExitUnreadable;
    return any(SourceState::Cancelled) ? kExitCancelled : kExitFinished;
}

} // namespace

std::vector<Source> listSources(const PutOptions& options, std::vector<std::string>& why)
{
    std::vector<Source> sources;
    for (std::size_t i = 0; i < options.files.size(); ++i) {
        std::error_code failed;
        Source source;
        source.row = i;
        source.name = options.files[i];
        source.path = std::filesystem::absolute(source.name, failed);
        source.token = options.tokens[i];
        why.push_back(failed ? failed.message() : whyUnreadable(source.path, 0).value_or(""));
        if (!why.back().empty())
            source.state = SourceState::Unreadable;
        sources.push_back(source);
    }
    return sources;
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
        return "is a directory";
    if (!S_ISREG(attributes.st_mode))
        return "is not a plain file";
    if (attributes.st_size < size)
        return fmt::format("is {} bytes long and was {} when it was queued", attributes.st_size,
                           size);
    return std::nullopt;
}

RunOutcome outcomeOf(const std::vector<Source>& sources, int signal)
{
    RunOutcome outcome;
    outcome.status = exitStatus(sources, signal);
    outcome.interrupted = signal != 0;
    for (const Source& source : sources) {
        switch (source.state) {
        case SourceState::Finished:
            ++outcome.finished;
            outcome.sentBytes += source.sentBytes;
            break;
        case SourceState::Cancelled: ++outcome.cancelled; break;
        case SourceState::Unreadable: ++outcome.unreadable; break;
        case SourceState::GaveUp: ++outcome.gaveUp; break;
        case SourceState::Queued:
            if (source.attempt > 0) {
                ++outcome.unfinished;
                break;
            }
            ++outcome.untried;
            outcome.untriedSize += source.size;
            break;
        }
    }
    return outcome;
}

} // namespace quenmoor

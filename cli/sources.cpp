#include "cli/sources.h"

#include "cli/terminal_text.h"
#include "engine/source_file.h"

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
    if (any(SourceState::Unreadable) || any(SourceState::Changed))
        return kExitUnreadable;
    return any(SourceState::Cancelled) ? kExitCancelled : kExitFinished;
}

} // namespace

std::vector<Source> listSources(const PutOptions& options, std::vector<std::string>& why)
{
    std::vector<Source> sources;
    std::vector<std::string> labels = distinctEnds(options.files);
    for (std::size_t i = 0; i < options.files.size(); ++i) {
        std::error_code failed;
        Source source;
        source.row = i;
        source.name = options.files[i];
        source.label = std::move(labels[i]);
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
    const std::optional<SourceFault> fault = sourceFault(path, size);
    return fault ? std::optional(fault->why) : std::nullopt;
}

RunOutcome outcomeOf(const std::vector<Source>& sources, int signal, const std::string& failure)
{
    RunOutcome outcome;
    outcome.status = exitStatus(sources, signal);
    if (!failure.empty() && signal == 0)
        outcome.status = kExitSystem;
    outcome.failure = failure;
    outcome.interrupted = signal != 0;
    for (const Source& source : sources) {
        outcome.sentBytes += source.sentBytes;
        switch (source.state) {
        case SourceState::Finished:
        case SourceState::Changed:
            ++(source.state == SourceState::Finished ? outcome.finished : outcome.changed);
            outcome.resumedBytes += source.resumedBytes;
            break;
        case SourceState::Skipped: ++outcome.skipped; break;
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

// The files of one run of quenmoor-put with their state, and the outcome of the run.
#pragma once

#include "cli/put_options.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quenmoor {

enum class SourceState : std::uint8_t {
    Unreadable, // when the run began, or since then
    Queued,     // waiting, or being sent
    Finished,   // the server holds the file
    Changed,    // the server holds the file, which changed after it was queued
    Skipped,    // the server held the whole file before the run
    Cancelled,  // the copy on the server was left unchanged
    GaveUp,     // failed too often or for too long
};

// One FILE of the command line.
struct Source {
    std::size_t row = 0;        // position among the files of the command line, from 0
    std::string name;           // as given, byte for byte
    std::string label;          // the end of `name` that no other file of the run has
    std::filesystem::path path; // absolute
    std::string token;
    SourceState state = SourceState::Queued;
    std::int64_t size = 0;         // bytes, when it was queued; 0 if it never was
    std::int32_t percent = 0;      // in its row of the status table
    std::int32_t attempt = 0;      // the latest one, counted from 1; 0 before the first
    std::int64_t sentBytes = 0;    // accepted by the link, in all attempts
    std::int64_t resumedBytes = 0; // held by the server before the first attempt
};

// One source for each file of `options`. Those that cannot be read are marked, and `why` gets the
// reason of each source, empty for a readable one.
std::vector<Source> listSources(const PutOptions& options, std::vector<std::string>& why);

// The reason why `path` cannot be sent as a plain file of at least `size` bytes, in words; nullopt
// if it can. Opens the file, reads nothing and never blocks on a named pipe.
std::optional<std::string> whyUnreadable(const std::filesystem::path& path, std::int64_t size);

struct RunOutcome {
    int status = kExitFinished; // exit status of the process, unless the output is lost
    std::string failure;        // why the system ended the run before its first file, or empty
    bool interrupted = false;
    bool dryRun = false;
    std::size_t finished = 0;
    std::size_t changed = 0;
    std::size_t skipped = 0;
    std::size_t cancelled = 0;
    std::size_t unreadable = 0;
    std::size_t gaveUp = 0;
    std::size_t unfinished = 0;    // the file that was being sent when the run ended
    std::size_t untried = 0;       // no attempt was made
    std::int64_t untriedSize = 0;  // of those, in bytes
    std::int64_t sentBytes = 0;    // accepted by the link for all files, in all attempts
    std::int64_t resumedBytes = 0; // of the finished and changed files, held by the server before
    std::chrono::nanoseconds elapsed{0};
};

// `signal` is the number of the signal that interrupted the run, or 0; `failure` as in RunOutcome.
RunOutcome outcomeOf(const std::vector<Source>& sources, int signal,
                     const std::string& failure = {});

} // namespace quenmoor

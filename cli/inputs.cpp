#include "cli/inputs.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace quenmoor {
namespace {

using Error = std::optional<std::string>;
// Takes one entry. Returns what is wrong with it.
using TakeEntry = std::function<Error(std::string_view)>;

constexpr const char* kTokenVariable = "QUENMOOR_TOKENS";
constexpr std::size_t kMaxEntryBytes = 65536; // more than a path and a request can have
constexpr std::size_t kMaxFiles = 1'000'000;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Removes what editors add to a line: the mark at the start of a file, and the carriage return.
std::string_view withoutDecoration(std::string_view line, std::size_t number)
{
    if (number == 1 && line.starts_with(kByteOrderMark))
        line.remove_prefix(kByteOrderMark.size());
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

// Passes every entry of `in` that is not empty to `take`. `name` is for messages.
Error readEntries(std::istream& in, const std::string& name, char delimiter, const TakeEntry& take)
{
    const bool lines = delimiter == '\n';
    std::string buffer(kMaxEntryBytes + 1, '\0');
    for (std::size_t number = 1;; ++number) {
        const auto failed = [&](std::string_view why) {
            return fmt::format("{}: {} {}: {}", name, lines ? "line" : "entry", number, why);
        };
        in.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()), delimiter);
        if (in.bad())
            return name + ": cannot be read";
        if (in.fail() && !in.eof())
            return failed(fmt::format("longer than {} bytes", kMaxEntryBytes));
        if (in.fail())
            return std::nullopt;
        const auto length = static_cast<std::size_t>(in.gcount()) - (in.eof() ? 0 : 1);
        std::string_view entry(buffer.data(), length);
        if (lines)
            entry = withoutDecoration(entry, number);
        if (entry.find('\0') != std::string_view::npos)
            return failed("contains a NUL byte; --null reads entries that end with one");
        if (entry.empty())
            continue;
        if (const Error error = take(entry))
            return failed(*error);
    }
}

Error readFile(const std::string& path, char delimiter, const TakeEntry& take)
{
    if (path == "-")
        return readEntries(std::cin, "standard input", delimiter, take);
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file.is_open())
        return path + ": " + std::generic_category().message(errno);
    return readEntries(file, path, delimiter, take);
}

// Takes "TOKEN<TAB>PATH". The path may contain tabs.
Error takeFile(std::string_view entry, PutOptions& options)
{
    const std::size_t tab = entry.find('\t');
    if (tab == std::string_view::npos)
        return "no tab between token and path";
    if (tab == 0)
        return "no token before the tab";
    if (tab + 1 == entry.size())
        return "no path after the tab";
    if (options.files.size() == kMaxFiles)
        return fmt::format("more than {} files", kMaxFiles);
    options.tokens.emplace_back(entry.substr(0, tab));
    options.files.emplace_back(entry.substr(tab + 1));
    return std::nullopt;
}

Error readTokens(const InputOptions& inputs, const char* variable, PutOptions& options)
{
    const TakeEntry take = [&options](std::string_view entry) {
        options.tokens.emplace_back(entry);
        return options.tokens.size() > kMaxFiles ? Error("more tokens than one run can have files")
                                                 : std::nullopt;
    };
    if (!inputs.tokenFile.empty())
        return readFile(inputs.tokenFile, '\n', take);
    std::istringstream text(variable);
    return readEntries(text, kTokenVariable, '\n', take);
}

Error checkCounts(const PutOptions& options)
{
    const auto counted = [](std::size_t count, const char* noun) {
        return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
    };
    if (options.files.empty())
        return "FILE: no file was given, neither as an argument nor by --files-from";
    if (options.files.size() != options.tokens.size())
        return fmt::format("{} for {}: give one token for each file, in the same order, by "
                           "--token, --token-file or {}",
                           counted(options.tokens.size(), "token"),
                           counted(options.files.size(), "file"), kTokenVariable);
    for (const std::string& token : options.tokens) {
        if (token.empty())
            return "--token: a token must not be empty";
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> readInputs(const InputOptions& inputs, PutOptions& options)
{
    const char* const variable = std::getenv(kTokenVariable);
    std::string given;
    std::size_t count = 0;
    const auto add = [&](bool present, const char* source) {
        if (present)
            given += (count++ == 0 ? "" : ", ") + std::string(source);
    };
    add(!options.tokens.empty(), "--token");
    add(!inputs.tokenFile.empty(), "--token-file");
    add(!inputs.filesFrom.empty(), "--files-from");
    add(variable != nullptr && *variable != '\0', kTokenVariable);
    if (count > 1)
        return "tokens from more than one source: " + given;
    if (!inputs.filesFrom.empty()) {
        if (!options.files.empty())
            return "--files-from: FILE arguments cannot be given as well";
        const auto take = [&options](std::string_view entry) { return takeFile(entry, options); };
        if (Error error = readFile(inputs.filesFrom, inputs.nullSeparated ? '\0' : '\n', take))
            return "--files-from: " + *error;
    } else if (options.tokens.empty() && count > 0) {
        if (Error error = readTokens(inputs, variable, options))
            return inputs.tokenFile.empty() ? error : "--token-file: " + *error;
    }
    return checkCounts(options);
}

} // namespace quenmoor

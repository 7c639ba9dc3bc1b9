#include "cli/put_options.h"

#include "base/text.h"
#include "cli/build_settings.h"
#include "cli/inputs.h"
#include "protocol/udt_transfer_link.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <optional>

namespace quenmoor {
namespace {

constexpr std::int64_t kMaxRetries = 9999;

const char* const kFooter = "Exit status:\n"
                            "  0    every file finished\n"
                            "  1    gave up: a file failed too often or for too long\n"
                            "  2    wrong command line; nothing was sent\n"
                            "  3    a file was cancelled because the server holds a copy\n"
                            "  4    a file cannot be read, or changed after it was queued\n"
                            "  5    standard output or the log file could not be written\n"
                            "  6    the system refused a pipe or a thread; no file was sent\n"
                            "  70   internal error; upload the file again to resume it\n"
                            "  129, 130, 143  interrupted by a signal: 128 plus its number\n"
                            "If several apply, the status is the first of 129 to 143, 6, 1, 4, 3 "
                            "and 5.";

// Reads "HOST" or "HOST:PORT" into `options`. Returns an error message for any other text.
template <typename Options>
std::optional<std::string> splitHost(const std::string& text, Options& options)
{
    const std::size_t colon = text.find(':');
    options.host = text.substr(0, colon);
    if (options.host.empty())
        return "--host: \"" + text + "\" has no host before the colon";
    if (colon == std::string::npos)
        return std::nullopt;
    const auto port = wholeNumber(std::string_view(text).substr(colon + 1));
    if (!port || *port < 1 || *port > std::numeric_limits<std::uint16_t>::max())
        return "--host: \"" + text + "\" has no port from 1 to 65535 after the colon";
    options.port = static_cast<std::uint16_t>(*port);
    return std::nullopt;
}

// Reads "90s", "30m", "12h" or a number of seconds. Returns nothing for any other text and beyond
// one second to ten years.
std::optional<std::chrono::seconds> readTime(std::string_view text)
{
    constexpr std::int64_t kMaxSeconds = 10LL * 365 * 24 * 3600;
    std::int64_t unit = 1;
    if (text.ends_with('m'))
        unit = 60;
    else if (text.ends_with('h'))
        unit = 3600;
    if (unit > 1 || text.ends_with('s'))
        text.remove_suffix(1);
    const auto number = wholeNumber(text);
    if (!number || *number < 1 || *number > kMaxSeconds / unit)
        return std::nullopt;
    return std::chrono::seconds(*number * unit);
}

// Bytes per second: a number with an optional suffix K, M or G (powers of 1024), from 1 KiB to 1
// TiB.
std::optional<std::int64_t> readRate(std::string_view text)
{
    constexpr std::string_view kSuffixes = "KMG";
    constexpr std::int64_t kMinRate = 1024;
    constexpr std::int64_t kMaxRate = std::int64_t{1} << 40U;
    std::int64_t unit = 1;
    if (text.empty())
        return std::nullopt;
    if (const std::size_t suffix = kSuffixes.find(
            static_cast<char>(std::toupper(static_cast<unsigned char>(text.back()))));
        suffix != std::string_view::npos) {
        unit = std::int64_t{1} << (10U * (suffix + 1));
        text.remove_suffix(1);
    }
    const auto number = wholeNumber(text);
    if (!number || *number < 1 || *number > kMaxRate / unit || *number * unit < kMinRate)
        return std::nullopt;
    return *number * unit;
}

// `text` may quote the arguments.
EarlyExit usageError(const std::string& text)
{
    return {kExitUsage, "quenmoor-put: " + printableLine(text) + "\nTry: quenmoor-put --help\n"};
}

// The arguments in the order that the parser takes, the last one first. The parser reads "[a,b]" as
// a list, so such an argument gets a NUL byte at its end, which no argument contains.
std::vector<std::string> markedArguments(int argc, const char* const* argv)
{
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        arguments.emplace_back(argv[i]);
        if (arguments.back().starts_with('[') && arguments.back().ends_with(']'))
            arguments.back() += '\0';
    }
    return arguments;
}

void removeMark(std::string& value)
{
    value.resize(std::min(value.find('\0'), value.size()));
}

// The values that are read after the parser has accepted the command line.
struct Texts {
    std::string host = kServiceHost;
    std::string retries;
    std::string giveUpAfter;
    std::string limitRate;
    InputOptions inputs;
};

void addInputOptions(CLI::App& app, PutOptions& options, InputOptions& inputs)
{
    app.add_option("FILE", options.files, "Files to send");
    app.add_option("--token", options.tokens,
                   "Upload token; repeat it for each file, in the order of the files. Other users "
                   "of this machine can see arguments")
        ->type_name("TOKEN")
        ->allow_extra_args(false);
    app.add_option("--token-file", inputs.tokenFile,
                   "Read the tokens from FILE (- is standard input), one a line. The variable "
                   "QUENMOOR_TOKENS may hold such lines instead")
        ->type_name("FILE");
    CLI::Option* const list =
        app.add_option("--files-from", inputs.filesFrom,
                       "Read tokens and files from FILE (- is standard input), one pair a line: "
                       "token, tab, path")
            ->type_name("FILE");
    app.add_flag("-0,--null", inputs.nullSeparated,
                 "The pairs of --files-from end with a NUL byte instead of a line feed")
        ->needs(list);
    app.add_flag("--dry-run", options.dryRun,
                 "List the files that would be sent and those that cannot be read, and send "
                 "nothing");
}

void addRetryOptions(CLI::App& app, PutOptions& options, Texts& texts)
{
    app.add_option("--retries", texts.retries,
                   "Give up a file after N more attempts in a row have failed; the default is 9. "
                   "An attempt that sent data restarts the count")
        ->type_name("N");
    app.add_option("--give-up-after", texts.giveUpAfter,
                   "Begin no attempt of a file later than TIME (such as 90s, 30m, 12h) after its "
                   "first one")
        ->type_name("TIME");
    app.add_flag("--keep-going", options.retry.keepGoing,
                 "Go on with the next file after one was given up");
}

void addHostOption(CLI::App& app, std::string& host)
{
    app.add_option("--host", host, "Transfer server; the default port is 65000")
        ->type_name("HOST[:PORT]")
        ->capture_default_str();
}

void addTransferOptions(CLI::App& app, PutOptions& options, Texts& texts)
{
    const std::map<std::string, ExistingPolicy> existing{{"ask", ExistingPolicy::Ask},
                                                         {"resume", ExistingPolicy::Resume},
                                                         {"overwrite", ExistingPolicy::Overwrite},
                                                         {"cancel", ExistingPolicy::Cancel},
                                                         {"skip", ExistingPolicy::Skip}};
    const std::map<std::string, Congestion> congestion{{"library", Congestion::Library},
                                                       {"paced", Congestion::Paced}};
    app.add_option("--existing", options.existing,
                   "What to do if the server already holds a copy. The default, ask, asks on a "
                   "terminal and cancels without one")
        ->type_name("ask|resume|overwrite|cancel|skip")
        ->transform(CLI::CheckedTransformer(existing).description(""));
    app.add_flag("--allow-changed", options.allowChanged,
                 "Count a file that changed after it was queued as finished");
    app.add_option("--limit-rate", texts.limitRate,
                   "Send at most RATE bytes per second; a suffix K, M or G multiplies by 1024, "
                   "1024^2 or 1024^3. Repeated packets are not counted")
        ->type_name("RATE");
    app.add_option("--congestion", options.congestion,
                   "Congestion control: that of the transport library, or paced by a model of the "
                   "path")
        ->type_name("library|paced")
        ->transform(CLI::CheckedTransformer(congestion).description(""));
}

void addOutputOptions(CLI::App& app, PutOptions& options)
{
    CLI::Option* const json = app.add_flag_callback(
        "--json", [&options] { options.output = OutputMode::Json; },
        "Write one JSON object per line to standard output");
    CLI::Option* const quiet = app.add_flag_callback(
        "--quiet", [&options] { options.output = OutputMode::Quiet; }, "Write errors only");
    quiet->excludes(json);
    app.add_flag("--progress", options.progress,
                 "Without a terminal, write a line about all files every 30 seconds while a file "
                 "is sent")
        ->excludes(json)
        ->excludes(quiet);
    app.add_flag("-v,--verbose", options.verbose,
                 "Write diagnostics to standard error as well as to the system log");
    app.add_option("--log-file", options.logFile,
                   "Append diagnostics, with the time, to FILE as well")
        ->type_name("FILE");
}

// Completes `options` by what the parser has left as text. Returns an error message, which may
// contain control characters, or nothing.
std::optional<std::string> readTexts(Texts& texts, PutOptions& options)
{
    for (std::vector<std::string>* const list : {&options.files, &options.tokens})
        std::for_each(list->begin(), list->end(), removeMark);
    for (std::string* const text :
         {&texts.host, &texts.retries, &texts.giveUpAfter, &texts.limitRate,
          &texts.inputs.tokenFile, &texts.inputs.filesFrom, &options.logFile})
        removeMark(*text);
    if (auto error = splitHost(texts.host, options))
        return error;
    if (!texts.retries.empty()) {
        const auto retries = wholeNumber(texts.retries);
        if (!retries || *retries < 0 || *retries > kMaxRetries)
            return fmt::format("--retries: \"{}\" is not a number from 0 to {}", texts.retries,
                               kMaxRetries);
        options.retry.attempts = static_cast<std::size_t>(*retries) + 1;
    }
    if (!texts.giveUpAfter.empty()) {
        options.retry.timeLimit = readTime(texts.giveUpAfter);
        if (!options.retry.timeLimit)
            return "--give-up-after: \"" + texts.giveUpAfter +
                   "\" is not a time such as 90s, 30m or 12h";
    }
    if (!texts.limitRate.empty()) {
        const auto rate = readRate(texts.limitRate);
        if (!rate)
            return "--limit-rate: \"" + texts.limitRate +
                   "\" is not a rate from 1K to 1024G such as 500K, 20M or 1G";
        options.rateLimit = *rate;
    }
    return readInputs(texts.inputs, options);
}

// Parses `arguments`. Returns what ends the program, or nothing.
std::optional<EarlyExit> parse(CLI::App& app, std::vector<std::string> arguments)
{
    app.set_version_flag("--version", std::string("quenmoor-put ") + kVersion);
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        return EarlyExit{kExitFinished, app.help() + "\n"};
    } catch (const CLI::CallForVersion&) {
        return EarlyExit{kExitFinished, app.version() + "\n"};
    } catch (const CLI::Error& error) {
        return usageError(error.what());
    }
    return std::nullopt;
}

std::variant<PutOptions, CheckOptions, EarlyExit> parseCheck(std::vector<std::string> arguments)
{
    CheckOptions options;
    options.port = kTransferPort;
    std::string host = kServiceHost;
    CLI::App app("Tests the path to a Quenmoor transfer server. No file is sent.",
                 "quenmoor-put check");
    app.footer("Exit status:\n"
               "  0    packets pass in both directions\n"
               "  1    they do not; the output has the reason and what to do\n"
               "  2    wrong command line");
    addHostOption(app, host);
    app.add_flag("--json", options.json, "Write the result as one JSON object");
    if (auto exit = parse(app, std::move(arguments)))
        return *exit;
    removeMark(host);
    if (const auto error = splitHost(host, options))
        return usageError(*error);
    return options;
}

} // namespace

std::variant<PutOptions, CheckOptions, EarlyExit> parsePutOptions(int argc, const char* const* argv)
{
    if (argc > 1 && std::string_view(argv[1]) == "check")
        return parseCheck(markedArguments(argc - 1, argv + 1));
    PutOptions options;
    options.port = kTransferPort;
    Texts texts;

    CLI::App app("Sends files to a Quenmoor transfer server over UDT. \"quenmoor-put check\" tests "
                 "the path to the server: see quenmoor-put check --help.",
                 "quenmoor-put");
    app.footer(kFooter);
    addHostOption(app, texts.host);
    addInputOptions(app, options, texts.inputs);
    addTransferOptions(app, options, texts);
    addRetryOptions(app, options, texts);
    addOutputOptions(app, options);
    if (auto exit = parse(app, markedArguments(argc, argv)))
        return *exit;
    if (const auto error = readTexts(texts, options))
        return usageError(*error);
    return options;
}

} // namespace quenmoor

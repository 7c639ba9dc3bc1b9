#include "cli/put_options.h"

#include "base/text.h"
#include "cli/build_settings.h"
#include "protocol/udt_transfer_link.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>

namespace quenmoor {
namespace {

const char* const kFooter = "Exit status:\n"
                            "  0    every file finished\n"
                            "  1    gave up: a file failed ten times in a row\n"
                            "  2    wrong command line; nothing was sent\n"
                            "  3    a file was cancelled because the server holds a copy\n"
                            "  4    a file cannot be read, or became shorter while it was sent\n"
                            "  129, 130, 143  interrupted by a signal: 128 plus its number\n"
                            "If several apply, the status is the first of 129 to 143, 1, 4 and 3.";

// Reads "HOST" or "HOST:PORT" into `options`. Returns an error message for any other text.
std::optional<std::string> splitHost(const std::string& text, PutOptions& options)
{
    const std::size_t colon = text.find(':');
    options.host = text.substr(0, colon);
    if (options.host.empty())
        return "--host: \"" + printableLine(text) + "\" has no host before the colon";
    if (colon == std::string::npos)
        return std::nullopt;
    const auto port = wholeNumber(std::string_view(text).substr(colon + 1));
    if (!port || *port < 1 || *port > std::numeric_limits<std::uint16_t>::max())
        return "--host: \"" + printableLine(text) +
               "\" has no port from 1 to 65535 after the colon";
    options.port = static_cast<std::uint16_t>(*port);
    return std::nullopt;
}

std::optional<std::string> checkFiles(const PutOptions& options)
{
    if (options.files.size() != options.tokens.size())
        return fmt::format(
            "{} for {}: give one --token for each file, in the same order",
            options.tokens.size() == 1 ? "1 token"
                                       : fmt::format("{} tokens", options.tokens.size()),
            options.files.size() == 1 ? "1 file" : fmt::format("{} files", options.files.size()));
    for (const std::string& token : options.tokens) {
        if (token.empty())
            return "--token: a token must not be empty";
    }
    return std::nullopt;
}

EarlyExit usageError(const std::string& text)
{
    return {kExitUsage, "quenmoor-put: " + text + "\nTry: quenmoor-put --help\n"};
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

void removeMarks(std::vector<std::string>& values)
{
    for (std::string& value : values)
        value.resize(std::min(value.find('\0'), value.size()));
}

void addTransferOptions(CLI::App& app, PutOptions& options, std::string& host)
{
    const std::map<std::string, ExistingPolicy> existing{{"ask", ExistingPolicy::Ask},
                                                         {"resume", ExistingPolicy::Resume},
                                                         {"overwrite", ExistingPolicy::Overwrite},
                                                         {"cancel", ExistingPolicy::Cancel}};
    const std::map<std::string, Congestion> congestion{{"library", Congestion::Library},
                                                       {"paced", Congestion::Paced}};
    app.add_option("--host", host, "Transfer server; the default port is 65000")
        ->type_name("HOST[:PORT]")
        ->capture_default_str();
    app.add_option("--token", options.tokens,
                   "Upload token; repeat it for each file, in the order of the files")
        ->type_name("TOKEN")
        ->required()
        ->allow_extra_args(false);
    app.add_option("--existing", options.existing,
                   "What to do if the server already holds a copy. The default, ask, asks on a "
                   "terminal and cancels without one")
        ->type_name("ask|resume|overwrite|cancel")
        ->transform(CLI::CheckedTransformer(existing).description(""));
    app.add_option("--congestion", options.congestion,
                   "Congestion control: that of the transport library, or paced by a model of the "
                   "path")
        ->type_name("library|paced")
        ->transform(CLI::CheckedTransformer(congestion).description(""));
    app.add_option("FILE", options.files, "Files to send")->required();
}

void addOutputOptions(CLI::App& app, PutOptions& options)
{
    CLI::Option* const json = app.add_flag_callback(
        "--json", [&options] { options.output = OutputMode::Json; },
        "Write one JSON object per line to standard output");
    app.add_flag_callback(
           "--quiet", [&options] { options.output = OutputMode::Quiet; }, "Write errors only")
        ->excludes(json);
    app.add_flag("-v,--verbose", options.verbose,
                 "Write diagnostics to standard error as well as to the system log");
}

} // namespace

std::variant<PutOptions, EarlyExit> parsePutOptions(int argc, const char* const* argv)
{
    PutOptions options;
    options.port = kTransferPort;
    std::string host = kServiceHost;

    CLI::App app("Sends files to a Quenmoor transfer server over UDT.", "quenmoor-put");
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("quenmoor-put ") + kVersion);
    addTransferOptions(app, options, host);
    addOutputOptions(app, options);

    try {
        app.parse(markedArguments(argc, argv));
    } catch (const CLI::CallForHelp&) {
        return EarlyExit{kExitFinished, app.help()};
    } catch (const CLI::CallForVersion&) {
        return EarlyExit{kExitFinished, app.version() + "\n"};
    } catch (const CLI::Error& error) {
        return usageError(error.what());
    }
    removeMarks(options.files);
    removeMarks(options.tokens);
    if (const auto error = splitHost(host, options))
        return usageError(*error);
    if (const auto error = checkFiles(options))
        return usageError(*error);
    return options;
}

} // namespace quenmoor

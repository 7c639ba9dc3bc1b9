#include "cli/put_options.h"

#include "base/text.h"
#include "cli/build_settings.h"
#include "protocol/udt_transfer_link.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <limits>
#include <map>
#include <optional>

namespace quenmoor {
namespace {

const char* const kFooter =
    "Exit status:\n"
    "  0    every file finished\n"
    "  1    gave up: a file failed ten times in a row\n"
    "  2    wrong command line; nothing was sent\n"
    "  3    a file was cancelled because the server holds a copy\n"
    "  4    a file cannot be read; the others were sent\n"
    "  130  interrupted from the keyboard (128 plus the number of any signal)";

// "HOST" or "HOST:PORT"; what is wrong with it otherwise.
std::optional<std::string> splitHost(const std::string& text, PutOptions& options)
{
    const std::size_t colon = text.find(':');
    options.host = text.substr(0, colon);
    if (options.host.empty())
        return "--host: the host is missing in \"" + printableLine(text) + "\"";
    if (colon == std::string::npos)
        return std::nullopt;
    const auto port = wholeNumber(std::string_view(text).substr(colon + 1));
    if (!port || *port < 1 || *port > std::numeric_limits<std::uint16_t>::max())
        return "--host: \"" + printableLine(text) +
               "\" has no port from 1 to 65535 after the colon";
    options.port = static_cast<std::uint16_t>(*port);
    return std::nullopt;
}

std::optional<std::string> faultIn(const PutOptions& options)
{
    if (options.files.size() != options.tokens.size())
        return fmt::format(
            "{} for {}: each file needs a --token of its own, in the same order",
            options.tokens.size() == 1 ? "1 token"
                                       : fmt::format("{} tokens", options.tokens.size()),
            options.files.size() == 1 ? "1 file" : fmt::format("{} files", options.files.size()));
    for (const std::string& token : options.tokens) {
        if (token.empty())
            return "--token: a token is empty";
    }
    return std::nullopt;
}

PutExit usageError(const std::string& text)
{
    return {kExitUsage, "quenmoor-put: " + text + "\nTry: quenmoor-put --help\n"};
}

} // namespace

std::variant<PutOptions, PutExit> parsePutOptions(int argc, const char* const* argv)
{
    PutOptions options;
    options.port = kTransferPort;
    std::string host = kServiceHost;
    bool json = false;
    bool quiet = false;
    const std::map<std::string, Existing> existing{{"ask", Existing::Ask},
                                                   {"resume", Existing::Resume},
                                                   {"overwrite", Existing::Overwrite},
                                                   {"cancel", Existing::Cancel}};
    const std::map<std::string, Congestion> congestion{{"library", Congestion::Library},
                                                       {"paced", Congestion::Paced}};

    CLI::App app("Sends files to a Quenmoor transfer server over UDT.", "quenmoor-put");
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("quenmoor-put ") + kVersion);
    app.add_option("--host", host, "Transfer server, with a port unless it is 65000")
        ->type_name("HOST[:PORT]")
        ->capture_default_str();
    app.add_option("--token", options.tokens, "Upload token; once for each file, in their order")
        ->type_name("TOKEN")
        ->required()
        ->allow_extra_args(false);
    app.add_option("--existing", options.existing,
                   "When the server holds a copy. Unless told otherwise it asks on a terminal and "
                   "cancels elsewhere")
        ->type_name("ask|resume|overwrite|cancel")
        ->transform(CLI::CheckedTransformer(existing).description(""));
    app.add_option("--congestion", options.congestion,
                   "Congestion control: the transport library's own, or ours")
        ->type_name("library|paced")
        ->transform(CLI::CheckedTransformer(congestion).description(""));
    CLI::Option* const jsonOption =
        app.add_flag("--json", json, "One JSON object a line on standard output");
    app.add_flag("--quiet", quiet, "Nothing but errors")->excludes(jsonOption);
    app.add_flag("-v,--verbose", options.verbose,
                 "Diagnostics on standard error, not only in the system log");
    app.add_option("FILE", options.files, "Files to send")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return PutExit{kExitFinished, app.help()};
    } catch (const CLI::CallForVersion&) {
        return PutExit{kExitFinished, app.version() + "\n"};
    } catch (const CLI::Error& error) {
        return usageError(error.what());
    }
    options.output = json ? Output::Json : quiet ? Output::Quiet : Output::Human;
    if (const auto fault = splitHost(host, options))
        return usageError(*fault);
    if (const auto fault = faultIn(options))
        return usageError(*fault);
    return options;
}

} // namespace quenmoor

#include "devservice/service_options.h"

#include "base/text.h"
#include "protocol/udt_transfer_link.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>

namespace quenmoor {
namespace {

constexpr std::int64_t kMaxTokenSeconds = 10LL * 365 * 24 * 60 * 60;

constexpr const char* kExitStatuses =
    "Exit status:\n"
    "  0    stopped by SIGINT or SIGTERM\n"
    "  1    the service cannot start or did not stop cleanly; a message has the reason\n"
    "  2    wrong command line";

// `text` may quote the arguments.
ServiceExit usageError(const std::string& text)
{
    return {kServiceUsage,
            "quenmoor-devservice: " + printableLine(text) + "\nTry: quenmoor-devservice --help\n"};
}

void describe(CLI::App& app, ServiceOptions& options, std::vector<std::string>& faults)
{
    app.footer("Faults: " + faultNames() + "\n\n" + kExitStatuses);
    app.add_option("--root", options.root, "Folder that uploads are stored in; created if missing")
        ->type_name("DIR")
        ->required();
    app.add_option("--port", options.port, "UDP port of the transfer server; 0 selects a free one")
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--bind", options.bindAddress, "IPv4 address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--token", options.tokens,
                   "Accept these upload tokens for every file; repeatable. Serves no page unless "
                   "--page-port is given")
        ->type_name("TOKEN");
    app.add_option("--fault", faults, "Inject this fault; repeatable")
        ->type_name("NAME[=VALUE]")
        ->allow_extra_args(false);
    app.add_option("--fault-count", options.faultCount,
                   "Inject the faults into the first N attempts only")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber.description(""));
}

void describePage(CLI::App& app, PageOptions& page, std::string& newestVersion,
                  std::int64_t& tokenSeconds)
{
    CLI::Option_group& group = *app.add_option_group("The upload page");
    group.add_option("--page-port", page.port, "TCP port of the page; 0 selects a free one")
        ->type_name("PORT")
        ->capture_default_str();
    group
        .add_option("--page", page.folder,
                    "Serve the page in this folder instead of the built-in one")
        ->type_name("DIR");
    group.add_option("--state", page.stateFolder, "Folder of the certificate; created if missing")
        ->type_name("DIR")
        ->capture_default_str();
    group
        .add_option("--newest-version", newestVersion,
                    "Client version that the page publishes; older clients ask for an update")
        ->type_name("N.N.N")
        ->capture_default_str();
    group
        .add_option("--update-url", page.updateUrl,
                    "URL from which the newest client can be downloaded")
        ->type_name("URL");
    group
        .add_option("--token-lifetime", tokenSeconds, "Time for which a token of the page is valid")
        ->type_name("SECONDS")
        ->check(CLI::Range(std::int64_t{1}, kMaxTokenSeconds).description(""))
        ->capture_default_str();
    group.add_flag("--auto", page.automatic, "Upload every file without a click on the page");
}

// Returns the folder for this program's persistent state, by the rules of the XDG base directories.
std::string defaultStateFolder()
{
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/quenmoor-devservice";
    const char* const home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.local/state/quenmoor-devservice";
}

// Returns the three numbers of a text such as "1.4.2", or nothing for any other form.
std::optional<std::array<std::string, 3>> parseNewestVersion(std::string_view text)
{
    std::array<std::string, 3> numbers;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const std::size_t end = i + 1 < numbers.size() ? text.find('.') : text.size();
        const std::string_view number = text.substr(0, end);
        if (end == std::string_view::npos || number.empty() ||
            number.find_first_not_of("0123456789") != std::string_view::npos)
            return std::nullopt;
        numbers[i] = number;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return numbers;
}

// Completes `page`. Returns an empty text, or a message if a value is not valid.
std::string completePage(PageOptions& page, const std::string& newestVersion)
{
    const auto numbers = parseNewestVersion(newestVersion);
    if (!numbers)
        return "--newest-version: \"" + newestVersion + "\" must look like 1.2.3";
    page.newestVersion = *numbers;
    return isUtf8(page.updateUrl) ? "" : "--update-url: must be UTF-8";
}

} // namespace

std::variant<ServiceOptions, ServiceExit> parseServiceOptions(int argc, const char* const* argv)
{
    ServiceOptions options;
    options.port = kTransferPort;
    std::vector<std::string> faults;
    PageOptions page;
    page.stateFolder = defaultStateFolder();
    std::string newestVersion = SERVICE_VERSION;
    std::int64_t tokenSeconds = page.tokenLifetime.count();
    CLI::App app("Receives uploads of Quenmoor clients on one machine, for testing.",
                 "quenmoor-devservice");
    describe(app, options, faults);
    describePage(app, page, newestVersion, tokenSeconds);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return ServiceExit{0, app.help()};
    } catch (const CLI::Error& error) {
        return usageError(error.what());
    }
    for (const std::string& text : faults) {
        const std::optional<Fault> fault = parseFault(text);
        if (!fault)
            return usageError("--fault: unknown fault \"" + text +
                              "\"; known faults: " + faultNames());
        options.faults.push_back(*fault);
    }
    for (const std::string& token : options.tokens) {
        if (token.empty())
            return usageError("--token: must not be empty");
    }
    if (options.tokens.empty() || app.count("--page-port") > 0) {
        if (const std::string problem = completePage(page, newestVersion); !problem.empty())
            return usageError(problem);
        page.tokenLifetime = std::chrono::seconds(tokenSeconds);
        options.page = page;
    }
    return options;
}

} // namespace quenmoor

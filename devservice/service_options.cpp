#include "devservice/service_options.h"

#include "base/text.h"
#include "devservice/page_server.h"
#include "protocol/udt_transfer_link.h"

#include <CLI/CLI.hpp>

#include <cstdlib>

namespace quenmoor {
namespace {

constexpr std::int64_t kLongestTokenSeconds = 10LL * 365 * 24 * 60 * 60;

ServiceExit usageError(const std::string& text)
{
    return {kServiceUsage, "quenmoor-devservice: " + text + "\nTry: quenmoor-devservice --help\n"};
}

void describe(CLI::App& app, ServiceOptions& options, std::vector<std::string>& faults)
{
    app.footer("Faults: " + faultNames());
    app.add_option("--root", options.root, "Folder for the uploads; made when it is missing")
        ->type_name("DIR")
        ->required();
    app.add_option("--port", options.port, "UDP port of the transfer server; 0 takes a free one")
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--bind", options.bindAddress, "IPv4 address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--token", options.tokens,
                   "Upload tokens to accept; may come again. There is then no page, unless "
                   "--page-port asks for it")
        ->type_name("TOKEN");
    app.add_option("--fault", faults, "What to do wrong on purpose; may come again")
        ->type_name("NAME[=VALUE]")
        ->allow_extra_args(false);
    app.add_option("--fault-count", options.faultCount,
                   "Only so many attempts meet the faults, from the first on")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber.description(""));
}

void describePage(CLI::App& app, PageOptions& page, std::string& newestVersion,
                  std::int64_t& tokenSeconds)
{
    CLI::Option_group& group = *app.add_option_group("The upload page");
    group.add_option("--page-port", page.port, "TCP port of the page; 0 takes a free one")
        ->type_name("PORT")
        ->capture_default_str();
    group.add_option("--page", page.folder, "Folder of another page to serve")->type_name("DIR");
    group
        .add_option("--state", page.stateFolder,
                    "Folder for the certificate; made when it is missing")
        ->type_name("DIR")
        ->capture_default_str();
    group
        .add_option("--newest-version", newestVersion,
                    "Client version to publish; older clients are told to update")
        ->type_name("N.N.N")
        ->capture_default_str();
    group.add_option("--update-url", page.updateUrl, "Where the newest client is found")
        ->type_name("URL");
    group.add_option("--token-lifetime", tokenSeconds, "How long the page's tokens are good for")
        ->type_name("SECONDS")
        ->check(CLI::Range(std::int64_t{1}, kLongestTokenSeconds).description(""))
        ->capture_default_str();
    group.add_flag("--auto", page.automatic, "Give the token for every file without a click");
}

// Where a user's programs keep what should outlive them.
std::string usualStateFolder()
{
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/quenmoor-devservice";
    const char* const home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.local/state/quenmoor-devservice";
}

// Empty when `page` is fit to be served, else what is wrong.
std::string judgePage(PageOptions& page, const std::string& newestVersion)
{
    const auto numbers = parseNewestVersion(newestVersion);
    if (!numbers)
        return "--newest-version: \"" + printableLine(newestVersion) + "\" has not three numbers";
    page.newestVersion = *numbers;
    return isUtf8(page.updateUrl) ? "" : "--update-url: is not UTF-8";
}

} // namespace

std::variant<ServiceOptions, ServiceExit> parseServiceOptions(int argc, const char* const* argv)
{
    ServiceOptions options;
    options.port = kTransferPort;
    std::vector<std::string> faults;
    PageOptions page;
    page.stateFolder = usualStateFolder();
    std::string newestVersion = SERVICE_VERSION;
    std::int64_t tokenSeconds = page.tokenLifetime.count();
    CLI::App app("Takes uploads of Quenmoor clients on this machine, to try them out.",
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
            return usageError("--fault: \"" + printableLine(text) +
                              "\" is none; there are: " + faultNames());
        options.faults.push_back(*fault);
    }
    for (const std::string& token : options.tokens) {
        if (token.empty())
            return usageError("--token: a token is empty");
    }
    if (options.tokens.empty() || app.count("--page-port") > 0) {
        if (const std::string wrong = judgePage(page, newestVersion); !wrong.empty())
            return usageError(wrong);
        page.tokenLifetime = std::chrono::seconds(tokenSeconds);
        options.page = page;
    }
    return options;
}

} // namespace quenmoor

#include "devservice/service_options.h"

#include "base/text.h"
#include "protocol/udt_transfer_link.h"

#include <CLI/CLI.hpp>

namespace quenmoor {
namespace {

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
    app.add_option("--token", options.tokens, "Upload tokens to accept; may come again")
        ->type_name("TOKEN")
        ->required();
    app.add_option("--fault", faults, "What to do wrong on purpose; may come again")
        ->type_name("NAME[=VALUE]")
        ->allow_extra_args(false);
    app.add_option("--fault-count", options.faultCount,
                   "Only so many attempts meet the faults, from the first on")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber.description(""));
}

} // namespace

std::variant<ServiceOptions, ServiceExit> parseServiceOptions(int argc, const char* const* argv)
{
    ServiceOptions options;
    options.port = kTransferPort;
    std::vector<std::string> faults;
    CLI::App app("Takes uploads of Quenmoor clients on this machine, to try them out.",
                 "quenmoor-devservice");
    describe(app, options, faults);
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
            return usageError("--fault: \"" + displayText(text) +
                              "\" is none; there are: " + faultNames());
        options.faults.push_back(*fault);
    }
    for (const std::string& token : options.tokens) {
        if (token.empty())
            return usageError("--token: a token is empty");
    }
    return options;
}

} // namespace quenmoor

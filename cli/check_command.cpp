#include "cli/check_command.h"

#include "base/text.h"
#include "cli/json_report.h"
#include "cli/put_log.h"
#include "cli/put_report.h"
#include "protocol/documents.h"
#include "protocol/udt_transfer_link.h"

#include <fmt/format.h>

#include <cstdio>

namespace quenmoor {
namespace {

constexpr std::int32_t kRefusal = 1; // the only response code that refuses an upload

std::string adviceFor(AttemptStep step)
{
    switch (step) {
    case AttemptStep::Announce:
        return "Check that the server runs, and that every firewall between passes UDP to its port "
               "and the answers back.";
    case AttemptStep::Rendezvous:
        return "The server answers, but its own connection to this computer does not arrive. A "
               "firewall or an address translator has to pass UDP from the port of the server to "
               "the port that this computer used.";
    default:
        return "The server accepts connections but does not answer the announcement. Report this "
               "to its operator.";
    }
}

// The sockets of one check.
class Check {
public:
    Check(TransferLink& link, const Clock& clock) : link_(link), clock_(clock) {}
    ~Check() { link_.closeSockets(rendezvousSocket_, connectSocket_); }
    Check(const Check&) = delete;
    Check& operator=(const Check&) = delete;

    // The three steps of a request. Each returns true on success.
    bool announce();
    bool meet() { return link_.rendezvousWithServer(connectSocket_, rendezvousSocket_); }
    bool receive();

    // True if the last response refuses the announcement.
    bool refused() const { return response_.response == kRefusal; }
    // Milliseconds that `step` takes; nothing if it fails.
    template <typename Step>
    std::optional<double> timed(Step step)
    {
        const std::int64_t begin = clock_.nanoseconds();
        if (!step())
            return std::nullopt;
        return static_cast<double>(clock_.nanoseconds() - begin) / 1e6;
    }

private:
    TransferLink& link_;
    const Clock& clock_;
    ResponseContainer response_;
    std::int32_t connectSocket_ = 0;
    std::int32_t rendezvousSocket_ = 0;
};

bool Check::announce()
{
    const RequestContainer request{"quenmoor-put-check", "check", 1};
    return link_.connectAndSendRequest(connectSocket_,
                                       buildXML(request.XMLpayload(), "RequestContainer"));
}

bool Check::receive()
{
    const std::string text = link_.receiveString(rendezvousSocket_);
    response_.parseXML(text);
    return !text.empty();
}

std::string bufferLine(std::int32_t granted)
{
    const std::int32_t wanted = kConnectSocketOptions.udpReceiveBuffer.value_or(0);
    std::string line = fmt::format("UDP receive buffer: {} of {} granted", formatSize(granted),
                                   formatSize(wanted));
    if (granted < wanted)
        line += fmt::format("; a fast path may lose acknowledgements. To raise the limit, as root: "
                            "sysctl -w net.core.rmem_max={}",
                            wanted);
    return line;
}

} // namespace

void checkPath(TransferLink& link, const Clock& clock, const OnCheckLine& onLine,
               CheckResult& result)
{
    Check check(link, clock);
    const auto failedAt = [&](AttemptStep step) {
        result.failedAt = stepName(step);
        result.message = link.failureReason();
        result.advice = adviceFor(step);
    };
    // The library connects in two round trips.
    const auto connected = check.timed([&] { return check.announce(); });
    if (!connected)
        return failedAt(AttemptStep::Announce);
    result.roundTripMs = *connected / 2;
    onLine(fmt::format("connection: established, round trip about {:.1f} ms", result.roundTripMs));
    const auto met = check.timed([&] { return check.meet(); });
    if (!met)
        return failedAt(AttemptStep::Rendezvous);
    result.rendezvousMs = *met;
    onLine(fmt::format("rendezvous: established after {:.1f} ms", result.rendezvousMs));
    if (!check.receive())
        return failedAt(AttemptStep::Response);
    onLine(check.refused() ? "response: the server refused the test announcement, as it should"
                           : "response: the server accepted the test announcement; nothing was "
                             "sent");
    result.message = "the path to the server works in both directions";
}

int runCheck(const CheckOptions& options)
{
    startLog(options.json, nullptr);
    const OnCheckLine onLine = [&options](const std::string& line) {
        if (options.json)
            return;
        std::fputs((printableLine(line) + '\n').c_str(), stdout);
        std::fflush(stdout);
    };
    CheckResult result;
    std::string error;
    if (const auto address = lookUpServer(options.host, options.port, error)) {
        result.address = address->text();
        onLine(options.host + ": " + result.address);
        const std::string host = result.address.substr(0, result.address.find(':'));
        UdtTransferLink link(host, options.port);
        checkPath(link, SystemClock(), onLine, result);
    } else {
        result.failedAt = "resolve";
        result.message = options.host + ": " + error;
        result.advice = "Check the name of the server and the name service of this computer.";
    }
    result.receiveBuffer = grantedReceiveBuffer();
    if (result.receiveBuffer)
        onLine(bufferLine(*result.receiveBuffer));
    onLine(result.works() ? result.message : result.failedAt + ": " + result.message);
    if (!result.works())
        onLine(result.advice);
    if (options.json)
        writeCheck(stdout, options, result);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        return result.works() ? kExitOutput : kExitGaveUp;
    return result.works() ? kExitFinished : kExitGaveUp;
}

} // namespace quenmoor

#include "base/log.h"

#include "base/text.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace quenmoor {
namespace {

// A descriptor for which poll() reports room takes this many bytes without blocking.
constexpr std::size_t kPiece = PIPE_BUF;

const char* program()
{
#ifdef __APPLE__
    return getprogname();
#else
    return program_invocation_short_name;
#endif
}

bool hasRoom(int descriptor, std::chrono::milliseconds limit)
{
    pollfd poller{descriptor, POLLOUT, 0};
    int found = 0;
    do {
        found = poll(&poller, 1, static_cast<int>(limit.count()));
    } while (found < 0 && errno == EINTR);
    return found > 0;
}

class StandardSink : public LogSink {
public:
    StandardSink() { openlog(nullptr, LOG_PID, LOG_USER); }

    void systemLine(std::string_view line) override
    {
        const std::string whole(line);
        syslog(LOG_INFO, "%s", whole.c_str());
        writeDiagnostic(STDERR_FILENO, fmt::format("{}[{}]: {}\n", program(), getpid(), whole));
    }

    void outputLine(std::string_view line) override
    {
        std::string whole(line);
        whole += '\n';
        writeDiagnostic(STDOUT_FILENO, whole);
    }
};

// Never destroyed, because threads that outlive main() may still log.
LogSink& standardSink()
{
    static auto* const sink = new StandardSink;
    return *sink;
}

std::atomic<LogSink*> chosenSink{nullptr};

LogSink& currentSink()
{
    LogSink* const sink = chosenSink.load();
    return sink != nullptr ? *sink : standardSink();
}

} // namespace

void writeDiagnostic(int descriptor, std::string_view text, std::chrono::milliseconds limit)
{
    static std::array<std::atomic<bool>, STDERR_FILENO + 1> stalled{};
    std::atomic<bool>& isStalled = stalled.at(static_cast<std::size_t>(descriptor));
    while (!text.empty()) {
        if (!hasRoom(descriptor, isStalled ? std::chrono::milliseconds(0) : limit)) {
            isStalled = true;
            return;
        }
        isStalled = false;
        const ssize_t written = write(descriptor, text.data(), std::min(text.size(), kPiece));
        if (written < 0 && errno != EINTR && errno != EAGAIN)
            return;
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

LogSink* setLogSink(LogSink* sink)
{
    return chosenSink.exchange(sink);
}

void writeSystemLine(std::string_view line)
{
    currentSink().systemLine(printableLine(line));
}

void logOutput(std::string_view text)
{
    currentSink().outputLine(printableText(text));
}

void logOutputBytes(std::string_view bytes)
{
    currentSink().outputLine(bytes);
}

} // namespace quenmoor

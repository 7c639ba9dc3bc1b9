#include "base/log.h"

#include "base/text.h"

#include <syslog.h>

#include <atomic>
#include <cstdio>

namespace quenmoor {
namespace {

class StandardSink : public LogSink {
public:
    StandardSink() { openlog(nullptr, LOG_PERROR | LOG_PID, LOG_USER); }

    void systemLine(std::string_view line) override
    {
        syslog(LOG_INFO, "%s", std::string(line).c_str());
    }

    void outputLine(std::string_view line) override
    {
        std::string whole(line);
        whole += '\n';
        std::fwrite(whole.data(), 1, whole.size(), stdout);
        std::fflush(stdout);
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

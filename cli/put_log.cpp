#include "cli/put_log.h"

#include "base/log.h"
#include "base/text.h"

#include <fmt/chrono.h>
#include <syslog.h>

#include <ctime>

namespace quenmoor {
namespace {

// Any thread.
class PutLogSink : public LogSink {
public:
    // `logFile` may be null; it is not closed.
    PutLogSink(bool onStandardError, std::FILE* logFile)
        : onStandardError_(onStandardError), logFile_(logFile)
    {
        openlog("quenmoor-put", LOG_PID, LOG_USER);
    }

    void systemLine(std::string_view line) override
    {
        const std::string text(line);
        syslog(LOG_INFO, "%s", text.c_str());
        if (onStandardError_)
            std::fputs((text + '\n').c_str(), stderr);
        if (logFile_ != nullptr)
            std::fputs(fmt::format("{} {}\n", now(), text).c_str(), logFile_);
    }
    void outputLine(std::string_view line) override { systemLine(printableLine(line)); }

private:
    // "2026-11-22T03:43:32.125Z"
    static std::string now()
    {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(time.tv_sec),
                           time.tv_nsec / 1'000'000);
    }

    const bool onStandardError_;
    std::FILE* const logFile_;
};

} // namespace

void startLog(bool onStandardError, std::FILE* logFile)
{
    // Never destroyed: a thread that is still blocked in the link may log at the end.
    static auto* const sink = new PutLogSink(onStandardError, logFile);
    setLogSink(sink);
}

} // namespace quenmoor

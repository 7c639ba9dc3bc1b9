#include "cli/put_log_sink.h"

#include "base/text.h"

#include <syslog.h>

#include <cstdio>

namespace quenmoor {

PutLogSink::PutLogSink(bool onStandardError) : onStandardError_(onStandardError)
{
    openlog("quenmoor-put", LOG_PID, LOG_USER);
}

void PutLogSink::systemLine(std::string_view line)
{
    const std::string text = printableText(line);
    syslog(LOG_INFO, "%s", text.c_str());
    if (onStandardError_)
        std::fputs((text + '\n').c_str(), stderr);
}

} // namespace quenmoor

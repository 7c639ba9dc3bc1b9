#include "engine/upload_engine.h"

#include <fmt/format.h>

namespace quenmoor {

void UploadEngine::statusUpdate(const std::string& status, std::int32_t percent)
{
    const bool changed = queues_.tableList().replace(progressRowIndex_, status, percent);
    std::optional<std::int32_t> shown;
    if (changed && percent >= 0)
        shown = percent;
    view_.reloadProgressGrid(shown);
}

void UploadEngine::statusBarUpdate(bool showFile, const std::string& rate)
{
    std::string name = "[none]";
    const auto row = queues_.tableList().objectAtIndex(progressRowIndex_);
    if (showFile && row != nullptr)
        name = row->filename;
    view_.setStatusBar(name, rate);
}

void UploadEngine::reportSample(std::int64_t bytes, std::int64_t total, double rate)
{
    attempt_.bytesSent = bytes;
    attempt_.rate = rate;
    ++attempt_.samples;
    statusUpdate(fmt::format("Uploading at {:.03f} MB/s", rate), percentSent(bytes, total));
    statusBarUpdate(true, fmt::format("Upload rate: {:.03f} MB/s", rate));
}

} // namespace quenmoor

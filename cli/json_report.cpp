#include "cli/json_report.h"

#include <nlohmann/json.hpp>

namespace quenmoor {
namespace {

const char* kindName(PutEventKind kind)
{
    switch (kind) {
    case PutEventKind::Queued: return "queued";
    case PutEventKind::Status: return "status";
    case PutEventKind::Rate: return "rate";
    case PutEventKind::Question: return "question";
    case PutEventKind::Finished: return "finished";
    case PutEventKind::Failed: return "failed";
    case PutEventKind::Cancelled: return "cancelled";
    case PutEventKind::Summary: return "summary";
    }
    return "";
}

} // namespace

std::string jsonLine(const PutEvent& event)
{
    nlohmann::ordered_json object;
    const auto add = [&object](const char* key, const auto& value) {
        if (value)
            object[key] = *value;
    };
    object["event"] = kindName(event.kind);
    if (!event.file.empty())
        object["file"] = event.file;
    add("row", event.row);
    add("status", event.status);
    add("percent", event.percent);
    add("bytes", event.bytes);
    add("total", event.total);
    add("mbps", event.mbps);
    add("attempt", event.attempt);
    add("step", event.step);
    add("message", event.message);
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void JsonReport::report(const PutEvent& event)
{
    const std::string line = jsonLine(event) + '\n';
    std::fwrite(line.data(), 1, line.size(), out_);
    std::fflush(out_);
}

} // namespace quenmoor

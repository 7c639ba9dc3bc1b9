#include "cli/json_report.h"

#include <nlohmann/json.hpp>

namespace quenmoor {
namespace {

using Json = nlohmann::ordered_json;

// The members that every object about a queued file has.
Json objectFor(const char* event, const Source& source)
{
    Json object{{"event", event}, {"file", source.name}, {"row", source.row}};
    object["total"] = source.size;
    if (source.attempt > 0)
        object["attempt"] = source.attempt;
    return object;
}

Json statusObject(const Source& source, const AttemptEvent& event)
{
    Json object = objectFor("status", source);
    object["status"] = statusText(event);
    object["percent"] = source.percent;
    if (event.kind == AttemptEventKind::Failed) {
        object["step"] = stepName(event.step);
        object["message"] = event.reason;
    }
    return object;
}

} // namespace

void JsonReport::queued(const Source& source)
{
    Json object = objectFor("queued", source);
    object["status"] = "Queued";
    object["percent"] = 0;
    write(object);
}

void JsonReport::unreadable(const Source& source, const std::string& why)
{
    Json object = objectFor("failed", source);
    object["step"] = "open";
    object["message"] = unreadableText(why);
    write(object);
}

void JsonReport::attemptChanged(const Source& source, const AttemptEvent& event)
{
    if (event.kind != AttemptEventKind::GaveUp && event.kind != AttemptEventKind::StepChanged)
        write(statusObject(source, event));
    Json object;
    switch (event.kind) {
    case AttemptEventKind::StepChanged:
        object = objectFor("step", source);
        object["step"] = stepName(event.step);
        object["message"] = phaseName(event.step);
        break;
    case AttemptEventKind::Progress:
        object = objectFor("rate", source);
        object["percent"] = source.percent;
        object["bytes"] = event.bytes;
        object["mib_per_s"] = event.rate;
        if (event.averageRate > 0)
            object["average_mib_per_s"] = event.averageRate;
        if (const auto left = timeLeft(event))
            object["seconds_left"] = left->count();
        break;
    case AttemptEventKind::Finished:
        object = objectFor("finished", source);
        object["percent"] = source.percent;
        object["bytes"] = event.total;
        object["mib_per_s"] = averageRate(event);
        object["changed"] = event.sourceChanged;
        object["message"] = eventText(event);
        break;
    case AttemptEventKind::Cancelled:
        object = objectFor("cancelled", source);
        object["message"] = eventText(event);
        break;
    case AttemptEventKind::GaveUp:
        object = objectFor("failed", source);
        object["step"] = stepName(event.step);
        object["message"] = eventText(event);
        break;
    case AttemptEventKind::Started:
    case AttemptEventKind::Failed:
    case AttemptEventKind::Waiting: return;
    }
    write(object);
}

void JsonReport::answered(const Source& source, const std::string& text)
{
    Json object = objectFor("question", source);
    object["message"] = text;
    write(object);
}

void JsonReport::summary(const RunOutcome& outcome)
{
    write({{"event", "summary"}, {"bytes", outcome.sentBytes}, {"message", summaryText(outcome)}});
}

void JsonReport::write(const Json& object)
{
    const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
    std::fwrite(line.data(), 1, line.size(), out_);
    std::fflush(out_);
}

} // namespace quenmoor
